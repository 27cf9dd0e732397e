// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/helmsman_configuration.h"

#include "base/text.h"
#include "common/configuration.h"
#include "common/durations.h"
#include "common/paths.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr std::string_view kStallLimitKey = "stall-limit";
constexpr std::string_view kScrubPartsKey = "scrub-parts";
constexpr std::string_view kExtension = ".conf";

bool takeStallLimit(const std::string& path, const ConfigurationLine& line,
                    std::optional<std::chrono::seconds>& limit, std::string& problem) {
  limit = parseDuration(line.value);
  if (limit) return true;
  problem = path + ":" + std::to_string(line.number) + ": '" + line.value +
            "' is no span of time such as 30s, 30min or 2h";
  return false;
}

bool takeScrub(const std::string& path, const ConfigurationLine& line,
               HelmsmanConfiguration& configuration, std::string& problem) {
  const std::string place = path + ":" + std::to_string(line.number) + ": '" + line.value;
  if (line.key == kScrubKey) {
    configuration.scrub = parseScrubPeriod(line.value);
    if (!configuration.scrub) problem = place + "' is none of weekly, monthly and off";
    return configuration.scrub.has_value();
  }
  const int parts = leadingInteger(line.value);
  const bool isNumber = std::to_string(parts) == line.value;
  const bool fits = isNumber && parts >= 1 && parts <= static_cast<int>(kMostScrubParts);
  if (fits) configuration.scrubParts = static_cast<unsigned>(parts);
  if (!fits) problem = place + "' is no number from 1 to " + std::to_string(kMostScrubParts);
  return fits;
}

bool readServiceConfigurations(HelmsmanConfiguration& configuration, std::string& problem) {
  for (const std::string& name : host::listDirectory(kServiceConfigurationFolder)) {
    if (!name.ends_with(kExtension) || name.starts_with('.')) continue;
    const std::string path = joinPath(kServiceConfigurationFolder, name);
    const auto lines = readConfiguration(path, {kStallLimitKey}, problem);
    if (!lines) return false;
    for (const ConfigurationLine& line : *lines) {
      std::optional<std::chrono::seconds> limit;
      if (!takeStallLimit(path, line, limit, problem)) return false;
      const std::string service = name.substr(0, name.size() - kExtension.size());
      configuration.serviceStallLimits[service] = *limit;
    }
  }
  return true;
}

}  // namespace

const char* scrubWord(ScrubPeriod period) {
  if (period == ScrubPeriod::off) return "off";
  return period == ScrubPeriod::weekly ? "weekly" : "monthly";
}

std::optional<ScrubPeriod> parseScrubPeriod(std::string_view word) {
  for (const auto period : {ScrubPeriod::off, ScrubPeriod::weekly, ScrubPeriod::monthly}) {
    if (word == scrubWord(period)) return period;
  }
  return std::nullopt;
}

std::chrono::seconds HelmsmanConfiguration::stallLimitOf(const std::string& service) const {
  const auto own = serviceStallLimits.find(service);
  if (own != serviceStallLimits.end()) return own->second;
  return stallLimit.value_or(kUsualStallLimit);
}

std::optional<HelmsmanConfiguration> helmsmanConfiguration(std::string& problem) {
  HelmsmanConfiguration configuration;
  const std::string path = kHelmsmanConfiguration;
  const auto lines = readConfiguration(
      path, {kStallLimitKey, kLeaveOutKey, kIncludeKey, kScrubKey, kScrubPartsKey}, problem);
  if (!lines) return std::nullopt;
  for (const ConfigurationLine& line : *lines) {
    if (line.key == kStallLimitKey) {
      if (!takeStallLimit(path, line, configuration.stallLimit, problem)) return std::nullopt;
    } else if (line.key == kScrubKey || line.key == kScrubPartsKey) {
      if (!takeScrub(path, line, configuration, problem)) return std::nullopt;
    } else if (line.value.starts_with('/')) {
      (line.key == kIncludeKey ? configuration.included : configuration.leftOut)
          .push_back(line.value);
    } else {
      problem =
          path + ":" + std::to_string(line.number) + ": '" + line.value + "' is no absolute path";
      return std::nullopt;
    }
  }
  if (!readServiceConfigurations(configuration, problem)) return std::nullopt;
  return configuration;
}

}  // namespace halyard::hostkit

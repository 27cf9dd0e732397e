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
constexpr std::string_view kExtension = ".conf";

bool takeStallLimit(const std::string& path, const ConfigurationLine& line,
                    std::optional<std::chrono::seconds>& limit, std::string& problem) {
  limit = parseDuration(line.value);
  if (limit) return true;
  problem = path + ":" + std::to_string(line.number) + ": '" + line.value +
            "' is no span of time such as 30s, 30min or 2h";
  return false;
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

std::chrono::seconds HelmsmanConfiguration::stallLimitOf(const std::string& service) const {
  const auto own = serviceStallLimits.find(service);
  if (own != serviceStallLimits.end()) return own->second;
  return stallLimit.value_or(kUsualStallLimit);
}

std::optional<HelmsmanConfiguration> helmsmanConfiguration(std::string& problem) {
  HelmsmanConfiguration configuration;
  const std::string path = kHelmsmanConfiguration;
  const auto lines = readConfiguration(path, {kStallLimitKey, kLeaveOutKey}, problem);
  if (!lines) return std::nullopt;
  for (const ConfigurationLine& line : *lines) {
    if (line.key == kStallLimitKey) {
      if (!takeStallLimit(path, line, configuration.stallLimit, problem)) return std::nullopt;
    } else if (line.value.starts_with('/')) {
      configuration.leftOut.push_back(line.value);
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

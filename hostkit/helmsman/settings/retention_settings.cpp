// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/retention_settings.h"

#include <algorithm>
#include <vector>

#include "base/text.h"
#include "common/configuration.h"
#include "common/paths.h"
#include "helmsman/settings/folders.h"

namespace halyard::hostkit {

namespace {

constexpr std::string_view kDaysKey = "days-to-retain";
constexpr std::string_view kDaysWord = "days";

/// Absent unless the text is a number of 0 or more that fits.
std::optional<int> numberIn(std::string_view text) {
  constexpr std::size_t kMostDigits = 6;
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  if (text.empty() || text.size() > kMostDigits || !std::ranges::all_of(text, isDigit)) {
    return std::nullopt;
  }
  return leadingInteger(text);
}

std::string wordsToSay() {
  std::string words(kDaysWord);
  for (const RetentionRule& rule : kRetentionRules) words.append(", ").append(rule.word);
  return words;
}

/// Takes one "daily=7"; false when it is none, or was taken before.
bool takeRule(std::string_view text, Retention& retention) {
  const std::size_t mark = text.find('=');
  if (mark == std::string_view::npos) return false;
  const auto number = numberIn(text.substr(mark + 1));
  if (!number || *number < 1 || *number > kMostKept) return false;
  const std::string_view word = text.substr(0, mark);
  if (word == kDaysWord && retention.days == 0) {
    retention.days = number;
    return true;
  }
  for (std::size_t at = 0; at < kRetentionRules.size(); ++at) {
    if (kRetentionRules[at].word != word || retention.counts[at] != 0) continue;
    retention.counts[at] = *number;
    return true;
  }
  return false;
}

}  // namespace

Retention storedRetention() {
  Retention retention;
  for (const ConfigurationLine& line : configurationLines(kEngineConfigFile)) {
    const auto number = numberIn(line.value);
    if (!number) continue;
    if (line.key == kDaysKey) retention.days = number;
    for (std::size_t at = 0; at < kRetentionRules.size(); ++at) {
      if (kRetentionRules[at].key == line.key) retention.counts[at] = *number;
    }
  }
  return retention;
}

std::optional<Retention> parseKeep(std::string_view text, std::string& problem) {
  Retention retention;
  retention.days = 0;
  if (text == "none") return retention;
  if (const auto days = numberIn(text)) {
    retention.days = days;
    if (*days >= 1 && *days <= kMostKept) return retention;
    problem = "snapshots can be kept for 1 to " + std::to_string(kMostKept) + " days";
    return std::nullopt;
  }
  for (const std::string_view part : splitAt(text, ',')) {
    if (takeRule(part, retention)) continue;
    problem =
        "'" + std::string(part) +
        "' is no rule, such as 30 (days), none, or daily=7,weekly=4; there are: " + wordsToSay() +
        ", each once and from 1 to " + std::to_string(kMostKept);
    return std::nullopt;
  }
  return retention;
}

Status storeRetention(const Retention& retention) {
  std::vector<std::string_view> keys = {kDaysKey};
  std::vector<ConfigurationLine> lines;
  // Days above 0 stand in the preferences, where the program reads them, too.
  if (retention.days == 0) lines.push_back({std::string(kDaysKey), "0", 0});
  for (std::size_t at = 0; at < kRetentionRules.size(); ++at) {
    keys.push_back(kRetentionRules[at].key);
    if (retention.counts[at] == 0) continue;
    lines.push_back(
        {std::string(kRetentionRules[at].key), std::to_string(retention.counts[at]), 0});
  }
  if (retention == Retention{retention.days, {}} && retention.days != 0 &&
      storedRetention() == Retention{}) {
    return {};  // Nothing is to be written, and nothing stands there.
  }
  if (Status made = makeFolders(kNativePreferenceFolder, 0755); !made) return made;
  return replaceConfigurationLines(kEngineConfigFile, keys, lines);
}

std::string keepText(const Retention& retention, int daysToRetain) {
  const int days = retention.days.value_or(daysToRetain);
  std::string text;
  if (days != 0) text = "for " + std::to_string(days) + (days == 1 ? " day" : " days");
  for (std::size_t at = 0; at < kRetentionRules.size(); ++at) {
    if (retention.counts[at] == 0) continue;
    text.append(text.empty() ? "" : ", ").append(kRetentionRules[at].word);
    text += " " + std::to_string(retention.counts[at]);
  }
  return text.empty() ? "for ever" : text;
}

}  // namespace halyard::hostkit

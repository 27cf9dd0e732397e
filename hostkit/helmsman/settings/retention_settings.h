// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which snapshots the engine keeps: the rules in its configuration file, beside "DaysToRetain" of
// its preferences.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"

namespace halyard::hostkit {

struct RetentionRule {
  std::string_view word;  ///< "daily", as in --keep daily=7.
  std::string_view key;   ///< "keep-daily", as the engine knows it.
};
inline constexpr std::array<RetentionRule, 6> kRetentionRules = {{{"last", "keep-last"},
                                                                  {"hourly", "keep-hourly"},
                                                                  {"daily", "keep-daily"},
                                                                  {"weekly", "keep-weekly"},
                                                                  {"monthly", "keep-monthly"},
                                                                  {"yearly", "keep-yearly"}}};
inline constexpr int kMostKept = 36500;

struct Retention {
  /// What stands before "DaysToRetain", 0 for no such rule; absent when nothing does.
  std::optional<int> days;
  std::array<int, kRetentionRules.size()> counts{};  ///< 0 for no such rule.

  bool operator==(const Retention&) const = default;
  bool hasTiers() const { return counts != decltype(counts){}; }
};

/// As the engine's configuration file has it; values that make no sense are left to the engine.
Retention storedRetention();

/// Of "30" (days), "none", or "days=14,weekly=8,monthly=12"; absent, with the reason, for anything
/// else. Without days among them the rule of days is off.
std::optional<Retention> parseKeep(std::string_view text, std::string& problem);

/// Writes the rules into the engine's configuration file, in place of those that are there.
Status storeRetention(const Retention& retention);

/// "for 30 days", "daily 7, weekly 4", "for ever".
std::string keepText(const Retention& retention, int daysToRetain);

}  // namespace halyard::hostkit

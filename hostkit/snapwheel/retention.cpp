// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/retention.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace halyard::snapwheel {

namespace {

using Period = std::int64_t (*)(Instant);

std::int64_t hourOf(Instant instant) {
  return std::chrono::floor<std::chrono::hours>(instant).time_since_epoch().count();
}

std::int64_t dayOf(Instant instant) {
  return std::chrono::floor<std::chrono::days>(instant).time_since_epoch().count();
}

std::int64_t weekOf(Instant instant) {
  constexpr std::int64_t kThursday = 3;  // The first of January 1970 was one.
  const std::int64_t day = dayOf(instant) + kThursday;
  return day >= 0 ? day / 7 : (day - 6) / 7;
}

std::chrono::year_month_day dateOf(Instant instant) {
  return std::chrono::floor<std::chrono::days>(instant);
}

std::int64_t yearOf(Instant instant) { return static_cast<int>(dateOf(instant).year()); }

std::int64_t monthOf(Instant instant) {
  return yearOf(instant) * 12 + static_cast<unsigned>(dateOf(instant).month());
}

void keep(Verdict& verdict, const char* rule) {
  verdict.keep = true;
  if (!verdict.reason.empty()) verdict.reason += ", ";
  verdict.reason += rule;
}

/// Keeps what is of the last days, counted back from the newest snapshot that is not in the future.
/// A pause that no schedule makes does not count: were the clock a year ahead, the first snapshot
/// of then would take all older ones with it.
void keepDays(std::chrono::days days, const std::vector<Instant>& snapshots, Instant now,
              std::vector<Verdict>& verdicts) {
  constexpr std::chrono::days kLongestPeriod(35);  // Backups once a month, and one a little late.
  const Instant reckonedFrom = std::min(snapshots.back(), now);
  Instant newer = reckonedFrom;
  std::chrono::seconds paused(0);
  for (std::size_t index = snapshots.size(); index-- > 0;) {
    const Instant instant = std::min(snapshots[index], newer);
    const std::chrono::seconds gap = newer - instant;
    if (gap > std::max(days, kLongestPeriod)) paused += gap;
    if (reckonedFrom - instant - paused <= days) keep(verdicts[index], "days");
    newer = instant;
  }
}

/// Keeps the newest snapshot of each of the last `count` periods that have one.
void keepNewestOfEach(Period period, unsigned count, const char* rule,
                      const std::vector<Instant>& snapshots, std::vector<Verdict>& verdicts) {
  std::optional<std::int64_t> latest;
  for (std::size_t index = snapshots.size(); index-- > 0 && count > 0;) {
    const std::int64_t current = period(snapshots[index]);
    if (latest == current) continue;
    latest = current;
    keep(verdicts[index], rule);
    --count;
  }
}

}  // namespace

std::vector<Verdict> judge(const std::vector<Instant>& snapshots, const RetentionRules& rules,
                           Instant now) {
  std::vector<Verdict> verdicts(snapshots.size());
  if (snapshots.empty()) return verdicts;

  keep(verdicts.back(), "latest");
  if (rules.days > 0) keepDays(std::chrono::days(rules.days), snapshots, now, verdicts);
  for (std::size_t index = 0; index < snapshots.size(); ++index) {
    if (!rules.any()) keep(verdicts[index], "no rules");
    if (snapshots.size() - index <= rules.last) keep(verdicts[index], "last");
  }
  keepNewestOfEach(hourOf, rules.hourly, "hourly", snapshots, verdicts);
  keepNewestOfEach(dayOf, rules.daily, "daily", snapshots, verdicts);
  keepNewestOfEach(weekOf, rules.weekly, "weekly", snapshots, verdicts);
  keepNewestOfEach(monthOf, rules.monthly, "monthly", snapshots, verdicts);
  keepNewestOfEach(yearOf, rules.yearly, "yearly", snapshots, verdicts);
  return verdicts;
}

}  // namespace halyard::snapwheel

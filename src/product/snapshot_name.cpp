// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/snapshot_name.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace halyard {

namespace {

// No clock of a host told another one. Every name that follows one of these is a name, too.
constexpr std::chrono::year kFirstYear(1970);
constexpr std::chrono::year kLastYear(9998);
constexpr std::string_view kShape = "dddd-dd-dd-dddddd";

bool hasShape(std::string_view name) {
  if (name.size() != kShape.size()) return false;
  return std::equal(name.begin(), name.end(), kShape.begin(), [](char letter, char shape) {
    return shape == 'd' ? letter >= '0' && letter <= '9' : letter == shape;
  });
}

unsigned number(std::string_view digits) {
  unsigned value = 0;
  for (const char digit : digits) value = value * 10 + static_cast<unsigned>(digit - '0');
  return value;
}

}  // namespace

std::string snapshotName(Instant instant) {
  const auto day = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(instant - day);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u-%02d%02d%02d",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text.data();
}

std::optional<Instant> snapshotInstant(std::string_view name) {
  if (!hasShape(name)) return std::nullopt;
  const std::chrono::year_month_day date(
      std::chrono::year(static_cast<int>(number(name.substr(0, 4)))),
      std::chrono::month(number(name.substr(5, 2))), std::chrono::day(number(name.substr(8, 2))));
  const unsigned hours = number(name.substr(11, 2));
  const unsigned minutes = number(name.substr(13, 2));
  const unsigned seconds = number(name.substr(15, 2));
  const bool isPlausible = date.year() >= kFirstYear && date.year() <= kLastYear;
  if (!date.ok() || !isPlausible || hours > 23 || minutes > 59 || seconds > 59) return std::nullopt;
  return std::chrono::sys_days(date) + std::chrono::hours(hours) + std::chrono::minutes(minutes) +
         std::chrono::seconds(seconds);
}

bool isInProgress(std::string_view name) { return name.ends_with(kInProgress); }

std::string_view completedName(std::string_view name) {
  if (isInProgress(name)) name.remove_suffix(kInProgress.size());
  return name;
}

Instant nextInstant(Instant now, std::optional<Instant> newest) {
  if (!newest || *newest < now) return now;
  return *newest + std::chrono::seconds(1);
}

}  // namespace halyard

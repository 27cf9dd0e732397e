// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/times.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace halyard::hostkit {

namespace {

// Takes the digits where the pattern has a '0' and wants every other character as it stands.
std::optional<std::int64_t> parsePattern(std::string_view text, std::string_view pattern) {
  if (text.size() != pattern.size()) return std::nullopt;
  std::array<int, 14> digits{};
  std::size_t count = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (pattern[index] != '0') {
      if (text[index] != pattern[index]) return std::nullopt;
      continue;
    }
    if (text[index] < '0' || text[index] > '9') return std::nullopt;
    digits[count++] = text[index] - '0';
  }
  const auto two = [&digits](std::size_t at) { return digits[at] * 10 + digits[at + 1]; };
  std::tm parts{};
  parts.tm_year = two(0) * 100 + two(2) - 1900;
  parts.tm_mon = two(4) - 1;
  parts.tm_mday = two(6);
  parts.tm_hour = two(8);
  parts.tm_min = two(10);
  parts.tm_sec = two(12);
  const std::tm wanted = parts;
  const std::time_t seconds = ::timegm(&parts);
  // timegm turns the 31st of February into a day of March; such a text is no date.
  if (parts.tm_mon != wanted.tm_mon || parts.tm_mday != wanted.tm_mday ||
      parts.tm_hour != wanted.tm_hour || parts.tm_min != wanted.tm_min) {
    return std::nullopt;
  }
  return seconds;
}

std::string counted(std::int64_t number, const char* unit) {
  return std::to_string(number) + " " + unit + (number == 1 ? "" : "s") + " ago";
}

}  // namespace

std::int64_t secondsNow() { return std::time(nullptr); }

std::string timeText(std::int64_t seconds) {
  const std::time_t moment = seconds;
  std::tm parts{};
  std::array<char, 40> text{};
  if (::gmtime_r(&moment, &parts) == nullptr) return {};
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

std::optional<std::int64_t> parseTime(std::string_view text) {
  return parsePattern(text, "0000-00-00T00:00:00Z");
}

std::string ageText(std::int64_t seconds) {
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 60 * kMinute;
  constexpr std::int64_t kDay = 24 * kHour;
  if (seconds <= -kMinute) return "in the future";
  if (seconds < kMinute) return "just now";
  if (seconds < kHour) return counted(seconds / kMinute, "minute");
  if (seconds < 2 * kDay) return counted(seconds / kHour, "hour");
  return counted(seconds / kDay, "day");
}

}  // namespace halyard::hostkit

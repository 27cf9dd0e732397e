// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/durations.h"

#include <array>
#include <charconv>

namespace halyard::hostkit {

namespace {

struct Unit {
  std::string_view name;
  std::chrono::seconds length;
};
constexpr std::array<Unit, 3> kUnits = {{{"h", std::chrono::hours(1)},
                                         {"min", std::chrono::minutes(1)},
                                         {"s", std::chrono::seconds(1)}}};
constexpr std::chrono::hours kLongest{24 * 365};

}  // namespace

std::optional<std::chrono::seconds> parseDuration(std::string_view text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || number <= 0 || number > kLongest / std::chrono::seconds(1)) {
    return std::nullopt;
  }
  for (const Unit& unit : kUnits) {
    if (std::string_view(rest, static_cast<std::size_t>(end - rest)) != unit.name) continue;
    const std::chrono::seconds duration = number * unit.length;
    return duration <= kLongest ? std::optional(duration) : std::nullopt;
  }
  return std::nullopt;
}

std::string durationText(std::chrono::seconds duration) {
  for (const Unit& unit : kUnits) {
    if (duration % unit.length != std::chrono::seconds(0)) continue;
    return std::to_string(duration / unit.length) + std::string(unit.name);
  }
  return {};
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Spans of time as people write them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// "4s", "30min" or "2h": a whole number above 0 and its unit, at most a year; absent otherwise.
std::optional<std::chrono::seconds> parseDuration(std::string_view text);

/// The inverse, in the largest unit that keeps the number whole.
std::string durationText(std::chrono::seconds duration);

}  // namespace halyard::hostkit

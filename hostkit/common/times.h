// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Points in time as records keep them and as people read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// Seconds since 1970-01-01 UTC, now.
std::int64_t secondsNow();

/// "2026-11-21T05:53:29Z".
std::string timeText(std::int64_t seconds);
/// The inverse of timeText; absent for anything else.
std::optional<std::int64_t> parseTime(std::string_view text);

/// How long ago, in the largest fitting unit: "just now", "5 minutes ago", "3 hours ago",
/// "12 days ago".
std::string ageText(std::int64_t seconds);

}  // namespace halyard::hostkit

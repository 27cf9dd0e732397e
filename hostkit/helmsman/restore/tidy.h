// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman tidy": removes what restores have set aside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halyard::hostkit {

struct TidyArguments {
  std::string olderThan;  ///< "30d"; empty for all.
  bool dryRun = false;
  bool yes = false;
  bool json = false;
};

/// Seconds of "90s", "10min", "12h", "30d" or "2w"; absent for anything else.
std::optional<std::int64_t> parseAge(std::string_view text);

/// Removes the ".previous" items that the records of restores name and that are still what those
/// set aside; nothing else, and no link is followed on the way. `olderThan` leaves the items of
/// younger restores alone. undo then says that they are gone.
///
/// Returns: success when all of them are gone; kPartial when some are; usage error for an age that
///          is none.
int tidy(const TidyArguments& arguments);

}  // namespace halyard::hostkit

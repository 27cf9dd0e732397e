// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether the clock of this host can be right.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace halyard::hostkit {

/// Points in time that lie behind a clock that is right.
struct KnownPast {
  std::optional<std::int64_t> newestSnapshot;  ///< By its name.
  std::optional<std::int64_t> lastRecord;      ///< When the last backup ended.
  int buildYear = 0;                           ///< Of this program.
};

/// Of this host and its destination, as far as they tell.
KnownPast knownPast();

/// Why the clock that says `now` is wrong; empty when nothing speaks against it. A few minutes are
/// nothing: clocks are set, and a snapshot that follows another within a second is dated ahead.
std::string clockProblem(std::int64_t now, const KnownPast& past);

}  // namespace halyard::hostkit

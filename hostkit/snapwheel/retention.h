// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which snapshots stay and which may go: pure decisions over their instants.
#pragma once

#include <string>
#include <vector>

#include "product/snapshot_name.h"

namespace halyard::snapwheel {

/// What is kept; a snapshot that any rule keeps stays. A rule of 0 keeps nothing of its own.
struct RetentionRules {
  unsigned days = 0;     ///< Everything of the last so many days.
  unsigned last = 0;     ///< The newest so many.
  unsigned hourly = 0;   ///< The newest of each of the last so many hours that have a snapshot.
  unsigned daily = 0;    ///< The same for days,
  unsigned weekly = 0;   ///< for weeks from Monday on,
  unsigned monthly = 0;  ///< for months,
  unsigned yearly = 0;   ///< and for years.

  bool operator==(const RetentionRules&) const = default;
  /// Whether there is a rule at all; without one everything stays.
  bool any() const { return *this != RetentionRules{}; }
};

/// The verdict on one snapshot.
struct Verdict {
  bool keep = false;
  std::string reason;  ///< The rules that keep it, as "daily, weekly"; empty when none does.
};

/// Judges complete snapshots, given in ascending order; the answer has the same order.
///
/// The newest one always stays. Days are counted back from the newest snapshot, and never from a
/// time after `now`; a pause of more than those days and 35 days counts as none. Neither a host
/// that stopped taking snapshots nor a clock that runs ahead, or did once, makes the older ones go.
std::vector<Verdict> judge(const std::vector<Instant>& snapshots, const RetentionRules& rules,
                           Instant now);

}  // namespace halyard::snapwheel

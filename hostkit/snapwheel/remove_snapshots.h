// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Removes snapshots: named ones, and those that no retention rule keeps.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/snapshot_pin.h"
#include "snapwheel/repository.h"
#include "snapwheel/retention.h"

namespace halyard::snapwheel {

/// The reason to keep what the rules would let go.
inline constexpr char kNewestIsNotGood[] = "newest is not good";
inline constexpr char kPinned[] = "pinned";
inline constexpr char kNewestGood[] = "newest without torn files";

/// Makes "Latest" lead to the newest complete snapshot other than `without`, or removes it when
/// there is none. Nothing is written when it does so already. Needs SnapshotLock. Throws Failure.
///
/// Returns: the name of that snapshot; empty when there is none.
std::string settleLatest(const Repository& repository, const std::string& without = "");

/// Removes complete snapshots by name, and moves "Latest" to the newest that stays. Each is first
/// renamed to one in progress, so that a half-removed one never passes for a good one. Names of
/// snapshots in progress are taken too. Needs SnapshotLock. Throws Failure at the first one that
/// cannot be removed. `gone` is told of each that is removed whole, and from the disk: to wait for
/// that is most of the work, so it is done for a group of them.
void removeSnapshots(const Repository& repository, const std::vector<std::string>& names,
                     const std::function<void(const std::string& name)>& gone = {});

/// One line of a prune plan.
struct PlannedRemoval {
  std::string name;
  Verdict verdict;
  std::optional<hostkit::Pin> pin;
};

/// Judges every complete snapshot of the host, oldest first. Nothing is to go unless the newest
/// snapshot is a good one: nothing was left out of it, and the backup of the services that it
/// carries is whole. A pinned snapshot stays in any case. When files changed while it was read, the
/// newest one of which that is not true stays, too.
std::vector<PlannedRemoval> planPrune(const Repository& repository, const RetentionRules& rules);

}  // namespace halyard::snapwheel

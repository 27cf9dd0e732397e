// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Takes one snapshot of this host.
#pragma once

#include <string>
#include <vector>

#include "common/exclusions.h"
#include "snapwheel/manifest.h"
#include "snapwheel/repository.h"
#include "snapwheel/snapshot_lock.h"

namespace halyard::snapwheel {

using hostkit::Exclusions;

struct SnapshotRequest {
  std::string source = "/";       ///< The root of the host, and of its first volume.
  std::string volume = "System";  ///< The name of that one's folder in the snapshot.
  /// Where others are mounted, as the source's own root has it: "/srv".
  std::vector<std::string> furtherVolumes;
  Exclusions exclusions;
  std::string machineLock = SnapshotLock::defaultMachineLock();
};

struct SnapshotOutcome {
  std::string name;
  Manifest manifest;
};

/// Builds the snapshot beside the others, syncs it, gives it its name and moves "Latest" to it.
///
/// Items that could not be read, and further volumes that are not mounted, are left out, told on
/// standard error and counted in the manifest; one that vanished during the walk is not counted,
/// because a later walk would not have seen it. Throws Failure, with the earlier snapshots
/// untouched, when another snapshot is being made, the source or the repository cannot be used, or
/// the destination is full, read-only or gone.
SnapshotOutcome takeSnapshot(const Repository& repository, const SnapshotRequest& request);

}  // namespace halyard::snapwheel

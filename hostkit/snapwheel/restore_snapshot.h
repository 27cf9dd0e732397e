// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Puts the volume of a snapshot onto a folder, usually the root of a new file system.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "snapwheel/restore_flags.h"
#include "snapwheel/restore_lack.h"

namespace halyard::snapwheel {

struct RestoreRequest {
  std::string snapshotPath;
  std::string volume;  ///< The folder of one volume in the snapshot; empty for all.
  std::string target;
  std::vector<std::string> paths;  ///< Absolute, as on the host; none for all of the volume.
  bool force = false;              ///< Also onto the running system or a folder that is not empty.
  bool mapOwners = false;          ///< Owners get the numbers that their names have on this host.
  bool dryRun = false;             ///< Nothing is written: the outcome says what would be.
  /// What the target cannot hold of owners, permissions and other attributes is counted, not named
  /// item by item.
  bool withoutAttributes = false;
};

/// Items that are there without some of what they had.
struct LostCounts {
  std::uint64_t items = 0;
  std::uint64_t owners = 0;
  std::uint64_t permissions = 0;
  std::uint64_t extended = 0;
};

struct RestoreOutcome {
  std::string volume;  ///< The folder of the only one; empty for several.
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
  std::uint64_t failed = 0;      ///< Each was told on standard error.
  std::uint64_t replaced = 0;    ///< Items that are in the way; of a dry run alone.
  std::vector<NotHeld> notHeld;  ///< Each was told, too.
  LackReport lack;               ///< All of it was told, too.
  LostCounts lost;
  FlagReport flags;  ///< What is lacking was told, too.
};

/// Makes the target when only its last folder is missing. What the snapshot holds replaces what
/// stands there; other items stay. Everything is on disk at the end.
///
/// All volumes go to their mount points below the target, one that is named alone onto the target
/// itself. With paths, what stands at them is restored, and the folders above them are made with
/// the attributes that they had; those that are there already keep theirs. A folder comes with the
/// volumes that were mounted in it. What is of another volume than "/" goes below its mount point
/// in the target.
///
/// Throws Failure when the snapshot holds no such volume, or none of the paths; when the target is
/// the root of the running system, or a folder that holds anything but "lost+found", and `force` is
/// not set; and always when it lies in a repository or above the snapshot.
RestoreOutcome restoreSnapshot(const RestoreRequest& request);

}  // namespace halyard::snapwheel

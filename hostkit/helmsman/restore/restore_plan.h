// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a restore of one service will do, file by file, and what it did.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "helmsman/run/restore_record.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// One listed file or folder.
struct PlannedItem {
  std::string path;
  bool configuration = false;  ///< Halyard moves these aside; the plug-in puts the saved ones back.
  bool inSnapshot = false;     ///< Otherwise it stays as it is.
  bool live = false;           ///< Something stands at the path now.
  bool previous = false;       ///< An older ".previous" stands there, and will be removed.
  std::uint64_t bytes = 0;     ///< In the snapshot.
  ItemIdentity before;         ///< Of the live item, to see whether it was replaced.
};

/// The plan for the descriptors that the restore acts on, in their order.
std::vector<PlannedItem> planRestore(const std::vector<InstalledDescriptor>& descriptors,
                                     const Snapshot& snapshot);

/// The volumes that have too little room for what comes from the snapshot, one sentence each.
std::vector<std::string> roomProblems(const std::vector<PlannedItem>& plan);

/// What went wrong, judged by what stands at the paths now; none when all is well.
std::vector<std::string> restoreProblems(const std::vector<PlannedItem>& plan);

}  // namespace halyard::hostkit

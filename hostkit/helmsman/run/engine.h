// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a backup asks of the snapshot engine, a program of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/process/task.h"

namespace halyard::hostkit {

/// Runs the engine with these words, as the backup watches over everything that it starts.
using RunEngine = std::function<host::TaskResult(const std::vector<std::string>& words)>;

struct EngineSnapshot {
  std::string path;                   ///< Empty when there is none.
  std::vector<std::string> problems;  ///< None when it is there and complete.
  std::vector<std::string> remarks;   ///< What the engine said of one that is, a line each.
  bool isOnlyTorn = false;            ///< It lacks nothing, but files changed while they were read.
  bool hasReference = false;          ///< Only what changed since another one was copied.
  std::uint64_t copiedBytes = 0;
};

/// Takes a snapshot of "/" and of what is mounted at these further places, without the items of
/// those paths. One whose path holds a letter that means
/// something in a pattern stays in the snapshot.
EngineSnapshot takeSnapshot(const RunEngine& runEngine,
                            const std::vector<std::string>& furtherVolumes,
                            const std::vector<std::string>& leftOut);

/// The names of the snapshots that no retention rule keeps; none when the engine does not tell.
std::vector<std::string> snapshotsToPrune(const RunEngine& runEngine);

/// Removes them. The engine's reason when it could not, else empty.
std::string pruneSnapshots(const RunEngine& runEngine);

}  // namespace halyard::hostkit

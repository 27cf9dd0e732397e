// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether a backup has room, asked before anything is written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "helmsman/run/run_record.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// What is known of the needs and of the room, in bytes.
struct RoomFigures {
  std::string destination;
  std::optional<std::uint64_t> services;  ///< What they say, or what they list when that is more.
  std::optional<std::uint64_t> volume;    ///< What the snapshot copies of the volume itself.
  bool volumeIsMeasured = false;  ///< The first snapshot copies all of it; else an estimate.
  std::uint64_t freeOnRoot = 0;
  std::uint64_t freeOnDestination = 0;
  bool sameVolume = false;  ///< The destination lies on the volume that is backed up.
  bool takesSnapshot = true;
};

struct RoomVerdict {
  std::vector<std::string> refusals;  ///< The backup cannot be whole.
  std::vector<std::string> warnings;  ///< It may not have room: by an estimate.
  bool destinationIsShort = false;    ///< Less in the repository would help.
};

/// The services' data is written to "/" by Halyard and to the destination by the engine, which
/// copies the volume too; on one volume all of it adds up.
RoomVerdict judgeRoom(const RoomFigures& figures);

struct RoomQuestion {
  std::string destination;
  std::uint64_t estimateBytes = 0;  ///< What the services say; 0 when they were not asked.
  bool isFirst = false;             ///< There is no snapshot yet.
  bool takesSnapshot = true;
  std::vector<std::string> furtherVolumes;  ///< Mount points that the snapshot holds beside "/".
};

/// Measures what judgeRoom wants to know. Walks the whole volume for a first snapshot.
RoomFigures measureRoom(const RoomQuestion& question);

/// Asks again for the free room, after some was made.
void measureFree(RoomFigures& figures);

/// What a first snapshot copies of a volume: the room that everything on its file system takes,
/// also what a mount hides, without "/.Halyards", what the engine's exclusions leave out, and the
/// repository.
std::uint64_t bytesOfVolume(const std::string& mountPoint, const std::string& repository);

/// Of every file that a service which is backed up lists.
std::uint64_t bytesOfListedFiles();

/// Whether a folder lies on the volume that is backed up.
bool isOnRootVolume(const std::string& folder);

/// Whether snapshots may go before the next backup: a newer one than all of them is of a good run.
bool mayMakeRoom(const std::vector<std::string>& removable, const std::vector<Snapshot>& snapshots,
                 const std::optional<RunRecord>& last);

/// Why nothing can be written to the destination; absent when something can. Leaves nothing behind.
std::optional<std::string> writeProblem(const std::string& destination);

}  // namespace halyard::hostkit

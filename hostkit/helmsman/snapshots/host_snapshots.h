// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// This host's snapshots in the repository, as the program's commands see them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/snapshot_pin.h"

namespace halyard::hostkit {

/// A service that a snapshot holds in part.
struct IncompleteService {
  std::string name;
  std::vector<std::string> reasons;  ///< One sentence each, never none.
};

struct Snapshot {
  std::string name;
  std::string path;
  bool inProgress = false;            ///< Its name ends in ".inProgress".
  bool isLatest = false;              ///< What the link "Latest" leads to.
  std::optional<Pin> pin;             ///< It stays whatever the rules say.
  std::string metadataFolder;         ///< <path>/<volume>/.Halyards; empty without one.
  bool hasSignature = false;          ///< The mark of a backup of the services: it can be purged.
  std::vector<std::string> services;  ///< Those that it holds whole, by their folders.
  std::vector<std::string> absent;    ///< Services that were not on this host: no data of theirs.
  std::vector<IncompleteService> incomplete;  ///< Those that it holds in part.

  bool holdsWhole(const std::string& service) const;
  /// Absent for a service that is whole or not there at all.
  const IncompleteService* partOf(const std::string& service) const;
};

/// Where automatic backups go, and whether that can be looked at.
struct Destination {
  enum class State { notSet, notThere, there };
  State state = State::notSet;
  std::string path;     ///< Of one that is there.
  std::string problem;  ///< Of one that is not, with what to do.
};
Destination currentDestination();

/// The path alone; absent, with the reason, without a destination that resolves.
std::optional<std::string> backupDestination(std::string& problem);

/// When the snapshot was begun, in seconds since 1970; absent for a name that the engine does not
/// give.
std::optional<std::int64_t> beginOf(const Snapshot& snapshot);

/// The folder of this host's snapshots at a destination.
std::string snapshotFolder(const std::string& destination);

/// Marks a service of a metadata folder as one that was not on this host. False when it failed.
bool markAbsent(const std::string& metadataFolder, const std::string& service);

/// The snapshot at a path: what is in it is read now. A service counts as held when its folder is
/// there without a mark and the folder of the backup is signed: its run came to its end. (Backups
/// older than the marks have none.)
Snapshot readSnapshot(const std::string& path);

/// The services of a metadata folder that lies in no snapshot, as a snapshot without name and path.
Snapshot readMetadataFolder(const std::string& folder);

/// In ascending order of name, oldest first. "Latest" itself is none, nor is a folder that neither
/// has the name of a snapshot nor carries a backup.
std::vector<Snapshot> snapshotsIn(const std::string& folder);

/// Finds the snapshot that an administrator typed: "latest" or nothing for the newest complete one
/// by the engine's names, a path, a name, or the beginning of exactly one name. Absent with the
/// reason otherwise.
std::optional<Snapshot> findSnapshot(const std::vector<Snapshot>& snapshots, std::string_view typed,
                                     std::string& problem);

/// The newest complete snapshot that holds all of these services whole; none when there is none.
const Snapshot* newestWhole(const std::vector<Snapshot>& snapshots,
                            const std::vector<std::string>& services);

/// This host's snapshots at its destination, oldest first; absent, with the reason, without one.
std::optional<std::vector<Snapshot>> hostSnapshots(std::string& problem);

/// As chooseSnapshot, for a look at one service: nothing typed, or "latest", is the newest that
/// holds it whole, else the newest that holds a part of it. Absent, with the reason, when the
/// snapshot has nothing of it.
std::optional<Snapshot> chooseSnapshotOf(const std::string& service, std::string_view typed,
                                         std::string& problem);

/// "postHost is incomplete in 2026-11-20-020000: no room; ...".
std::string incompleteText(const IncompleteService& service, const Snapshot& snapshot);

/// The destination's snapshots searched by findSnapshot, from preferences to answer.
std::optional<Snapshot> chooseSnapshot(std::string_view typed, std::string& problem);

}  // namespace halyard::hostkit

// This host's snapshots in the repository, as the program's commands see them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

struct Snapshot {
  std::string name;
  std::string path;
  bool inProgress = false;            ///< Its name ends in ".inProgress".
  bool isLatest = false;              ///< What the link "Latest" leads to.
  std::string metadataFolder;         ///< <path>/<volume>/.Halyards; empty without one.
  bool hasSignature = false;          ///< The mark of a backup of the services: it can be purged.
  std::vector<std::string> services;  ///< Folders of the metadata folder.
  std::vector<std::string> absent;    ///< Services that were not on this host: no data of theirs.
};

/// Where automatic backups go; absent, with the reason, without a destination that resolves.
std::optional<std::string> backupDestination(std::string& problem);

/// When the snapshot was begun, in seconds since 1970; absent for a name that the engine does not
/// give.
std::optional<std::int64_t> beginOf(const Snapshot& snapshot);

/// The folder of this host's snapshots at a destination.
std::string snapshotFolder(const std::string& destination);

/// Marks a service of a metadata folder as one that was not on this host. False when it failed.
bool markAbsent(const std::string& metadataFolder, const std::string& service);

/// The snapshot at a path: what is in it is read now.
Snapshot readSnapshot(const std::string& path);

/// In ascending order of name, oldest first; "Latest" itself is none.
std::vector<Snapshot> snapshotsIn(const std::string& folder);

/// Finds the snapshot that an administrator typed: "latest" or nothing for the newest complete one,
/// a path, a name, or the beginning of exactly one name. Absent with the reason otherwise.
std::optional<Snapshot> findSnapshot(const std::vector<Snapshot>& snapshots, std::string_view typed,
                                     std::string& problem);

/// The destination's snapshots searched by findSnapshot, from preferences to answer.
std::optional<Snapshot> chooseSnapshot(std::string_view typed, std::string& problem);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether the files of the snapshots hold what was put there, by the digests of their indexes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/result.h"
#include "snapwheel/repository.h"
#include "snapwheel/snapshot_volumes.h"

namespace halyard::snapwheel {

/// Part `number` of `count`: every file belongs to one of them, to the same one each time.
struct VerifyPart {
  std::uint64_t number = 1;
  std::uint64_t count = 1;
};

struct DamagedFile {
  std::string path;                    ///< Relative to the root of the host.
  std::string reason;                  ///< "does not hold what was put there".
  std::vector<std::string> snapshots;  ///< The names of those that share it, oldest first.
};

/// A volume of a snapshot.
struct VolumeOfSnapshot {
  std::string snapshot;  ///< Its name.
  SnapshotVolume volume;
};

struct VerifyReport {
  std::uint64_t files = 0;      ///< That were read, each once however many snapshots share it.
  std::uint64_t bytesRead = 0;  ///< Of their contents.
  std::uint64_t unproven = 0;   ///< Files that no digest is known of.
  std::vector<VolumeOfSnapshot> withoutDigests;     ///< Those that have no index, or one of none.
  std::vector<VolumeOfSnapshot> damagedIndexes;     ///< Those whose index cannot be used.
  std::vector<VolumeOfSnapshot> unreadableRecords;  ///< Those whose record of damage was none.
  std::vector<DamagedFile> damaged;
  std::vector<Error> unrecorded;  ///< Why the damage of a snapshot could not be kept.
};

/// Reads the files of the part and keeps in each snapshot which of its files are damaged, so that
/// none is the basis of a later one. What a snapshot that is removed meanwhile held does not count.
VerifyReport verifyContents(const Repository& repository, const std::vector<std::string>& snapshots,
                            const VerifyPart& part);

}  // namespace halyard::snapwheel

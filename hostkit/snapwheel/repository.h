// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The layout of a repository, and what of it belongs to one host:
//
//   <destination>/Archives.snapdb/<computer name>/
//     2026-11-21-055330/            a complete snapshot
//       System/...                  the volume at "/", as it was
//       srv/...                     a further one, called after its mount point
//       .snapwheel/                 what the engine knows about the snapshot
//     2026-11-22-020000.inProgress  one that is being made or removed, or was interrupted
//     Latest -> 2026-11-21-055330
//     .lock                         held while a snapshot is made or removed
//     .machine-id                   whose folder it is, as helmsman recorded it
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "common/record_file.h"
#include "host/files/descriptor.h"
#include "product/snapshot_name.h"

namespace halyard::snapwheel {

using hostkit::kRecordFolder;
inline constexpr std::string_view kLockFile = ".lock";

/// Names found in a host's folder, each list in ascending order.
struct HostFolderListing {
  std::vector<std::string> snapshots;   ///< Complete ones.
  std::vector<std::string> inProgress;  ///< Names that end in kInProgress, whatever stands before.
  std::vector<std::string> foreign;     ///< Anything that the engine did not make.
};

/// Sorts the names of a host's folder; the link, the lock file and the record of the
/// machine are in no list.
HostFolderListing sortNames(const std::vector<std::string>& names);

/// One host's part of a repository.
class Repository {
 public:
  Repository(std::string destination, std::string computerName);

  const std::string& destination() const { return destination_; }
  const std::string& computerName() const { return computerName_; }
  /// <destination>/Archives.snapdb, and the host's folder in it.
  std::string folder() const;
  const std::string& hostFolder() const { return hostFolder_; }
  std::string path(std::string_view name) const;

  /// Makes both folders where they are missing, the outer one with 0775 as the backup program
  /// does, the host's with 0750. Throws Failure, also when one of them is a link, or can be changed
  /// by others than root: nothing is made in such a place.
  void create() const;

  /// The host's folder, opened, following no link below the destination. Throws Failure.
  host::Descriptor open() const;

  /// Empty where there is no such folder yet. Throws Failure when it cannot be listed: no snapshot
  /// must seem to be missing that is there.
  HostFolderListing list() const;

  /// The complete snapshot that a user's word means: its path, or what chooseName takes. Throws
  /// Failure when there is none.
  std::string find(const std::string& word) const;

  /// Where the link points; absent when there is no link.
  std::optional<std::string> latest() const;
  /// Moves the link to this snapshot, or removes it when the name is empty; at every instant there
  /// is the old link or the new one. The link, and every name that was given or taken in the
  /// host's folder before, is on disk when this is done.
  Status setLatest(const std::string& name) const;

  /// The computer names with a folder in the repository, in ascending order.
  std::vector<std::string> computers() const;

 private:
  std::string destination_;
  std::string computerName_;
  std::string hostFolder_;
};

/// The name of the first volume's folder in the snapshot; empty when there is none.
std::string volumeFolder(const std::string& snapshotPath);

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The volumes in a snapshot, and where the engine keeps what it knows of each:
//
//   <snapshot>/System/...                      what was at "/"
//   <snapshot>/var-lib-mysql/...               what was at "/var/lib/mysql"
//   <snapshot>/.snapwheel/index, ...           about the first volume, as before there were others
//   <snapshot>/.snapwheel/volumes/<folder>/    about each further one
#pragma once

#include <string>
#include <vector>

#include "common/record_file.h"

namespace halyard::snapwheel {

using hostkit::RecordPlace;

struct SnapshotVolume {
  std::string folder;      ///< Its name in the snapshot: never a link, or a path.
  std::string mountPoint;  ///< Where it belongs: "/", or a plain mount point as in volume_names.h.
  bool isThere = false;    ///< The folder is there, and a real one.

  bool isRoot() const { return mountPoint == "/"; }
  std::string path(const std::string& snapshotPath) const;
  /// Of its records: the index, the owners' names, what is damaged.
  RecordPlace records(const std::string& snapshotPath) const;
  /// The path of an item on the host without the "/" before it, by its path in the volume.
  std::string hostPath(const std::string& pathInVolume) const;
};

/// The volumes that a snapshot is to hold, the one at "/" first, each after those that it is
/// mounted in. By its manifest; where there is none that can be used, by its folders and by what
/// its record folder has of further volumes. A snapshot is untrusted: whatever it holds, no two
/// volumes have one folder or one mount point. Empty when it holds none.
std::vector<SnapshotVolume> volumesOf(const std::string& snapshotPath);

}  // namespace halyard::snapwheel

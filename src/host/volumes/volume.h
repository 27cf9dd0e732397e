// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The mounted volumes of this host, and what identifies them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"

namespace halyard::host {

struct Volume {
  /// What the identifier was made from.
  enum class Identity {
    fileSystem,  ///< The file system's own UUID.
    rootFolder,  ///< The volume's root folder: no UUID, or "/" is a folder of a bigger volume.
  };

  std::string mountPoint;    ///< As this process sees it.
  std::string device;        ///< "/dev/sda1", "server:/export"; empty when it cannot be known.
  std::string type;          ///< "ext4", "tmpfs"; empty when it cannot be known.
  std::string root;          ///< Its folder that is mounted, "/" for all; empty when it is unknown.
  std::uint64_t number = 0;  ///< The device number of its items, the same wherever it is mounted.
  std::string label;         ///< Empty without one.
  std::string uuid;          ///< Never empty, in lower case as the file system's tools show it.
  Identity identity = Identity::fileSystem;
  bool readOnly = false;
  std::uint64_t totalBytes = 0;
  std::uint64_t freeBytes = 0;       ///< For root.
  std::uint64_t availableBytes = 0;  ///< For everybody else.
};

/// The volume that holds `path`; an error when the path cannot be reached.
///
/// The identifier is the one of libblkid, or else the one that the kernel tells of the mounted file
/// system. Where there is none (tmpfs, overlay), and where "/" is a plain folder of a bigger volume
/// (chroot, container), it is derived from the root folder's inode, birth time and file system: the
/// same at every call, another one for every other root, even a copy of this one. Nothing is
/// stored, so no copy can carry it along.
Result<Volume> volumeOf(const std::string& path);

/// The mounted volumes that hold files: those on block devices, network file systems, tmpfs and
/// overlay roots; no kernel interfaces. In the order they were mounted, each mount point once. "/"
/// is all that is known where the kernel's table cannot be read.
std::vector<Volume> mountedVolumes();

/// The identifier for a root folder that has no better one; pure, so that tests can pin it.
std::string folderIdentifier(std::uint64_t fileSystemType, std::uint64_t fileSystemId,
                             std::uint64_t inode, std::int64_t birthSeconds,
                             std::uint32_t birthNanoseconds);

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What is mounted on this host, by the kernel's table, and what /etc/fstab wants mounted.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"

namespace halyard::host {

/// A row of the kernel's table. A text that the kernel does not tell is empty.
struct Mount {
  std::uint64_t identifier = 0;  ///< As statx(2) has it of the items that lie there.
  dev_t number = 0;              ///< The device number of its items.
  std::string mountPoint;        ///< As this process sees it.
  std::string device;            ///< "/dev/sda1", "server:/export", "tmpfs".
  std::string type;              ///< "ext4", "tmpfs".
  std::string root;              ///< Its folder that is mounted, "/" for all of it.
  bool isReadOnly = false;
  bool isNetwork = false;
  bool isPseudo =
      false;  ///< Neither on a device nor on the network: memory, the kernel's interfaces.
};

/// What is mounted, the oldest first; absent where the table cannot be read, as in a root without
/// /proc.
std::optional<std::vector<Mount>> mounts();

/// Where file systems on this host's own block devices are mounted to be written; none where the
/// table cannot be read.
std::vector<std::string> writableLocalVolumes();

/// What statx(2) says of the item that the path leads to, its mount included. Triggers an
/// automount.
Result<struct statx> mountStatusOf(const std::string& path, unsigned wanted = STATX_TYPE);

/// Whether a volume is mounted at the path; "/" always counts as one. Triggers an automount.
bool isMountPoint(const std::string& path);

inline constexpr const char* kFstab = "/etc/fstab";

/// A row of /etc/fstab.
struct ListedMount {
  std::string source;      ///< "/dev/sda1", "UUID=..." as it stands there.
  std::string mountPoint;  ///< A path without doubled and ending slashes, "." and ".."; or "none".
  std::string type;        ///< "ext4", "swap"; "auto" where the table leaves it open.
  bool isAutomatic = false;  ///< Mounted at every start: not "noauto".
};

/// The rows of /etc/fstab; none when it cannot be read.
std::vector<ListedMount> listedMounts();

/// The mount points in fstab that the path names or lies below, outermost first, without "/".
/// Compared as text without doubled slashes, "." and ".."; reads nothing but fstab.
std::vector<std::string> listedMountPoints(const std::string& path);

}  // namespace halyard::host

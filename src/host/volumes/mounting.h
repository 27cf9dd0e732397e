// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Where a volume is mounted, by what names it, and mounting what fstab lists.
#pragma once

#include <optional>
#include <string>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::host {

/// What names a volume whatever its device is called today.
struct VolumeTag {
  std::string name;  ///< UUID, LABEL, PARTUUID or PARTLABEL.
  std::string value;
};

/// Where the volume is mounted now: a mount of all of it before one of a part, the oldest first,
/// and none that another mount hides. Absent when it is not mounted.
std::optional<std::string> mountPointOf(const VolumeTag& tag);

/// Where fstab wants the volume, whichever of its names fstab uses; absent when it is not listed.
std::optional<std::string> listedMountPointOf(const VolumeTag& tag);

/// Mounts the volume that fstab lists for the mount point. A helper that wants to ask something
/// finds no terminal, no input, and fails. True when something is mounted there afterwards.
bool mountListed(const std::string& mountPoint);

/// A folder as its own volume holds it: what is mounted below it, or on top of parts of it, is not
/// in the way, be it for this process alone. For the calls that are relative to a descriptor. Takes
/// the right to mount (EPERM) and a kernel that knows how (ENOSYS).
Result<Descriptor> openWithoutMounts(const std::string& path);
/// The same for a folder that is held open.
Result<Descriptor> openWithoutMounts(int folder);

}  // namespace halyard::host

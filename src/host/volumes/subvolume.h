// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Subvolumes of btrfs: folders that are made, copied and removed at once instead of file by file.
//
// A subvolume is a name in an open folder, so that no path is walked twice. No call follows a link
// that stands under the name, and what a mount covers is no subvolume. On other file systems
// nothing is one.
#pragma once

#include <string>
#include <vector>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::host {

/// Whether the open folder lies on btrfs.
bool isOnBtrfs(int folder);

/// Whether the open folder is the root of a subvolume.
bool isSubvolumeRoot(int folder);

bool isSubvolume(int folder, const std::string& name);

/// Makes an empty one, with the mode that the umask leaves.
Status createSubvolume(int folder, const std::string& name);

/// Makes `name` a writable copy of the subvolume `source` in the same folder, which shares all data
/// with it. Subvolumes in the source are empty folders in the copy.
Status copySubvolume(int folder, const std::string& source, const std::string& name);

/// The same with a source that is held open, anywhere on the same file system.
Status copySubvolume(int source, int folder, const std::string& name);

/// The paths in the open subvolume of those that lie in it, at any depth but in no other one.
Result<std::vector<std::string>> subvolumesIn(int subvolume);

/// Opens a folder below another one: through no link, and not what is mounted on the way.
Descriptor openInVolume(int folder, const std::string& path);

/// A read-only subvolume keeps even root from changing what is in it.
Status setSubvolumeReadOnly(int folder, const std::string& name, bool readOnly);

/// Removes the item with everything in it: subvolumes at once, read-only ones too, the rest item by
/// item, entering no other mount. Done after all of it is gone, otherwise the error of what stays.
Status removeWithSubvolumes(int folder, const std::string& name);

/// The same in a folder by its path, whose last component is no link.
Status removeWithSubvolumes(const std::string& folder, const std::string& name);

}  // namespace halyard::host

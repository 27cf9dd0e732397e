// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Subvolumes of a btrfs destination, and what stands in for them elsewhere.
#pragma once

#include <string>

#include "base/result.h"

namespace halyard::snapwheel {

/// Whether the folder lies on btrfs.
bool isOnBtrfs(const std::string& path);

/// Whether the path itself is a subvolume; a link to one is not.
bool isSubvolume(const std::string& path);

/// A fresh subvolume has mode 0755 less the umask.
Status createSubvolume(const std::string& path);

/// Makes `path` a writable snapshot of a subvolume.
Status snapshotSubvolume(const std::string& source, const std::string& path);

/// A subvolume that is read-only keeps even root from changing a snapshot by mistake.
Status setReadOnly(const std::string& path, bool readOnly);

/// Removes a snapshot folder, finished or not, with everything in it: a subvolume at once, a folder
/// item by item. The error is that of the first item that stays.
Status removeSnapshotFolder(const std::string& path);

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Alias records: how a preference names the volume that receives backups.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halyard::host {

/// Resolves an fstab-style source specification (an absolute path, or UUID=, LABEL=, PARTUUID=,
/// PARTLABEL=; trailing NULs are dropped) to the path of a mounted volume, mounting what fstab
/// lists and is not mounted, without user interaction.
///
/// A tag resolves to the mount point of its device, wherever that is mounted now. An absolute path
/// resolves to itself when it is an existing directory, or a link that leads to one once what fstab
/// lists on the way is mounted. Absent: anything else, an unknown device, and a path that fstab
/// lists and that cannot be mounted (so that no backup fills the system disk under an empty mount
/// point).
std::optional<std::string> resolveAlias(std::string_view record);

}  // namespace halyard::host

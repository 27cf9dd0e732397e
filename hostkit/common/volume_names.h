// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How the folders of a snapshot are called: one a volume, by the volume's mount point.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// Of the volume at "/".
inline constexpr std::string_view kRootVolumeFolder = "System";

/// Whether the text is "/", or an absolute path without empty names, "." and "..", and without a
/// "/" at its end.
bool isPlainMountPoint(std::string_view path);

/// The name of a volume's folder: "System" for "/", "srv" for "/srv", "var-lib-mysql" for
/// "/var/lib/mysql". As systemd escapes paths: a "/" is a "-", and all but letters, digits, ":",
/// "_" and inner "." is "\x" with two digits. Two mount points never have one name.
///
/// REQUIRES: a plain mount point.
std::string volumeFolderName(std::string_view mountPoint);

/// The way back; absent for a name that no mount point has.
std::optional<std::string> mountPointOfFolder(std::string_view folder);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The metadata folder "/.Halyards" as a whole: made for a snapshot, removed after it.
#pragma once

#include <cstdint>
#include <string>

namespace halyard {

/// Removes the metadata folder from the live system, once the snapshot that carries it is taken.
/// A plain file of that name stays; a failure is ignored.
void PostBackupComplete();

/// Whether the volume that the backup came from is known to be another than the booted one.
///
/// Reads:   "VolumeUUID" in the folder's "ServerSourceDiskInfo.plist".
/// Runs:    the volume tool with "info" "-plist" "/".
/// Writes:  its answer to "/tmp/ServerSourceDiskInfo.plist", where it stays.
/// Returns: 1 only when both identifiers are there and differ; else 0.
std::int32_t isBootedSystemsUUIDDiffentThanSource();

/// Mirrors the folders of `src` below `dest` and clears what an earlier copy of `src` left there.
/// Returns: `dest` followed by `src` with a trailing "/".
std::string prepPaths(const std::string& src, const std::string& dest);

/// Removes a metadata folder, its signature first: a signature never stands on a folder that is
/// only partly there. A link is removed itself, not what it leads to.
bool removeMetadataFolder(const std::string& path);

}  // namespace halyard

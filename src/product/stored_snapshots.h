// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The snapshots that the engine has made, without a call of it: where they lie, which path is one,
// and the deletion of one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/text.h"

namespace halyard {

/// Where the snapshots lie.
struct BackupSession {
  std::string destination;  ///< Path of the backup volume; snapshots are below its Archives.snapdb.
};

/// The session that the engine's preference file describes; absent when the file is missing or its
/// BackupAlias does not resolve.
std::optional<BackupSession> defaultBackupSession(const std::string& enginePreferenceFile);

inline constexpr std::int32_t kNotASnapshot = -50;

/// The folder of one host's snapshots at a destination; "(null)" stands for an absent one.
std::string hostSnapshotFolder(const MaybeString& destination, const std::string& computer);

/// Whether the path is a snapshot of the session's repository: its real path is
/// <real destination>/Archives.snapdb/<host folder>/<name>, exactly that deep, a real directory and
/// no symbolic link. One in progress (<name>.inProgress) is none yet, whatever path leads there.
bool isSnapshot(const BackupSession& session, const std::string& path);

/// Deletes one snapshot with everything in it, following no link and entering no other mount.
/// 0 after the whole tree is gone, on disk too; kNotASnapshot; otherwise a positive errno value.
std::int32_t DeleteSnapshot(const BackupSession& session, const std::string& path);

}  // namespace halyard

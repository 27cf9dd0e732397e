// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Puts the volume of a snapshot onto a folder, usually the root of a new file system.
#pragma once

#include <cstdint>
#include <string>

#include "snapwheel/restore_flags.h"

namespace halyard::snapwheel {

struct RestoreRequest {
  std::string snapshotPath;
  std::string volume;  ///< The volume's folder in the snapshot; empty for the only one.
  std::string target;
  bool force = false;      ///< Also onto the running system or a folder that is not empty.
  bool mapOwners = false;  ///< Owners get the numbers that their names have on this host.
};

struct RestoreOutcome {
  std::string volume;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
  std::uint64_t failed = 0;  ///< Each was told on standard error.
  FlagReport flags;          ///< What is lacking was told, too.
};

/// Makes the target when only its last folder is missing. What the snapshot holds replaces what
/// stands there; other items stay. Everything is on disk at the end.
///
/// Throws Failure when the snapshot holds no such volume; when the target is the root of the
/// running system, or a folder that holds anything but "lost+found", and `force` is not set; and
/// always when it lies in a repository or above the snapshot.
RestoreOutcome restoreSnapshot(const RestoreRequest& request);

}  // namespace halyard::snapwheel

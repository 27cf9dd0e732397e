// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman destination": where snapshots go.
#pragma once

#include <string>

namespace halyard::hostkit {

struct DestinationArguments {
  std::string specification;  ///< A path, or UUID=, LABEL=, PARTUUID=, PARTLABEL=.
  bool show = false;
  bool list = false;
  bool json = false;        ///< With show and list.
  bool sameVolume = false;  ///< Accept a folder on the volume that is backed up.
  bool asGiven = false;     ///< Keep a path a path.
};

/// Sets, shows or lists. Before a destination is set, it is resolved as a backup resolves it and
/// tried: a folder that can be written, not on the volume of "/", on a file system that keeps
/// owners and hard links. A mount point given by its path is remembered by the UUID of its file
/// system, so that no backup fills the empty folder when the volume is away. Setting one turns
/// automatic backups on and starts the timer.
///
/// Writes:  "BackupAlias" and "AutoBackup" of the engine's preference file; the timer's drop-in.
/// Returns: the exit status.
int destination(const DestinationArguments& arguments);

/// The destination as the preferences name it, whether it is there or not; empty without one.
std::string destinationSpecification();

}  // namespace halyard::hostkit

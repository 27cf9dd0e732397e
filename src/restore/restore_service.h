// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Restore of one service from a snapshot, on the live system.
#pragma once

#include "frontend/run/command_line.h"

namespace halyard {

/// Puts one service's files back from a snapshot and runs its restore executable.
///
/// Reads:  the options "-path" (the snapshot), "-target", "-service", "-opt"; every descriptor
///         whose file name contains the service text.
/// Runs:   the restore executable of each, whose status is not looked at.
/// Writes: a fresh progress log; the live files. The snapshot and "/.Halyards" stay as they are.
/// Ends:   with 0 when target or snapshot is missing (the pid file stays).
/// Kept:   an unfit system, or a target that is not "/", does not stop it: it goes on without a
///         metadata folder, and the executables still run, on "/<service>".
void RestoreService(const CommandLine& line);

}  // namespace halyard

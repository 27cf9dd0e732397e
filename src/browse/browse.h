// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a snapshot holds for one service, or for all.
#pragma once

#include "frontend/run/command_line.h"

namespace halyard {

/// Asks the restore executables of services what a snapshot holds for them, and prints it.
///
/// Reads:  the options "-path", "-service" (a key of the preferences' "services", or "all" in any
///         case) and "-opt"; the descriptors; the snapshot's metadata folder.
/// Runs:   for one service its restore executable, with "-opt" when given; for all each one.
/// Writes: the collected answers to "/tmp/.halyardTmpFile", for the moment of printing.
/// Prints: one service's answer as it stands and a line feed; all answers as one property list
///         ("(null)" when it could not be written); warnings for missing folders and empty answers.
void Browse(const CommandLine& line);

}  // namespace halyard

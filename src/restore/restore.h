// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The second half of a whole-system recovery.
#pragma once

#include "frontend/run/command_line.h"

namespace halyard {

/// Puts every service's files back from "/.Halyards", as it came back with the system volume, and
/// runs each service's restore executable.
///
/// Reads:  the options "-path" (only has to exist) and "-target"; every descriptor, enabled or not.
/// Runs:   the volume tool; each restore executable, whose status is not looked at.
/// Writes: a fresh progress log; the live files; removes "/.Halyards" at the end.
/// Ends:   with 0 when target or image is missing (the pid file stays); with 1 when the booted
///         volume is the one that was backed up, or that is not known: then the metadata folder
///         and the pid file are removed first.
/// Kept:   an unfit system, or a target that is not "/", returns without a word.
void Restore(const CommandLine& line);

}  // namespace halyard

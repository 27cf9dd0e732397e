// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The command table: word counts, preconditions and the command each word calls.
#pragma once

#include <cstdint>

#include "frontend/run/command_line.h"

namespace halyard {

/// Runs the command of the option "-cmd".
///
/// Reads:   the setup marker.
/// Writes:  the pid file, for backup, restore, restoreService and verify, while they run.
/// Prints:  a message for a wrong word count, an unknown word or an unmet precondition.
/// Returns: the result of PurgeSnapShot for that command; 0 on every other path that gets here.
/// Ends:    with 1 when setup is not done, or a precondition is not met (2 for browse); the pid
///          file then stays, except when backups are not enabled.
std::int32_t validateOptionsAndDispatch(const CommandLine& line);

}  // namespace halyard

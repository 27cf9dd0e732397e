// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Deletion of one snapshot.
#pragma once

#include <cstdint>

#include "frontend/run/command_line.h"

namespace halyard {

/// Deletes the snapshot "-path" through the snapshot engine, when one of its volume folders holds
/// a metadata folder with a signature and the snapshot is not in progress.
///
/// Writes:  an error record to the progress log for a snapshot in progress.
/// Prints:  what the engine answers when it refuses.
/// Returns: the exit status: 74 when the purge ran to its end, whether or not anything was deleted,
///          or was refused; 1 when the engine refused.
std::int32_t PurgeSnapShot(const CommandLine& line);

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a restore would do.
#pragma once

#include "snapwheel/restore_selection.h"
#include "snapwheel/restore_snapshot.h"

namespace halyard::snapwheel {

/// Counts what would be written, and what of it takes the place of something else in the target.
/// Reads no contents and writes nothing.
void previewRestore(const RestoreRequest& request, const Choice& choice, RestoreOutcome& outcome);

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The single-instance marker. The program only asks whether it exists; helmsman reads it.
#pragma once

#include "base/text.h"

namespace halyard {

/// Replaces the pid file.
///
/// Writes: the process identifier, " :: ", the command word ("(null)" when absent) and a
///         line feed; an error is ignored.
void setPidForProcess(const MaybeString& command);

/// Removes the pid file if it is there; an error is ignored.
void removePidProcessFile();

}  // namespace halyard

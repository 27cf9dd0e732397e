// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman unlock": removes the pid file that a dead run left behind.
#pragma once

namespace halyard::hostkit {

/// Removes the pid file when its process is gone or is no Halyard, and says so; leaves any other. A
/// Halyard that a signal has stopped is made to go on.
///
/// Prints:  a note of what was found and done.
/// Returns: success when no pid file stands in the way afterwards; kBusy while a run is active;
///          failure when the owner cannot be told or the file could not be removed.
int unlock();

}  // namespace halyard::hostkit

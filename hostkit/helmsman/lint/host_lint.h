// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lints what is around the settings: the servers, the run, the clock, the snapshots, the timer.
#pragma once

#include "helmsman/lint/finding.h"

namespace halyard::hostkit {

/// Finds servers of this host that no service covers, a run that is stuck, a clock that cannot be
/// right, a folder of snapshots that is another machine's, services that no snapshot holds whole, a
/// last good backup that is too old, and what keeps the next one from starting.
void lintHost(Findings& findings);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lints the configuration files of the engine and of helmsman itself.
#pragma once

#include "helmsman/lint/finding.h"

namespace halyard::hostkit {

/// Has snapwheel itself read /etc/halyard-host/snapwheel.conf: it refuses what it does not know.
///
/// Runs: snapwheel --help, when the file is there.
void lintEngineConfiguration(Findings& findings);

/// Reads /etc/halyard-host/helmsman.conf and the files of its folder "services", as a backup does.
void lintHelmsmanConfiguration(Findings& findings);

}  // namespace halyard::hostkit

// Lints the configuration file of the snapshot engine.
#pragma once

#include "helmsman/lint/finding.h"

namespace halyard::hostkit {

/// Has snapwheel itself read /etc/halyard-host/snapwheel.conf: it refuses what it does not know.
///
/// Runs: snapwheel --help, when the file is there.
void lintEngineConfiguration(Findings& findings);

}  // namespace halyard::hostkit

// Lints what is around the settings: the servers, the run, the clock, the folder of the snapshots.
#pragma once

#include "helmsman/lint/finding.h"

namespace halyard::hostkit {

/// Finds servers of this host that no service covers, a run that is stuck, a clock that cannot be
/// right, a folder of snapshots that is another machine's.
void lintHost(Findings& findings);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// When a part of the repository is read: the choice in helmsman's configuration, and its timer.
#pragma once

#include <string>

#include "helmsman/settings/helmsman_configuration.h"

namespace halyard::hostkit {

/// As the configuration has it; off when it says nothing or cannot be read, which status tells.
ScrubPeriod storedScrub();

/// systemd's calendar expression for it; of `off`, that of weekly.
std::string scrubCalendar(ScrubPeriod period);

/// Writes the choice, then sets the timer. False, with the reason printed, when any of it failed.
bool scheduleScrub(ScrubPeriod period);

/// Has a part read every week, with a note, unless something was chosen before; what was chosen
/// stays, `off` as well. False as above.
bool scheduleScrubUnlessChosen();

}  // namespace halyard::hostkit

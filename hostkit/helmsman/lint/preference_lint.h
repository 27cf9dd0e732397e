// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lints the two preference files.
#pragma once

#include <vector>

#include "helmsman/lint/finding.h"
#include "helmsman/settings/services.h"

namespace halyard::hostkit {

/// Checks the service preferences: the file, its keys, the flags.
void lintServicePreferences(const std::vector<InstalledDescriptor>& descriptors,
                            Findings& findings);

/// Checks the engine's preferences: the file, its keys, the destination, the schedule.
void lintEnginePreferences(Findings& findings);

}  // namespace halyard::hostkit

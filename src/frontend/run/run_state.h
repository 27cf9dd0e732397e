// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The state of the one run that a process is.
#pragma once

#include <cstdint>

#include "frontend/run/preference_record.h"

namespace halyard {

/// Filled by main() and the preferences, read everywhere, kept nowhere else. The command line is
/// not part of it: each command is given that.
struct RunState {
  bool debug = false;            ///< "DEBUG" is in the environment.
  bool verbose = false;          ///< "VERBOSE" is.
  bool functionLog = false;      ///< "FUNCLOG" is.
  bool progress = true;          ///< On from the start; "PROGRESS" changes nothing.
  PreferenceRecord preferences;  ///< As of the latest get_Helmsman_Prefs.
};

/// The one instance.
RunState& runState();

/// Ends the process with this exit status: no end lines are printed, and the pid file stays.
[[noreturn]] void endProcess(std::int32_t status);

}  // namespace halyard

// The state of the one run that a process is.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/text.h"
#include "frontend/run/preference_record.h"

namespace halyard {

/// Filled by main() and the option parser, read everywhere, kept nowhere else.
struct RunState {
  bool debug = false;          ///< "DEBUG" is in the environment.
  bool verbose = false;        ///< "VERBOSE" is.
  bool functionLog = false;    ///< "FUNCLOG" is.
  bool progress = true;        ///< On from the start; "PROGRESS" changes nothing.
  std::int32_t wordCount = 0;  ///< Words of the command line, program name included.
  std::map<std::string, std::string> options;  ///< Option word as typed, to its value.
  std::string snapshotRepository;  ///< From the fifth word; empty on shorter command lines.
  PreferenceRecord preferences;    ///< As of the latest get_Helmsman_Prefs.
};

/// The one instance.
RunState& runState();

/// The value of an option; absent when it was not given.
MaybeString option(const std::string& word);

/// Ends the process with this exit status: no end lines are printed, and the pid file stays.
[[noreturn]] void endProcess(std::int32_t status);

}  // namespace halyard

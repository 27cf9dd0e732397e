// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/unlock.h"

#include <csignal>
#include <string>

#include "common/exit_status.h"
#include "common/messages.h"
#include "helmsman/program/pid_file_state.h"
#include "product/paths.h"

namespace halyard::hostkit {

int unlock() {
  PidFileState state = pidFileState();
  if (state.isLeftover()) {
    if (removeLeftoverPidFile()) {
      printNote(describe(state) + "; removed it");
      return kSuccess;
    }
    state = pidFileState();  // Another one removed it, and a run may have begun.
  }
  switch (state.owner) {
    case PidFileState::Owner::none:
      printNote("nothing to unlock: no run is active");
      return kSuccess;
    case PidFileState::Owner::halyard:
      if (state.isStopped && ::kill(state.process, SIGCONT) == 0) {
        printNote(describe(state) + "; it goes on now, and keeps its pid file until it ends");
      } else {
        printError(describe(state) + "; it keeps its pid file");
      }
      return kBusy;
    case PidFileState::Owner::unknown:
      printError(describe(state) + "; it stays. If no Halyard runs, remove " + paths::kPidFile);
      return kFailure;
    case PidFileState::Owner::gone:
    case PidFileState::Owner::stranger:
      break;
  }
  printError(std::string(paths::kPidFile) + " could not be removed");
  return kFailure;
}

}  // namespace halyard::hostkit

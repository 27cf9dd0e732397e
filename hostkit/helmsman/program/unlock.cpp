#include "helmsman/program/unlock.h"

#include <string>

#include "common/exit_status.h"
#include "common/messages.h"
#include "helmsman/program/pid_file_state.h"
#include "product/paths.h"

namespace halyard::hostkit {

int unlock() {
  const PidFileState state = pidFileState();
  switch (state.owner) {
    case PidFileState::Owner::none:
      printNote("nothing to unlock: no run is active");
      return kSuccess;
    case PidFileState::Owner::halyard:
      printError(describe(state) + "; it keeps its pid file");
      return kBusy;
    case PidFileState::Owner::unknown:
      printError(describe(state) + "; it stays. If no Halyard runs, remove " + paths::kPidFile);
      return kFailure;
    case PidFileState::Owner::gone:
    case PidFileState::Owner::stranger:
      break;
  }
  if (!removeLeftoverPidFile()) {
    printError(std::string(paths::kPidFile) + " could not be removed");
    return kFailure;
  }
  printNote(describe(state) + "; removed it");
  return kSuccess;
}

}  // namespace halyard::hostkit

// helmsman: the administration tool of Halyard on a Linux host.
#include <clocale>
#include <csignal>

#include "common/messages.h"
#include "helmsman/command_line.h"

int main(int count, char** words) {
  halyard::hostkit::setProgramName("helmsman");
  // A closed terminal must not end a backup half way; what cannot be written is told by the status.
  (void)std::signal(SIGPIPE, SIG_IGN);
  return halyard::hostkit::runHelmsman(count, words);
}

#include "helmsman/lint/host_lint.h"

#include <string>

#include "common/times.h"
#include "helmsman/run/clock_check.h"
#include "helmsman/settings/servers.h"
#include "helmsman/snapshots/machine_record.h"
#include "helmsman/snapshots/repository.h"

namespace halyard::hostkit {

namespace {

void lintServers(Findings& findings) {
  for (const UncoveredServer& server : uncoveredServers()) {
    FindingList list(server.program, findings);
    list.warning("", describe(server),
                 server.service.empty() ? "save what it holds with its own tool into a folder of "
                                          "the volume, or give it a descriptor and a plug-in"
                                        : "run helmsman enable " + server.service);
  }
}

void lintClock(Findings& findings) {
  const std::string problem = clockProblem(secondsNow(), knownPast());
  if (problem.empty()) return;
  FindingList list("this host", findings);
  list.error("", problem, "set the clock: snapshots are dated and kept by it");
}

void lintSnapshotFolder(Findings& findings) {
  std::string ignored;  // The engine's preferences have their own finding.
  const auto destination = backupDestination(ignored);
  const std::string problem = destination ? folderRefusal(*destination) : "";
  if (problem.empty()) return;
  FindingList list(snapshotFolder(*destination), findings);
  list.error("", problem, "until then nothing is backed up");
}

}  // namespace

void lintHost(Findings& findings) {
  lintServers(findings);
  lintClock(findings);
  lintSnapshotFolder(findings);
}

}  // namespace halyard::hostkit

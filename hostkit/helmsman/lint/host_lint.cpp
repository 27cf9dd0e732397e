// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/host_lint.h"

#include <string>

#include "common/machine.h"
#include "common/times.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/run/backup_health.h"
#include "helmsman/run/clock_check.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/incomplete_services.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/local_volumes.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/setup.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "product/computer_name.h"
#include "product/paths.h"

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

// The name was taken when the host was set up, and names the folder of its snapshots.
void lintComputerName(Findings& findings) {
  const std::string fromHost = computerNameFromHost();
  if (fromHost == kUnknownComputer || fromHost == computerName()) return;
  FindingList list(paths::kHostConfigurationFile, findings);
  list.warning(
      "", "this host is called " + fromHost + ", and its snapshots stand under " + computerName(),
      "nothing to do to keep that name; to change it see \"Renaming a host\" in helmsman(8)");
}

// Until it ends, every backup is refused.
void lintRun(Findings& findings) {
  const PidFileState run = pidFileState();
  const auto running = runningBackup();
  FindingList list("this host", findings);
  if (running && isOverdue(*running)) {
    list.error("",
               "a backup has been running for longer than a day (process " +
                   std::to_string(running->process) + ")",
               "look what it waits for (helmsman status); SIGTERM ends it in order");
  } else if (run.isStuck()) {
    list.error("", describe(run),
               run.isStopped ? "run helmsman unlock, which lets it go on"
                             : "look what it waits for, and end that");
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

// What makes every backup partial until something is done about it.
void lintVolumes(Findings& findings) {
  std::string ignored;  // Both have findings of their own.
  const auto destination = backupDestination(ignored);
  const auto configuration = helmsmanConfiguration(ignored);
  const std::vector<std::string> leftOut =
      configuration ? configuration->leftOut : std::vector<std::string>();
  const std::vector<std::string> included =
      configuration ? configuration->included : std::vector<std::string>();
  FindingList list("this host", findings);
  for (const LocalVolume& volume : localVolumes(destination.value_or(""), leftOut, included)) {
    if (isLacking(volume)) {
      list.warning("", lackText(volume), "until then no backup is good");
    }
  }
  for (const ServiceLack& lack : lacksOfHost(leftOut)) {
    list.warning(lack.service, lack.text, "until then its backup is not good");
  }
}

void lintBackups(Findings& findings) {
  FindingList list("this host", findings);
  for (const Problem& problem : backupHealth(secondsNow()).problems) {
    list.warning("", problem.text, problem.advice);
  }
}

}  // namespace

void lintHost(Findings& findings) {
  lintServers(findings);
  lintComputerName(findings);
  lintRun(findings);
  lintClock(findings);
  lintSnapshotFolder(findings);
  lintVolumes(findings);
  lintBackups(findings);
}

}  // namespace halyard::hostkit

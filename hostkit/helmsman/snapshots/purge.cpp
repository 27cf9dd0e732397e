// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/purge.h"

#include "base/text.h"
#include "common/exit_status.h"
#include "common/machine.h"
#include "common/messages.h"
#include "common/question.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

bool canBePurged(const Snapshot& snapshot, bool latestMayGo) {
  if (snapshot.inProgress) {
    printError(snapshot.name + " is not complete: it is being made, or was interrupted (see: " +
               paths::kSnapshotTool + " check)");
    return false;
  }
  if (!snapshot.hasSignature) {
    printError(snapshot.name + " carries no backup of the services, so Halyard leaves it alone (" +
               paths::kSnapshotTool + " delete removes any snapshot)");
    return false;
  }
  // Halyard itself knows no pins.
  if (snapshot.pin) {
    printError(snapshot.name + " is " + pinText(*snapshot.pin) + " (see: helmsman unpin)");
    return false;
  }
  if (snapshot.isLatest && !latestMayGo) {
    printError(snapshot.name + " is the latest snapshot; say --latest if it shall go all the same");
    return false;
  }
  return true;
}

// The program leaves the link alone when it removes what that leads to; the engine, whose link it
// is, moves it under its own lock.
int settleLatest(const std::string& hostFolder) {
  const std::string link = joinPath(hostFolder, paths::kLatestName);
  if (!host::isSymbolicLink(link) || host::exists(link)) return kSuccess;
  const host::TaskResult result = host::RunTask(
      std::string(paths::kSnapshotTool), {"latest", "--computer", lastPathComponent(hostFolder)});
  if (!host::isSymbolicLink(link) || host::exists(link)) return kSuccess;
  const std::string reason(trimLineFeeds(result.error));
  printWarning(link + " leads to no snapshot now (see: " + paths::kSnapshotTool + " latest)" +
               (reason.empty() ? "" : ": " + reason));
  return kPartial;
}

}  // namespace

int purge(const PurgeArguments& arguments) {
  int status = kFailure;
  std::string problem;
  if (equalsIgnoringCase(arguments.snapshot, "latest") && !arguments.latest) {
    printError("name the snapshot, or say --latest as well");
    return kFailure;
  }
  const auto destination = backupDestination(problem);
  if (destination) problem = folderRefusal(*destination);
  if (!problem.empty()) {
    printError(problem);
    return kFailure;
  }
  auto snapshot = chooseSnapshot(arguments.snapshot, problem);
  if (!snapshot) {
    printError(problem);
    return kFailure;
  }
  if (arguments.snapshot.starts_with('/')) {
    // A path says nothing of the link that may lead to it.
    std::string ignored;
    const auto newest = chooseSnapshot("", ignored);
    snapshot->isLatest = newest && newest->path == snapshot->path;
  }
  if (!canBePurged(*snapshot, arguments.latest) || !halyardIsReady(status)) return status;
  if (!arguments.yes && !confirmed("Remove the snapshot " + snapshot->path + " for good?")) {
    return kFailure;
  }

  const std::string path = host::realPath(snapshot->path).value_or(snapshot->path);
  const host::TaskResult result = runHalyard({"-cmd", "purgeSnapShot", "-path", snapshot->path});
  if (!host::isAbsent(snapshot->path)) {
    const std::string reason(trimLineFeeds(result.output));
    printError(snapshot->name + " was not removed" + (reason.empty() ? "" : ": " + reason));
    return kFailure;
  }
  printNote("removed " + snapshot->path);
  return settleLatest(path.substr(0, path.rfind('/')));
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/backup.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/machine.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/program/size_estimate.h"
#include "helmsman/run/clock_check.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/engine.h"
#include "helmsman/run/expected_services.h"
#include "helmsman/run/halyard_backup.h"
#include "helmsman/run/incomplete_services.h"
#include "helmsman/run/journal.h"
#include "helmsman/run/metadata_check.h"
#include "helmsman/run/recovered_host.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/run/room.h"
#include "helmsman/run/run_display.h"
#include "helmsman/run/run_guard.h"
#include "helmsman/run/run_record.h"
#include "helmsman/settings/descriptor_conflicts.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/local_volumes.h"
#include "helmsman/settings/schedule.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/services.h"
#include "helmsman/settings/settings.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "helmsman/snapshots/machine_record.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr char kSizePhase[] = "asking the services for their size";

std::string keylessText(const std::string& service) {
  return service + ": can only be restored after: helmsman enable " + service;
}

class BackupCycle {
 public:
  BackupCycle(const BackupArguments& arguments, const HelmsmanConfiguration& configuration,
              CurrentRun current)
      : arguments_(arguments),
        display_(arguments.json ? RunDisplay::Form::json : RunDisplay::Form::automatic,
                 arguments.quiet),
        current_(std::move(current)),
        leftOut_(configuration.leftOut),
        included_(configuration.included),
        guard_([configuration](const std::string& service) {
          return configuration.stallLimitOf(service);
        }) {
    record_.started = secondsNow();
  }
  int run();

 private:
  bool isPossible();
  void tellWhatIsLacking();
  bool hasRoom();
  bool makeRoom();
  void estimate();
  void warnOfSizes(const std::vector<Stall>& stalls);
  void backUpServices();
  void markServices();
  bool takeSnapshot();
  void complete();
  void prune();
  void phase(const std::string& text);
  bool isToStop() const { return guard_.signal() != 0; }
  RunRecord::Result result() const;
  int finish();
  void problem(std::string text) { record_.problems.push_back(std::move(text)); }

  BackupArguments arguments_;
  RunDisplay display_;
  CurrentRun current_;
  std::vector<std::string> leftOut_;
  std::vector<std::string> included_;
  std::vector<std::string> furtherVolumes_;  // That the snapshot is to hold beside "/".
  RunGuard guard_;
  RunEngine runEngine_ = [this](const std::vector<std::string>& words) {
    return guard_.run(paths::kSnapshotTool,
                      [&words] { return runStoppable(paths::kSnapshotTool, words); });
  };
  RunRecord record_;
  std::string destination_;
  std::vector<Snapshot> snapshots_;
  bool isFirst_ = true;  // There is no snapshot yet.
  std::vector<ServiceLack> lacks_;
  bool metadataIsWhole_ = false;
  std::size_t tornProblems_ = 0;  // That only tell of files that changed while they were read.
};

int BackupCycle::run() {
  int status = kFailure;
  if (repairSettings() != kSuccess) return kFailure;
  if (!halyardIsReady(status)) {
    if (status == kBusy) return kBusy;
    problem("the backup could not start");
    return finish();
  }
  if (!current_.mark(record_.started)) {
    problem(std::string("the mark of this run could not be written to ") + kStateFolder);
  }
  if (!isPossible()) return finish();
  tellWhatIsLacking();
  if (!arguments_.noEstimate) estimate();
  if (isToStop() || !hasRoom()) return finish();
  backUpServices();
  if (isToStop() || !metadataIsWhole_ || arguments_.noSnapshot) return finish();
  if (takeSnapshot()) {
    complete();
    prune();
  }
  return finish();
}

void BackupCycle::phase(const std::string& text) {
  current_.tell(text, "");
  display_.phase(text);
}

bool BackupCycle::isPossible() {
  if (const HandOver state = handOver(); state.waitsForRecovery()) {
    problem(refusalOfBackup(state));
    return false;
  }
  std::vector<std::string> conflicts = descriptorProblems();
  for (std::string& text : conflicts) problem(std::move(text));
  if (!conflicts.empty()) return false;
  std::string reason;
  const auto destination = backupDestination(reason);
  if (!destination) {
    problem(reason);
    return false;
  }
  destination_ = *destination;
  // Asks where somebody can answer; a program that reads the output cannot.
  const bool canAsk = !arguments_.json && ::isatty(STDIN_FILENO) != 0;
  if (std::string refusal = settleFolder(destination_, canAsk); !refusal.empty()) {
    problem(std::move(refusal));
    return false;
  }
  const std::string clock = clockProblem(secondsNow(), knownPast());
  if (!clock.empty()) printWarning(clock);
  const auto engine = host::readDictionary(paths::kEnginePreferenceFile);
  if (!engine || !isAutomatic(*engine)) {
    problem("automatic backups are off (see: helmsman schedule --on)");
    return false;
  }
  std::string ignored;
  snapshots_ = snapshotsIn(snapshotFolder(destination_));
  isFirst_ = !findSnapshot(snapshots_, "", ignored);
  if (arguments_.noSnapshot) return true;
  const auto unwritable = writeProblem(destination_);
  if (unwritable) problem(*unwritable);
  return !unwritable;
}

// Told before, so that nobody waits for a run to learn it, and again in the result.
void BackupCycle::tellWhatIsLacking() {
  for (const std::string& service : servicesWithoutKey()) {
    printWarning(keylessText(service));
  }
  lacks_ = lacksOfHost(leftOut_);
  for (const ServiceLack& lack : lacks_) printWarning(lack.service + ": " + lack.text);
  if (arguments_.noSnapshot) return;
  const std::vector<LocalVolume> volumes = localVolumes(destination_, leftOut_, included_);
  furtherVolumes_ = furtherVolumes(volumes);
  for (const LocalVolume& volume : volumes) {
    if (!isLacking(volume)) continue;
    printWarning(lackText(volume));
    problem(lackText(volume));
  }
}

bool BackupCycle::hasRoom() {
  if (isFirst_ && !arguments_.noSnapshot) phase("measuring the volume for its first snapshot");
  RoomFigures figures = measureRoom({destination_, record_.estimateBytes.value_or(0), isFirst_,
                                     !arguments_.noSnapshot, furtherVolumes_});
  RoomVerdict verdict = judgeRoom(figures);
  if (verdict.destinationIsShort && !isFirst_ && makeRoom()) {
    measureFree(figures);
    verdict = judgeRoom(figures);
  }
  display_.clearBar();
  for (const std::string& text : verdict.warnings) printWarning(text);
  for (const std::string& text : verdict.refusals) problem("there is not enough room: " + text);
  return verdict.refusals.empty();
}

// The engine knows the rules; this asks it twice, so that what goes is known before it goes.
bool BackupCycle::makeRoom() {
  const std::vector<std::string> removable = snapshotsToPrune(runEngine_);
  if (!mayMakeRoom(removable, snapshotsIn(snapshotFolder(destination_)), readLastRecord())) {
    return false;
  }
  phase("removing snapshots that no rule keeps, to make room");
  if (!pruneSnapshots(runEngine_).empty()) return false;
  std::string names;
  for (const std::string& name : removable) names += (names.empty() ? "" : ", ") + name;
  display_.clearBar();
  printNote("removed what no rule keeps, to make room: " + names);
  return true;
}

void BackupCycle::estimate() {
  phase(kSizePhase);
  record_.estimateBytes = sizeEstimate([this](const std::function<host::TaskResult()>& start) {
    const auto tell = [this](const ProgressStep& step) { current_.tell(kSizePhase, step.service); };
    return runFollowed(guard_, tell, start);
  });
  const std::vector<Stall> stalls = guard_.takeStalls();
  warnOfSizes(stalls);
  if (!stalls.empty()) record_.estimateBytes.reset();  // The others alone would say too little.
}

void BackupCycle::warnOfSizes(const std::vector<Stall>& stalls) {
  for (const Stall& stall : stalls) {
    if (!stall.wasAskedForSize) continue;
    display_.clearBar();
    printWarning(stall.service + ": " + stall.text());
  }
}

void BackupCycle::backUpServices() {
  ExpectedServices expected = expectedServices();
  std::vector<std::string> names;
  names.reserve(expected.descriptors.size());
  for (const auto& descriptor : expected.descriptors) names.push_back(descriptor.serviceName());
  std::set<std::string> absent;
  for (const InstalledDescriptor& descriptor : expected.descriptors) {
    if (!isOnThisHost(descriptor)) absent.insert(descriptor.serviceName());
  }
  if (names.empty() && expected.undescribed.empty()) {
    problem("no service is switched on (see: helmsman enable)");
  }
  for (std::string& text : expected.problems) problem(std::move(text));

  current_.tell("backing up the services", "");
  display_.started(names);
  HalyardBackup backup = runHalyardBackup(std::move(expected.descriptors), {snapshots_, leftOut_},
                                          guard_, [this](const ProgressStep& step) {
                                            current_.tell("backing up the services", step.service);
                                            display_.step(step);
                                          });
  if (arguments_.noEstimate) warnOfSizes(backup.stalls);  // Halyard asks once more by itself.
  record_.services = std::move(backup.services);
  metadataIsWhole_ = backup.isWhole;
  addLacks(lacks_, expected.undescribed, record_.services);
  for (std::string& text : backup.problems) problem(std::move(text));
  for (ServiceResult& service : record_.services) {
    service.absent = service.done && absent.contains(service.name);
    // A snapshot must not be taken for one that holds the service.
    if (service.absent && !markAbsent(paths::kMetadataFolder, service.name)) {
      problem("the mark of " + service.name + ", which is not on this host, could not be written");
    }
  }
  if (metadataIsWhole_) markServices();
}

void BackupCycle::markServices() {
  for (const std::string& service :
       settleIncompleteServices(paths::kMetadataFolder, record_.services)) {
    problem("no snapshot is taken: " + service + " could not be marked as incomplete in " +
            paths::kMetadataFolder);
    metadataIsWhole_ = false;
  }
}

bool BackupCycle::takeSnapshot() {
  phase("taking the snapshot");
  std::vector<std::string> leftOut = itemsSetAside();
  // A host that is recovered from the snapshot would find the mark of a run that never ended.
  leftOut.insert(leftOut.begin(), kCurrentRunFile);
  const EngineSnapshot taken = hostkit::takeSnapshot(runEngine_, furtherVolumes_, leftOut);
  for (const std::string& remark : taken.remarks) printWarning(remark);
  for (const std::string& text : taken.problems) problem(text);
  if (taken.isOnlyTorn) tornProblems_ = taken.problems.size();
  if (taken.path.empty()) return false;
  const Snapshot snapshot = readSnapshot(taken.path);
  if (snapshot.metadataFolder.empty() ||
      signatureIn(snapshot.metadataFolder) != signatureIn(paths::kMetadataFolder)) {
    problem("the snapshot " + taken.path + " does not carry this backup");
    return false;
  }
  record_.snapshot = taken.path;
  if (!machineIdentifier().empty()) {
    const std::string reason = adoptFolder(destination_);
    if (!reason.empty()) printWarning("the folder could not be recorded as this host's: " + reason);
  }
  if (taken.hasReference) record_.copiedBytes = taken.copiedBytes;
  addLacksOf(snapshot, record_.services);
  return true;
}

void BackupCycle::complete() {
  // It always answers 0.
  (void)guard_.run(paths::kProgram, [] { return runHalyard({"-cmd", "postBackupComplete"}); });
  if (host::exists(paths::kMetadataFolder)) {
    problem(std::string(paths::kMetadataFolder) + " could not be removed after the snapshot");
  }
}

void BackupCycle::prune() {
  // A snapshot that lacks something is no reason to part with an older one. A file that is written
  // all the time is none to keep them all: the engine keeps the newest one without such a file.
  const bool isOtherwiseGood = !isToStop() && record_.problems.size() == tornProblems_ &&
                               std::ranges::all_of(record_.services, &ServiceResult::done);
  if (!isOtherwiseGood) return;
  phase("removing snapshots that are out of date");
  const std::string reason = pruneSnapshots(runEngine_);
  if (!reason.empty()) problem("old snapshots could not be removed: " + reason);
}

RunRecord::Result BackupCycle::result() const {
  if (isToStop()) return RunRecord::Result::interrupted;
  const auto isDone = [](const ServiceResult& service) { return service.done; };
  const bool carried = arguments_.noSnapshot ? metadataIsWhole_ : !record_.snapshot.empty();
  if (!carried || std::ranges::none_of(record_.services, isDone)) return RunRecord::Result::failed;
  return record_.problems.empty() && std::ranges::all_of(record_.services, isDone)
             ? RunRecord::Result::good
             : RunRecord::Result::partial;
}

int BackupCycle::finish() {
  record_.finished = secondsNow();
  record_.result = result();
  if (!arguments_.noSnapshot) tellWhatNoSnapshotHolds(record_);
  if (isToStop()) {
    problem(std::string("the run was told to stop (SIG") + ::sigabbrev_np(guard_.signal()) + ")");
    (void)removeLeftoverPidFile();  // Halyard had no time for it.
  }
  inheritGood(record_, readLastRecord());
  if (keepRecord(record_)) {
    CurrentRun::end();
  } else {
    problem(std::string("the result could not be kept in ") + kStateFolder);
    if (record_.result == RunRecord::Result::good) record_.result = RunRecord::Result::partial;
  }
  journalBackup(record_);
  display_.finished(record_);
  if (!finishOutput()) return kFailure;
  return exitStatusOf(record_.result);
}

}  // namespace

int backup(const BackupArguments& arguments) {
  std::string problem;
  auto configuration = helmsmanConfiguration(problem);
  if (!configuration) {
    printError(problem);
    return kUsageError;
  }
  if (!host::exists(paths::kSetupMarker)) {
    // Nothing was tried: there is nothing to record.
    printError("this host is not set up yet (see: helmsman setup)");
    return kFailure;
  }
  if (arguments.stallLimit) {
    configuration->stallLimit = arguments.stallLimit;
    configuration->serviceStallLimits.clear();
  }
  auto current = CurrentRun::begin(problem);
  if (!current) return refuseBeside(problem);
  if (!current->settleInterrupted()) {
    printWarning(std::string("the record of an interrupted run could not be kept in ") +
                 kStateFolder);
  }
  return BackupCycle(arguments, *configuration, std::move(*current)).run();
}

}  // namespace halyard::hostkit

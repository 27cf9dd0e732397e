// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/recover.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/question.h"
#include "common/table.h"
#include "common/times.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/restore/recovery.h"
#include "helmsman/restore/server_units.h"
#include "helmsman/restore/verify.h"
#include "helmsman/restore/watched_restore.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/host_work.h"
#include "helmsman/run/metadata_check.h"
#include "helmsman/run/recovered_host.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/settings/descriptor_conflicts.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kProgressLogLimit = std::size_t{64} << 20;
constexpr mode_t kStateFolderMode = 0755;

// The snapshot that "/.Halyards" came with, by its signature; absent when it is not to be found.
std::optional<Snapshot> snapshotOfHandOver(const std::vector<Snapshot>& snapshots) {
  const std::string signature = signatureIn(paths::kMetadataFolder);
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    if (!snapshot->metadataFolder.empty() && signatureIn(snapshot->metadataFolder) == signature) {
      return *snapshot;
    }
  }
  return std::nullopt;
}

// Sets the snapshot, which may stay unknown; false, with the reason, when another one was named.
bool findOrigin(const std::string& typed, std::optional<Snapshot>& origin, std::string& problem) {
  if (typed.empty()) {
    std::string noRepository;
    origin = snapshotOfHandOver(hostSnapshots(noRepository).value_or(std::vector<Snapshot>()));
    return true;
  }
  origin = chooseSnapshot(typed, problem);
  if (!origin) return false;
  if (snapshotOfHandOver({*origin})) return true;
  problem = std::string(paths::kMetadataFolder) + " did not come from " + origin->name +
            ": their signatures differ";
  return false;
}

// What stands in the way of the run, which it would not tell; empty when nothing does.
std::string obstacle() {
  const HandOver state = handOver();
  if (!state.waitsForRecovery()) return describe(state) + "; nothing was done";
  if (!host::isAbsent(paths::kRestoreMarker)) {
    return std::string("an earlier restore ended early; when its reason is gone, remove ") +
           paths::kRestoreMarker + " and try again";
  }
  if (!host::isAbsent(paths::kMetadataFolderAside)) {
    return std::string(paths::kMetadataFolderAside) +
           " is in the way: Halyard would remove it; move it elsewhere first";
  }
  return "";
}

void showPlan(const Recovery& recovery, const std::optional<Snapshot>& origin, bool dryRun) {
  const std::string be = dryRun ? " would be " : " will be ";
  printLine("The services of " + (origin ? origin->name : "a snapshot that is not in reach") + be +
            "put back:");
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "IN THE BACKUP", "ITEMS"}};
  for (const ServiceRecovery& service : recovery.services) {
    rows.push_back({service.name,
                    !service.held           ? "no"
                    : service.lacks.empty() ? "whole"
                                            : "in part",
                    std::to_string(service.plan.size())});
  }
  (void)std::fputs(tableText(rows).c_str(), stdout);
  printLine(std::string(paths::kMetadataFolder) + be + "used up by it.");
}

// One for each service, in order, each with its record for undo; absent when that is impossible.
std::optional<std::vector<WatchedRestore>> watchedRestores(const Recovery& recovery,
                                                           const std::string& image) {
  // Those of the lost host came with the snapshot, and speak of what does not stand here.
  if (!dropRestoreRecords(handOverTime())) return std::nullopt;
  std::vector<WatchedRestore> watched;
  for (const ServiceRecovery& service : recovery.services) {
    if (!service.held) continue;
    watched.emplace_back(service.name, image, service.plan);
    if (!watched.back().canStart()) return std::nullopt;
  }
  return watched;
}

// Takes up what the restore programs did.
void settleRecords(std::vector<WatchedRestore>& watched, const JournaledRun& run,
                   Recovery& recovery) {
  auto journals = journalsOf(run.journal);
  // What names no service is kept with the last one, so that status and tidy know of it.
  if (!watched.empty()) journals[watched.back().record().service] += journals[""];
  for (WatchedRestore& restore : watched) {
    PlugInJournal told = parseJournal(journals[restore.record().service]);
    told.problems.clear();  // They are told for the whole run.
    restore.settle(told, run.started);
    for (ServiceRecovery& service : recovery.services) {
      if (service.name != restore.record().service) continue;
      for (const std::string& problem : restore.problems()) service.problems.push_back(problem);
    }
  }
}

void verifyAll(Recovery& recovery, const std::optional<Snapshot>& origin) {
  if (!origin) {
    printWarning("no service was verified: the snapshot that the host came from is not in reach");
    return;
  }
  for (ServiceRecovery& service : recovery.services) {
    using Result = ServiceRecovery::Result;
    const bool mayBeWhole =
        service.result() == Result::restored || service.result() == Result::unknown;
    if (!mayBeWhole || !service.canVerify) continue;
    const auto mismatches = verifyService(service.name, *origin);
    if (mismatches && *mismatches == 0) continue;
    service.problems.push_back(verifyProblem(service.name, mismatches));
  }
}

void settleServers(Recovery& recovery) {
  for (ServiceRecovery& service : recovery.services) {
    if (!service.held) continue;
    for (std::string& problem : ServerUnits(service.name).settle()) {
      service.problems.push_back(std::move(problem));
    }
  }
}

void tell(const Recovery& recovery) {
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "RESULT"}};
  for (const ServiceRecovery& service : recovery.services) {
    rows.push_back({service.name, resultWord(service.result())});
  }
  (void)std::fputs(tableText(rows).c_str(), stdout);
}

// What is to be done about each service that is not back.
void tellNextSteps(const Recovery& recovery) {
  std::string ignored;
  const auto snapshots = hostSnapshots(ignored).value_or(std::vector<Snapshot>());
  for (const std::string& problem : recovery.problems) printError(problem);
  for (const ServiceRecovery& service : recovery.services) {
    for (const std::string& problem : service.problems) printError(service.name + ": " + problem);
    for (const std::string& lack : service.lacks) {
      printWarning(service.name + " was incomplete in the backup: " + lack);
    }
    if (service.result() == ServiceRecovery::Result::unknown) {
      printWarning(service.name + ": " + kNotDone);
    }
    if (!service.held || (service.lacks.empty() && service.problems.empty())) continue;
    const Snapshot* whole = newestWhole(snapshots, {service.name});
    printNote(whole == nullptr
                  ? "no snapshot in reach holds " + service.name + " whole"
                  : "to try again: helmsman restore " + service.name + " --from " + whole->name);
  }
}

bool keepJournal(const nlohmann::json& journal) {
  return makeFolders(kStateFolder, kStateFolderMode) &&
         host::writeFile(
             kRecoveryFile,
             journal.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
             host::Durability::power);
}

// What the plug-ins wrote too.
void bringToDisk(Recovery& recovery) {
  std::vector<std::string> paths = {"/"};
  for (const ServiceRecovery& service : recovery.services) {
    for (const PlannedItem& item : service.plan) {
      if (host::exists(item.path)) paths.push_back(item.path);
    }
  }
  if (const Status synced = host::syncFileSystems(paths); !synced) {
    recovery.problems.push_back("what was restored may not be on disk: " +
                                errnoText(synced.error().code));
  }
}

int carryOut(Recovery recovery, const std::optional<Snapshot>& origin,
             const RecoverArguments& arguments) {
  // Halyard wants a path that exists and uses it for nothing else.
  const std::string image = origin ? origin->path : paths::kMetadataFolder;
  auto watched = watchedRestores(recovery, image);
  if (!watched) {
    printError("nothing was done: the records for undo could not be written");
    return kFailure;
  }
  dropMarkOfLostHost();
  const JournaledRun run =
      runWithJournal({"-cmd", "restore", "-path", image, "-target", "/"}, kRecoveryJournal);
  const PlugInJournal plugIns = parseJournal(run.journal);
  for (const std::string& problem : plugIns.problems) {
    recovery.problems.push_back("a restore program says: " + problem);
  }
  if (run.result.status != 0) {
    recovery.problems.push_back("Halyard ended with status " + std::to_string(run.result.status));
  }
  settleRecords(*watched, run, recovery);
  judgeRecovery(recovery, host::readFile(paths::kProgressLog, kProgressLogLimit).value_or(""),
                plugIns);
  settleServers(recovery);
  if (!arguments.noVerify) verifyAll(recovery, origin);
  bringToDisk(recovery);
  if (origin) recovery.source.name = origin->name;
  const nlohmann::json journal = recoveryJson(recovery);
  if (!keepJournal(journal)) {
    recovery.problems.push_back(std::string("the journal ") + kRecoveryFile +
                                " could not be written");
  }
  if (arguments.json) {
    printJson(journal);
  } else {
    tell(recovery);
  }
  tellNextSteps(recovery);
  return finishOutput() ? recovery.status() : kFailure;
}

}  // namespace

int recover(const RecoverArguments& arguments) {
  int status = kFailure;
  const auto work =
      arguments.dryRun ? std::optional<HostWork>() : HostWork::begin("recover", status);
  if (!arguments.dryRun && !work) return status;
  const std::vector<std::string> conflicts = descriptorProblems();
  for (const std::string& text : conflicts) printError(text);
  if (!conflicts.empty() || !halyardIsReady(status)) return status;
  std::string problem = obstacle();
  std::optional<Snapshot> origin;
  if (!problem.empty() || !findOrigin(arguments.snapshot, origin, problem)) {
    printError(problem);
    return kFailure;
  }
  Recovery recovery = planRecovery();
  if (arguments.dryRun || !arguments.yes) showPlan(recovery, origin, arguments.dryRun);
  if (arguments.dryRun) return finishOutput() ? kSuccess : kFailure;
  if (!arguments.yes && !confirmed("Put them back?")) return kFailure;
  return carryOut(std::move(recovery), origin, arguments);
}

}  // namespace halyard::hostkit

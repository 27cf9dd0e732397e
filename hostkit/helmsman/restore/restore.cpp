// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/restore.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/question.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/times.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/restore/restore_plan.h"
#include "helmsman/restore/restore_source.h"
#include "helmsman/restore/server_units.h"
#include "helmsman/restore/verify.h"
#include "helmsman/restore/watched_restore.h"
#include "helmsman/run/host_work.h"
#include "helmsman/run/journal.h"
#include "helmsman/settings/descriptor_conflicts.h"
#include "helmsman/settings/service_links.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "product/descriptor_keys.h"

namespace halyard::hostkit {

namespace {

// Everything that a restore works on, or nothing, with the reason.
struct Restoration {
  std::string service;
  std::vector<std::string> names;  ///< Of its descriptors, each with a restore program.
  Snapshot snapshot;
  std::vector<PlannedItem> plan;
  bool canVerify = false;
  bool inPart = false;  ///< The snapshot does not hold everything.
};

std::optional<Restoration> prepare(const RestoreArguments& arguments, std::string& problem) {
  const auto service = completeServiceName(servicePreferences(), arguments.service, problem);
  if (!service) return std::nullopt;
  const auto descriptors = descriptorsOfService(*service);
  if (descriptors.empty()) {
    problem = "no descriptor of " + *service + " is installed" +
              (isShipped(*service) ? " (run: helmsman enable " + *service + ")" : "");
    return std::nullopt;
  }
  std::vector<std::string> names;
  for (const InstalledDescriptor& descriptor : descriptors) {
    names.push_back(descriptor.serviceName());
    const auto program = descriptor.content.text(descriptor_keys::kRestoreBinaryPath);
    if (program && host::isExecutableFile(*program)) continue;
    problem = "the restore program of " + names.back() +
              " cannot be run: " + program.value_or("its descriptor names none");
    return std::nullopt;
  }
  const auto snapshot = restoreSource(arguments, *service, names, problem);
  if (!snapshot) return std::nullopt;
  Restoration restoration{*service, names, *snapshot, planRestore(descriptors, *snapshot),
                          false,    false};
  for (const std::string& name : names) {
    restoration.inPart = restoration.inPart || snapshot->partOf(name) != nullptr;
  }
  restoration.canVerify =
      descriptors.back().content.text(descriptor_keys::kVerifyBinaryPath).has_value();
  return restoration;
}

// A restore replaces what the one before it set aside. Empty when that loses nothing: after an undo
// it is the content of a snapshot.
std::string lossOfEarlier(const Restoration& restoration) {
  const auto earlier = readRestoreRecord(restoration.service);
  if (!earlier && isRestoreRecordUnreadable(restoration.service)) {
    for (const PlannedItem& item : restoration.plan) {
      if (!item.inSnapshot || !item.live || host::isAbsent(asidePath(item.path))) continue;
      return asidePath(item.path) +
             " may be what an earlier restore set aside, and would be lost: the record of that "
             "restore cannot be read; move it elsewhere, or give --force";
    }
  }
  if (!earlier || earlier->undone) return "";
  for (const PlannedItem& item : restoration.plan) {
    const auto isIt = [&item](const RestoreRecord::Item& kept) {
      return kept.path == item.path && kept.wasLive && mayStandAside(kept);
    };
    if (!item.inSnapshot || !item.live || std::ranges::none_of(earlier->items, isIt)) continue;
    return asidePath(item.path) + " is what the restore of " +
           ageText(secondsNow() - earlier->time) +
           " set aside, and would be lost; first run helmsman undo " + restoration.service +
           " or helmsman tidy, or give --force";
  }
  return "";
}

std::string actionText(const PlannedItem& item) {
  if (!item.inSnapshot) return "stays: not in the snapshot";
  std::string text = item.configuration ? "put back by the service" : "put back";
  if (item.live) text += ", the live one kept as .previous";
  if (item.live && item.previous) text += " (in place of an older one)";
  return text;
}

void showPlan(const Restoration& restoration) {
  std::vector<std::vector<std::string>> rows = {{"ITEM", "SIZE", "WHAT HAPPENS"}};
  for (const PlannedItem& item : restoration.plan) {
    rows.push_back({item.path, item.inSnapshot ? sizeText(item.bytes) : "-", actionText(item)});
  }
  if (rows.size() > 1) (void)std::fputs(tableText(rows).c_str(), stdout);
  printLine("Then the restore program of " + restoration.service + " puts back what else " +
            restoration.snapshot.name + " holds of the service; what that is, it decides itself" +
            " (see: helmsman browse " + restoration.service + ").");
}

// What undo can take back, and what it cannot.
void tellRecord(const RestoreRecord& record) {
  for (const auto& item : record.items) {
    printNote(item.wasLive ? "set aside " + asidePath(item.path) : "made " + item.path);
  }
  for (const auto& lost : record.lost) {
    printWarning(lost.path + " " + lost.why + ": undo cannot take that back");
  }
  if (!record.items.empty()) {
    printNote("to take " + std::string(record.lost.empty() ? "it" : "the rest") +
              " back: helmsman undo " + record.service +
              "; to remove what is set aside: helmsman tidy");
  }
}

bool tellOutcome(const Restoration& restoration, const WatchedRestore& run) {
  std::vector<std::string> problems = restoreProblems(restoration.plan);
  for (const std::string& problem : run.problems()) problems.push_back(problem);
  for (const std::string& problem : problems) printError(problem);
  tellRecord(run.record());
  return problems.empty();
}

bool verified(const Restoration& restoration, bool wanted) {
  if (!wanted || !restoration.canVerify) return true;
  const auto mismatches = verifyService(restoration.service, restoration.snapshot);
  if (mismatches && *mismatches == 0) return true;
  printWarning(restoration.service + " was put back from " + restoration.snapshot.name + ", but " +
               verifyProblem(restoration.service, mismatches));
  return false;
}

bool serverRuns(const ServerUnits& server) {
  const std::vector<std::string> problems = server.settle();
  for (const std::string& problem : problems) printError(problem);
  if (!server.advice().empty()) printWarning(server.advice());
  return problems.empty();
}

int carryOut(const Restoration& restoration, const RestoreArguments& arguments) {
  WatchedRestore run(restoration.service, restoration.snapshot.path, restoration.plan);
  if (!run.canStart()) {
    printError("nothing was done: the record for undo could not be written");
    return kFailure;
  }
  std::vector<std::string> words = {
      "-cmd",     "restoreService",   "-path", restoration.snapshot.path, "-target", "/",
      "-service", restoration.service};
  if (!arguments.option.empty()) words.insert(words.end(), {"-opt", arguments.option});
  const ServerUnits server(restoration.service);  // Those that are to run, before anything stops.
  const host::TaskResult result = run.run(words);
  const bool restored = tellOutcome(restoration, run);
  const bool runs = serverRuns(server);
  if (result.status != 0) {
    printError("Halyard ended with status " + std::to_string(result.status));
    return kFailure;
  }
  if (!restored || !verified(restoration, !arguments.noVerify) || !runs) return kFailure;
  const auto isHeld = [](const PlannedItem& item) { return item.inSnapshot; };
  if (!restoration.plan.empty() && std::ranges::none_of(restoration.plan, isHeld)) {
    printWarning("the restore program of " + restoration.service + " was run; of the " +
                 std::to_string(restoration.plan.size()) + " items that the service lists, " +
                 restoration.snapshot.name + " holds none");
    return kPartial;
  }
  const auto isDone = [&run](const std::string& name) { return run.told().saysDone(name); };
  if (!std::ranges::all_of(restoration.names, isDone)) {
    printWarning(restoration.service + ": " + kNotDone);
    return kPartial;
  }
  if (restoration.inPart) {
    printWarning("restored the part of " + restoration.service + " that " +
                 restoration.snapshot.name + " holds");
    return kPartial;
  }
  printNote("restored " + restoration.service + " from " + restoration.snapshot.name);
  return kSuccess;
}

}  // namespace

int restore(const RestoreArguments& arguments) {
  int status = kFailure;
  const auto work =
      arguments.dryRun ? std::optional<HostWork>() : HostWork::begin("restore", status);
  if (!arguments.dryRun && !work) return status;
  const std::vector<std::string> conflicts = descriptorProblems();
  for (const std::string& text : conflicts) printError(text);
  if (!conflicts.empty()) return kFailure;
  std::string problem;
  const auto restoration = prepare(arguments, problem);
  if (!restoration) {
    if (!problem.empty()) printError(problem);  // Else the administrator was asked, and said no.
    return kFailure;
  }
  const std::string loss = arguments.force ? std::string() : lossOfEarlier(*restoration);
  if (!loss.empty()) {
    printError(loss);
    return kFailure;
  }
  const std::vector<std::string> noRoom = roomProblems(restoration->plan);
  for (const std::string& text : noRoom) printError(text);
  if (arguments.dryRun) {
    showPlan(*restoration);
    return noRoom.empty() && finishOutput() ? kSuccess : kFailure;
  }
  if (!noRoom.empty() || !halyardIsReady(status)) return status;
  if (!arguments.yes) {
    showPlan(*restoration);
    if (!confirmed("Restore " + restoration->service + " from " + restoration->snapshot.name +
                   "?")) {
      return kFailure;
    }
  }
  status = carryOut(*restoration, arguments);
  writeJournal({"restore", restoration->service, restoration->snapshot.path,
                resultWord(status == kSuccess   ? RunRecord::Result::good
                           : status == kPartial ? RunRecord::Result::partial
                                                : RunRecord::Result::failed)});
  return status;
}

}  // namespace halyard::hostkit

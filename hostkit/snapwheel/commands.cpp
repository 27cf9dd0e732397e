// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The commands that make and remove snapshots.
#include "snapwheel/commands.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/running_backup.h"
#include "common/sizes.h"
#include "common/snapshot_pin.h"
#include "common/waiting.h"
#include "host/files/property_file.h"
#include "product/paths.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/command_support.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/settings.h"
#include "snapwheel/snapshot_lock.h"
#include "snapwheel/take_snapshot.h"

namespace halyard::snapwheel {

namespace {

RetentionRules rulesFor(const CommandOptions& options) {
  RetentionRules rules = options.rules;
  rules.days =
      options.days.value_or(preferredDays(host::readDictionary(paths::kEnginePreferenceFile)));
  return rules;
}

std::string keptText(const PlannedRemoval& item) {
  const std::string note = item.pin ? item.pin->note : "";
  return "keep   " + item.name + "  " + item.verdict.reason +
         (note.empty() ? "" : " (" + note + ")");
}

/// Removes what the rules do not keep, or shows it. Needs SnapshotLock unless it only shows.
int prune(const Repository& repository, const RetentionRules& rules, bool dryRun, bool json) {
  const std::vector<PlannedRemoval> plan = planPrune(repository, rules);
  nlohmann::json kept = nlohmann::json::array();
  std::vector<std::string> doomed;
  for (const PlannedRemoval& item : plan) {
    if (item.verdict.keep) {
      kept.push_back({{"name", item.name},
                      {"reason", item.verdict.reason},
                      {"pin", hostkit::pinJson(item.pin)}});
      if (!json && dryRun) hostkit::printLine(keptText(item));
      continue;
    }
    doomed.push_back(item.name);
    if (!json && dryRun) hostkit::printLine("remove " + item.name);
  }
  if (!dryRun) {
    removeSnapshots(repository, doomed, [json](const std::string& name) {
      if (!json) hostkit::printLine("removed " + name);
    });
  }
  if (json) {
    hostkit::printJson({{"dryRun", dryRun}, {"removed", doomed}, {"kept", kept}});
  }
  const bool held = std::ranges::any_of(
      plan, [](const PlannedRemoval& item) { return item.verdict.reason == kNewestIsNotGood; });
  if (!held) return hostkit::kSuccess;
  hostkit::printWarning(
      "nothing was pruned: the newest snapshot does not hold, whole, what older ones hold");
  return dryRun ? hostkit::kSuccess : hostkit::kPartial;
}

/// Who asks to wait shall not get a snapshot with half of a backup.
void waitForBackup(const CommandOptions& options) {
  if (options.source != "/" || hostkit::waitLeft().count() == 0) return;
  std::string who;
  const auto attempt = [&] {
    who = hostkit::backupBeside().value_or("");
    return who.empty();
  };
  if (hostkit::waitFor(attempt, [&] { return who; })) return;
  throw Failure(who + " still fills " + paths::kMetadataFolder, hostkit::kBusy);
}

}  // namespace

int runSnapshot(const CommandOptions& options) {
  const auto begin = std::chrono::steady_clock::now();
  const Repository repository = openToChange(options);
  SnapshotRequest request;
  request.source = options.source;
  request.volume = options.volume;
  request.furtherVolumes = options.furtherVolumes;
  request.furtherVolumes.insert(request.furtherVolumes.end(), options.addedVolumes.begin(),
                                options.addedVolumes.end());
  request.exclusions = exclusionsFor(options);
  waitForBackup(options);
  const SnapshotOutcome outcome = takeSnapshot(repository, request);
  const Manifest& manifest = outcome.manifest;
  if (options.json) {
    nlohmann::json document = toJson(manifest);
    document["name"] = outcome.name;
    document["path"] = repository.path(outcome.name);
    hostkit::printJson(document);
  } else {
    hostkit::printLine(
        repository.path(outcome.name) + ": " + countText(manifest.items, "item") + ", " +
        countText(manifest.copied, "file") + " copied (" + hostkit::sizeText(manifest.copiedBytes) +
        "), " + std::to_string(manifest.linked) + " shared with " +
        (manifest.reference.empty() ? "none" : manifest.reference) + ", " + secondsText(begin));
  }
  if (manifest.unfinishedBackup) {
    hostkit::printWarning(std::string(paths::kMetadataFolder) +
                          " was being filled, or a backup was interrupted: the snapshot carries no "
                          "backup of the services that is finished");
  }
  const int status =
      manifest.complete && !manifest.unfinishedBackup ? hostkit::kSuccess : hostkit::kPartial;
  if (!options.prune || !manifest.lacksNothing()) return status;
  const auto problems = backupProblems(joinPath(repository.path(outcome.name), manifest.volume));
  for (const std::string& problem : problems) hostkit::printWarning(outcome.name + ": " + problem);
  if (!problems.empty() || manifest.unfinishedBackup) {
    hostkit::printWarning("nothing was pruned: earlier snapshots may hold what this one lacks");
    return hostkit::kPartial;
  }
  const SnapshotLock lock(repository);
  const int pruned = prune(repository, rulesFor(options), false, false);
  return status == hostkit::kSuccess ? pruned : status;
}

int runDelete(const CommandOptions& options) {
  const Repository repository = openToChange(options);
  const std::vector<std::string> unfinished = repository.list().inProgress;
  std::vector<std::string> names;
  for (const std::string& word : options.names) {
    const bool isUnfinished =
        std::find(unfinished.begin(), unfinished.end(), word) != unfinished.end();
    std::string name = isUnfinished ? word : repository.find(word);
    if (std::ranges::find(names, name) == names.end()) names.push_back(std::move(name));
  }
  const SnapshotLock lock(repository);
  for (const std::string& name : names) {
    const auto pin = isInProgress(name) ? std::nullopt : hostkit::readPin(repository.path(name));
    if (pin && !options.force) {
      throw Failure(name + " is " + hostkit::pinText(*pin) +
                    "; nothing was removed (see: snapwheel unpin, or --force)");
    }
  }
  removeSnapshots(repository, names, [&repository](const std::string& name) {
    hostkit::printLine("removed " + repository.path(name));
  });
  return hostkit::kSuccess;
}

int runLatest(const CommandOptions& options) {
  const Repository repository = openToChange(options);
  const SnapshotLock lock(repository);
  const std::string newest = settleLatest(repository);
  if (newest.empty()) {
    hostkit::printNote("there is no snapshot in " + repository.hostFolder());
  } else {
    hostkit::printLine(repository.path(newest));
  }
  return hostkit::kSuccess;
}

int runPrune(const CommandOptions& options) {
  const Repository repository = options.dryRun ? openRepository(options) : openToChange(options);
  const RetentionRules rules = rulesFor(options);
  if (!rules.any()) {
    hostkit::printNote("no retention rule is set (DaysToRetain, --keep-...): everything stays");
  }
  if (repository.list().snapshots.empty()) {
    throw Failure("there is no snapshot in " + repository.hostFolder());
  }
  if (options.dryRun) return prune(repository, rules, true, options.json);
  const SnapshotLock lock(repository);
  return prune(repository, rules, false, options.json);
}

}  // namespace halyard::snapwheel

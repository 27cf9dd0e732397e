// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/commands.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "base/property_list.h"
#include "base/text.h"
#include "common/exit_status.h"
#include "common/machine.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/table.h"
#include "host/files/property_file.h"
#include "product/computer_name.h"
#include "product/paths.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/settings.h"
#include "snapwheel/snapshot_lock.h"
#include "snapwheel/take_snapshot.h"

namespace halyard::snapwheel {

namespace {

Repository openRepository(const CommandOptions& options) {
  return Repository(findDestination(options.destination),
                    options.computer.empty() ? computerName() : options.computer);
}

/// The same, for what changes this host's folder there: it must be this machine's. Another host's
/// is the affair of the administrator who names it.
Repository openToChange(const CommandOptions& options) {
  Repository repository = openRepository(options);
  if (repository.computerName() != computerName()) return repository;
  const std::string refusal = hostkit::folderRefusal(repository.destination());
  if (!refusal.empty()) throw Failure(refusal);
  return repository;
}

RetentionRules rulesFor(const CommandOptions& options) {
  RetentionRules rules = options.rules;
  rules.days =
      options.days.value_or(preferredDays(host::readDictionary(paths::kEnginePreferenceFile)));
  return rules;
}

Exclusions exclusionsFor(const CommandOptions& options) {
  auto exclusions = Exclusions::read(options.exclusionFile);
  if (!exclusions) throw Failure(options.exclusionFile + " cannot be read");
  for (const std::string& pattern : options.excludes) exclusions->add(pattern);
  return *exclusions;
}

std::string secondsText(std::chrono::steady_clock::time_point begin) {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds.count());
  return text;
}

std::string countText(std::uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

/// "lacks 2 items, 1 changed while it was read".
std::string lackText(std::uint64_t missing, std::uint64_t torn) {
  std::string text;
  if (missing != 0) text = "lacks " + countText(missing, "item");
  if (torn == 0) return text;
  return text + (text.empty() ? "" : ", ") + countText(torn, "file") + " changed while " +
         (torn == 1 ? "it was" : "they were") + " read";
}

/// Removes what the rules do not keep, or shows it. Needs SnapshotLock unless it only shows.
int prune(const Repository& repository, const RetentionRules& rules, bool dryRun, bool json) {
  const std::vector<PlannedRemoval> plan = planPrune(repository, rules);
  nlohmann::json removed = nlohmann::json::array();
  nlohmann::json kept = nlohmann::json::array();
  for (const PlannedRemoval& item : plan) {
    if (item.verdict.keep) {
      kept.push_back({{"name", item.name}, {"reason", item.verdict.reason}});
      if (!json && dryRun) hostkit::printLine("keep   " + item.name + "  " + item.verdict.reason);
      continue;
    }
    if (!dryRun) removeSnapshots(repository, {item.name});
    removed.push_back(item.name);
    if (!json) hostkit::printLine((dryRun ? "remove " : "removed ") + item.name);
  }
  if (json) {
    hostkit::printJson({{"dryRun", dryRun}, {"removed", removed}, {"kept", kept}});
  }
  const bool held = std::ranges::any_of(
      plan, [](const PlannedRemoval& item) { return item.verdict.reason == kNewestIsNotGood; });
  if (!held) return hostkit::kSuccess;
  hostkit::printWarning(
      "nothing was pruned: the newest snapshot does not hold, whole, what older ones hold");
  return dryRun ? hostkit::kSuccess : hostkit::kPartial;
}

nlohmann::json listEntry(const Repository& repository, const std::string& name) {
  const std::string path = repository.path(name);
  const auto manifest = readManifest(path);
  nlohmann::json entry = manifest ? toJson(*manifest) : nlohmann::json::object();
  for (const char* own : {"format", "missing", "torn"}) entry.erase(own);  // Of the file.
  entry["name"] = name;
  entry["path"] = path;
  entry["inProgress"] = isInProgress(name);
  entry["latest"] = repository.latest() == name;
  if (!manifest) entry["complete"] = false;
  return entry;
}

std::string stateOf(const nlohmann::json& entry) {
  if (entry["inProgress"].get<bool>()) return "in progress or interrupted";
  if (!entry.contains("items")) return "no manifest";
  std::string text;
  if (!entry["complete"].get<bool>()) {
    text = lackText(entry["missingCount"].get<std::uint64_t>(),
                    entry["tornCount"].get<std::uint64_t>());
  }
  const auto add = [&text](const char* more) {
    text += (text.empty() ? "" : ", ") + std::string(more);
  };
  if (entry["unfinishedBackup"].get<bool>()) add("carries an unfinished backup");
  if (entry["latest"].get<bool>()) add("latest");
  return text;
}

std::vector<std::string> listRow(const nlohmann::json& entry) {
  const bool known = entry.contains("items") && !entry["inProgress"].get<bool>();
  return {entry["name"].get<std::string>(),
          known ? std::to_string(entry["items"].get<std::uint64_t>()) : "-",
          known ? hostkit::sizeText(entry["copiedBytes"].get<std::uint64_t>() +
                                    entry["linkedBytes"].get<std::uint64_t>())
                : "-",
          known ? hostkit::sizeText(entry["copiedBytes"].get<std::uint64_t>()) : "-",
          stateOf(entry)};
}

std::vector<std::string> allNames(const Repository& repository) {
  HostFolderListing listing = repository.list();
  std::vector<std::string> names = std::move(listing.snapshots);
  names.insert(names.end(), listing.inProgress.begin(), listing.inProgress.end());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

int runSnapshot(const CommandOptions& options) {
  const auto begin = std::chrono::steady_clock::now();
  const Repository repository = openToChange(options);
  SnapshotRequest request;
  request.source = options.source;
  request.volume = options.volume;
  request.exclusions = exclusionsFor(options);
  const SnapshotOutcome outcome = takeSnapshot(repository, std::move(request));
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

int runList(const CommandOptions& options) {
  const Repository own = openRepository(options);
  const std::vector<std::string> computers =
      options.allComputers ? own.computers() : std::vector<std::string>{own.computerName()};
  nlohmann::json document = {{"snapshots", nlohmann::json::array()}};
  std::vector<std::vector<std::string>> rows = {{"SNAPSHOT", "ITEMS", "SIZE", "NEW", "STATE"}};
  for (const std::string& computer : computers) {
    const Repository repository(own.destination(), computer);
    for (const std::string& name : allNames(repository)) {
      nlohmann::json entry = listEntry(repository, name);
      std::vector<std::string> row = listRow(entry);
      if (options.allComputers) row.front().insert(0, computer + "/");
      rows.push_back(std::move(row));
      document["snapshots"].push_back(std::move(entry));
    }
  }
  if (options.json) {
    hostkit::printJson(document);
  } else if (rows.size() > 1) {
    std::fputs(hostkit::tableText(rows).c_str(), stdout);
  } else {
    hostkit::printNote("there is no snapshot in " + own.hostFolder());
  }
  return hostkit::kSuccess;
}

int runDelete(const CommandOptions& options) {
  const Repository repository = openToChange(options);
  const std::vector<std::string> unfinished = repository.list().inProgress;
  std::vector<std::string> names;
  for (const std::string& word : options.names) {
    const bool isUnfinished =
        std::find(unfinished.begin(), unfinished.end(), word) != unfinished.end();
    names.push_back(isUnfinished ? word : repository.find(word));
  }
  const SnapshotLock lock(repository);
  for (const std::string& name : names) {
    removeSnapshots(repository, {name});
    hostkit::printLine("removed " + repository.path(name));
  }
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

int runRestore(const CommandOptions& options) {
  const auto begin = std::chrono::steady_clock::now();
  RestoreRequest request = options.restore;
  // The path of a snapshot says everything: on a rescue system no destination is set.
  if (options.names.front().starts_with('/')) {
    request.snapshotPath = options.names.front();
  } else {
    const Repository repository = openRepository(options);
    request.snapshotPath = repository.path(repository.find(options.names.front()));
  }
  const RestoreOutcome outcome = restoreSnapshot(request);
  hostkit::printLine(request.target + ": " + countText(outcome.items, "item") + " of " +
                     request.snapshotPath + "/" + outcome.volume + " restored (" +
                     hostkit::sizeText(outcome.bytes) + "), " + secondsText(begin));
  if (outcome.failed == 0 && outcome.flags.lacking == 0) return hostkit::kSuccess;
  if (outcome.failed != 0) {
    hostkit::printError(countText(outcome.failed, "item") + " could not be restored as they were");
  }
  return hostkit::kPartial;
}

namespace {

nlohmann::json toJson(const std::vector<DamagedFile>& damaged) {
  nlohmann::json list = nlohmann::json::array();
  for (const DamagedFile& file : damaged) {
    list.push_back({{"path", file.path}, {"reason", file.reason}, {"snapshots", file.snapshots}});
  }
  return list;
}

}  // namespace

int runCheck(const CommandOptions& options) {
  const Repository repository = openRepository(options);
  const CheckReport report = checkRepository(repository, options.depth, options.part);
  nlohmann::json findings = nlohmann::json::array();
  std::uint64_t problems = 0;
  for (const Finding& finding : report.findings) {
    const bool isProblem = finding.severity == Severity::problem;
    problems += isProblem ? 1 : 0;
    findings.push_back({{"severity", isProblem ? "problem" : "note"},
                        {"path", finding.path},
                        {"text", finding.text}});
    if (!options.json) {
      hostkit::printLine((isProblem ? "problem: " : "note: ") + finding.path + ": " + finding.text);
    }
  }
  if (options.json) {
    hostkit::printJson({{"snapshots", report.snapshots},
                        {"items", report.items},
                        {"bytesRead", report.bytesRead},
                        {"problems", problems},
                        {"findings", findings},
                        {"damaged", toJson(report.damaged)}});
  } else {
    hostkit::printLine(countText(report.snapshots, "snapshot") + ", " +
                       countText(report.items, "item") + " looked at, " +
                       hostkit::sizeText(report.bytesRead) + " read, " +
                       countText(problems, "problem"));
  }
  return problems == 0 ? hostkit::kSuccess : hostkit::kFailure;
}

}  // namespace halyard::snapwheel

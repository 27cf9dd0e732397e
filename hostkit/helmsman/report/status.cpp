// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/report/status.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/times.h"
#include "common/version.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/program/size_estimate.h"
#include "helmsman/run/backup_health.h"
#include "helmsman/run/clock_check.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/recovered_host.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/service_links.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "host/volumes/volume.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

// What a run met may have been settled since.
constexpr char kOfLastRun[] = "Problem of the last run: ";

// Everything that is shown, gathered once.
struct HostStatus {
  bool setUp = false;
  BackupHealth health;
  std::optional<host::Volume> volume;
  std::optional<Snapshot> latest;
  PidFileState run;
  std::optional<RunningBackup> running;
  HandOver handOver;
  std::size_t setAside = 0;
  std::size_t unrecorded = 0;
  std::optional<std::uint64_t> estimate;
  std::vector<UncoveredServer> uncovered;
  std::vector<std::string> leftOut;
  std::string configurationProblem;
  std::string clockProblem;  // Ages tell nothing then.

  bool isWell() const {
    return setUp && health.snapshotsAreKnown() && health.record &&
           health.record->result == RunRecord::Result::good && health.problems.empty() &&
           !handOver.waitsForRecovery() && !run.isLeftover() &&
           run.owner != PidFileState::Owner::unknown && !run.isStuck() &&
           !(running && isOverdue(*running)) && configurationProblem.empty() &&
           clockProblem.empty();
  }
};

void gather(const StatusArguments& arguments, HostStatus& status) {
  status.setUp = host::exists(paths::kSetupMarker);
  status.health = backupHealth(secondsNow());
  const BackupHealth& health = status.health;
  if (health.snapshotsAreKnown()) {
    if (auto volume = host::volumeOf(health.destination.path)) status.volume = std::move(*volume);
    std::string ignored;
    status.latest = findSnapshot(health.snapshots, "", ignored);
  }
  KnownPast past{std::nullopt, std::nullopt, buildYear()};
  if (status.latest) past.newestSnapshot = beginOf(*status.latest);
  if (health.record) past.lastRecord = health.record->finished;
  status.clockProblem = clockProblem(secondsNow(), past);
  status.run = pidFileState();
  status.running = runningBackup();
  status.handOver = handOver();
  status.setAside = itemsSetAside().size();
  status.unrecorded = unrecordedAside().size();
  if (health.record) status.estimate = health.record->estimateBytes;
  // Halyard refuses while a run is active, and its size command empties the progress log.
  if (arguments.size && status.setUp && !status.running &&
      status.run.owner == PidFileState::Owner::none) {
    status.estimate = sizeEstimate();
  }
  if (auto configuration = helmsmanConfiguration(status.configurationProblem)) {
    status.leftOut = std::move(configuration->leftOut);
  }
  status.uncovered = uncoveredServers();
}

nlohmann::json serviceJson(const ServiceHealth& service) {
  nlohmann::json document = {
      {"name", service.name},
      {"on", service.on},
      {"installed", service.installed},
      {"onThisHost", service.installed ? nlohmann::json(!service.absent) : nlohmann::json()},
      {"lastResult", nullptr},
      {"lastGood", nullptr},
      {"snapshot", nullptr},
      {"problems", nlohmann::json::array()},
      {"log", nullptr}};
  if (service.last) {
    document["lastResult"] = resultWord(*service.last);
    document["problems"] = service.last->problems;
    if (!service.last->log.empty()) document["log"] = service.last->log;
  }
  if (service.lastGood) document["lastGood"] = timeText(*service.lastGood);
  if (!service.snapshot.empty()) document["snapshot"] = service.snapshot;
  if (service.bytes) document["bytes"] = *service.bytes;
  return document;
}

nlohmann::json destinationJson(const HostStatus& status) {
  if (!status.health.snapshotsAreKnown()) return nullptr;
  nlohmann::json document = {{"path", status.health.destination.path}};
  if (status.volume) {
    document["availableBytes"] = status.volume->freeBytes;
    document["totalBytes"] = status.volume->totalBytes;
  }
  return document;
}

const char* stateWord(Destination::State state) {
  switch (state) {
    case Destination::State::notSet:
      return "not set";
    case Destination::State::notThere:
      return "not there";
    case Destination::State::there:
      break;
  }
  return "there";
}

nlohmann::json statusJson(const HostStatus& status) {
  const BackupHealth& health = status.health;
  nlohmann::json document = {
      {"well", status.isWell()},
      {"problems", nlohmann::json::array()},
      {"setUp", status.setUp},
      {"automatic", health.automatic},
      {"timerActive", nullptr},
      {"schedule", describe(health.schedule, storedRetention())},
      {"destinationState", stateWord(health.destination.state)},
      {"destination", destinationJson(status)},
      {"latestSnapshot", nullptr},
      {"snapshots", nullptr},
      {"lastGood", nullptr},
      {"lastBackup", nullptr},
      {"run",
       {{"active", status.running || status.run.owner == PidFileState::Owner::halyard},
        {"leftover", status.run.isLeftover()},
        {"stopped", status.run.isStopped},
        {"overdue",
         status.run.runsFor >= kLongestRun || (status.running && isOverdue(*status.running))},
        {"process", status.run.process},
        {"command", status.run.command}}},
      {"leftOut", status.leftOut},
      {"setAside", status.setAside},
      {"unrecordedAside", status.unrecorded},
      {"recovery",
       {{"waits", status.handOver.waitsForRecovery()},
        {"recordedVolume", status.handOver.recorded},
        {"bootedVolume", status.handOver.booted}}},
      {"scrub", nullptr},
      {"services", nlohmann::json::array()},
      {"uncovered", nlohmann::json::array()}};
  if (status.running) {
    document["run"]["process"] = status.running->process;
    document["run"]["command"] = "backup";
    document["run"]["phase"] = status.running->phase;
    document["run"]["service"] = status.running->service;
    document["run"]["started"] = timeText(status.running->started);
  }
  for (const Problem& problem : health.problems) document["problems"].push_back(problem.text);
  if (!status.clockProblem.empty()) document["problems"].push_back(status.clockProblem);
  if (health.scrub.record) document["scrub"] = scrubJson(*health.scrub.record);
  if (health.timer.unknown.empty()) document["timerActive"] = health.timer.starts;
  if (health.snapshotsAreKnown()) document["snapshots"] = health.snapshots.size();
  if (health.lastGood) document["lastGood"] = timeText(*health.lastGood);
  if (status.latest) document["latestSnapshot"] = status.latest->name;
  if (health.record) {
    document["lastBackup"] = recordJson(*health.record);
    document["lastBackup"].erase("services");
    document["lastBackup"].erase("lastGood");
  }
  if (status.estimate) document["estimateBytes"] = *status.estimate;
  for (const ServiceHealth& service : health.services) {
    document["services"].push_back(serviceJson(service));
  }
  for (const UncoveredServer& server : status.uncovered) {
    document["uncovered"].push_back(
        {{"server", server.name}, {"program", server.program}, {"service", nullptr}});
    if (!server.service.empty()) document["uncovered"].back()["service"] = server.service;
  }
  return document;
}

std::string automaticText(const BackupHealth& health) {
  const std::string schedule = describe(health.schedule, storedRetention());
  if (!health.automatic) {
    return (health.timer.starts ? "off, but the timer starts runs" : "off") +
           (" (set: " + schedule) + ")";
  }
  if (!health.timer.unknown.empty()) {
    return schedule + " (unknown whether a run starts: " + health.timer.unknown + ")";
  }
  return health.timer.starts ? schedule : "no run starts (set: " + schedule + ")";
}

std::string destinationText(const HostStatus& status) {
  if (!status.health.snapshotsAreKnown()) return status.health.destination.problem;
  std::string text = status.health.destination.path;
  if (status.volume) {
    text += ", " + sizeText(status.volume->freeBytes) + " of " +
            sizeText(status.volume->totalBytes) + " free";
  }
  if (status.estimate) text += ", the services need " + sizeText(*status.estimate);
  return text;
}

std::string latestText(const HostStatus& status, std::int64_t now) {
  if (!status.health.snapshotsAreKnown()) return "unknown";
  if (!status.latest) return "none";
  const auto time = beginOf(*status.latest);
  return status.latest->name + (time ? ", " + ageText(now - *time) : "") + " (" +
         std::to_string(status.health.snapshots.size()) + " kept)";
}

std::string lastBackupText(const BackupHealth& health, std::int64_t now) {
  if (!health.record) return "none";
  std::string text = std::string(resultWord(health.record->result)) + ", " +
                     ageText(now - health.record->finished);
  // What a run did that was killed, nobody knows.
  const bool isKnown = health.record->result != RunRecord::Result::interrupted;
  if (isKnown && health.record->snapshot.empty()) text += ", no snapshot taken";
  const bool hasGood = health.record->lastGood.contains("");
  if (health.record->result == RunRecord::Result::good) return text;
  if (!hasGood) return text + ", never a good one";
  return text + (health.lastGood ? ", the last good one " + ageText(now - *health.lastGood)
                                 : ", no good one is left");
}

std::string lastGoodText(const BackupHealth& health, const ServiceHealth& service,
                         std::int64_t now) {
  if (!service.lastGood) return service.on && health.record ? "none" : "-";
  return ageText(now - *service.lastGood) + (health.snapshotsAreKnown() ? "" : ", if still there");
}

std::string activityText(const HostStatus& status, std::int64_t now) {
  if (!status.running) {
    const bool isForUnlock = status.run.isLeftover() || status.run.isStopped;
    return describe(status.run) + (isForUnlock ? " (see: helmsman unlock)" : "");
  }
  const RunningBackup& running = *status.running;
  std::string text = "a backup is running (process " + std::to_string(running.process) +
                     ", started " + ageText(now - running.started) + ")";
  if (!running.phase.empty()) text += ": " + running.phase;
  if (!running.service.empty()) text += ", " + running.service;
  return text;
}

void printServices(const BackupHealth& health, std::int64_t now) {
  std::vector<std::vector<std::string>> rows = {
      {"SERVICE", "BACKUP", "LAST RUN", "LAST GOOD", "SIZE"}};
  for (const ServiceHealth& service : health.services) {
    rows.push_back({service.name,
                    !service.installed && (service.on || !isShipped(service.name)) ? "not installed"
                    : service.absent                                               ? kAbsentWord
                    : service.on                                                   ? "on"
                                                                                   : "off",
                    service.last ? resultWord(*service.last) : "-",
                    lastGoodText(health, service, now),
                    service.bytes ? sizeText(*service.bytes) : "-"});
  }
  (void)std::fputs(("\n" + tableText(rows)).c_str(), stdout);
  for (const ServiceHealth& service : health.services) {
    if (!service.last) continue;
    for (const std::string& problem : service.last->problems) {
      printLine(kOfLastRun + service.name + ": " + problem);
    }
    const std::string log = logText(*service.last);
    if (!log.empty()) printLine(service.name + ": " + log);
  }
}

void printText(const HostStatus& status) {
  const std::int64_t now = secondsNow();
  const BackupHealth& health = status.health;
  std::vector<std::vector<std::string>> rows = {
      {"Host:", status.setUp ? "set up" : "not set up (see: helmsman setup)"},
      {"Automatic:", automaticText(health)},
      {"Destination:", destinationText(status)},
      {"Latest snapshot:", latestText(status, now)},
      {"Last backup:", lastBackupText(health, now)},
      {"Repository:", scrubText(health.scrub, now)},
      {"Activity:", activityText(status, now)}};
  for (const std::string& path : status.leftOut) rows.push_back({"Left out:", path});
  if (status.handOver.waitsForRecovery()) {
    rows.push_back({"Recovery:", "recovered host, waits for: helmsman recover"});
  }
  if (status.setAside > 0) {
    rows.push_back({"Set aside:", std::to_string(status.setAside) +
                                      " items by restores (see: helmsman tidy --dry-run)"});
  }
  if (status.unrecorded > 0) {
    rows.push_back({"Not recorded:", std::to_string(status.unrecorded) +
                                         " more set aside, not by a restore of helmsman "
                                         "(see: helmsman tidy --dry-run)"});
  }
  (void)std::fputs(factsText(rows).c_str(), stdout);
  if (!status.configurationProblem.empty()) printLine("Problem: " + status.configurationProblem);
  if (!status.clockProblem.empty()) printLine("Problem: " + status.clockProblem);
  for (const Problem& problem : health.problems) {
    printLine("Problem: " + problem.text + " (" + problem.advice + ")");
  }
  if (health.record) {
    for (const std::string& problem : health.record->problems) {
      const bool isOver = isRefusalOfBackup(problem) && !status.handOver.waitsForRecovery();
      if (!isOver) printLine(kOfLastRun + problem);
    }
  }
  printServices(health, now);
  for (const UncoveredServer& server : status.uncovered) {
    printLine("Not covered: " + describe(server));
  }
}

}  // namespace

int status(const StatusArguments& arguments) {
  HostStatus gathered;
  gather(arguments, gathered);
  if (arguments.json) {
    printJson(statusJson(gathered));
  } else {
    printText(gathered);
  }
  if (!finishOutput()) return kFailure;
  return arguments.check && !gathered.isWell() ? kFailure : kSuccess;
}

}  // namespace halyard::hostkit

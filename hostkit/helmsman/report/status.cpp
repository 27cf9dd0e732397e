#include "helmsman/report/status.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/times.h"
#include "common/volumes.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/program/size_estimate.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/recovered_host.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/run/run_record.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/schedule.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/repository.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

struct ServiceLine {
  std::string name;
  bool on = false;
  bool installed = false;
  bool absent = false;  // Installed, and nothing of it is on this host.
  const ServiceResult* last = nullptr;
  std::optional<GoodBackup> good;
};

// Everything that is shown, gathered once.
struct HostStatus {
  bool setUp = false;
  bool automatic = false;
  Schedule schedule;
  std::optional<std::string> destination;
  std::string destinationProblem;
  std::optional<Volume> volume;
  std::optional<Snapshot> latest;
  std::size_t snapshots = 0;
  PidFileState run;
  std::optional<RunningBackup> running;
  HandOver handOver;
  std::size_t setAside = 0;
  std::optional<RunRecord> record;
  std::optional<std::uint64_t> estimate;
  std::vector<ServiceLine> services;
  std::vector<UncoveredServer> uncovered;
  std::vector<std::string> leftOut;
  std::string configurationProblem;

  bool isWell() const {
    return setUp && destination && record && record->result == RunRecord::Result::good &&
           !handOver.waitsForRecovery() && !run.isLeftover() &&
           run.owner != PidFileState::Owner::unknown && !run.isStuck() &&
           !(running && isOverdue(*running)) && configurationProblem.empty();
  }
};

std::vector<ServiceLine> serviceLines(const std::optional<RunRecord>& record) {
  const PropertyDictionary preferences = servicePreferences();
  std::map<std::string, bool> onThisHost;  // Of each that is installed.
  std::set<std::string> names;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    const std::string name = descriptor.serviceName();
    if (name.empty()) continue;
    names.insert(name);
    onThisHost[name] = onThisHost[name] || isOnThisHost(descriptor);
  }
  for (const auto& [key, value] : preferences) names.insert(key);

  std::vector<ServiceLine> lines;
  for (const std::string& name : names) {
    ServiceLine line;
    line.name = name;
    line.installed = onThisHost.contains(name);
    line.absent = line.installed && !onThisHost[name];
    line.on = isBackedUp(preferences, name);
    if (record) {
      for (const ServiceResult& result : record->services) {
        if (result.name == name) line.last = &result;
      }
      if (const auto good = record->lastGood.find(name); good != record->lastGood.end()) {
        line.good = good->second;
      }
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

void gather(const StatusArguments& arguments, HostStatus& status) {
  status.setUp = host::exists(paths::kSetupMarker);
  if (const auto engine = host::readDictionary(paths::kEnginePreferenceFile)) {
    status.schedule = scheduleFrom(*engine);
    status.automatic = isAutomatic(*engine);
  }
  status.destination = backupDestination(status.destinationProblem);
  if (status.destination) {
    if (auto volume = volumeOf(*status.destination)) status.volume = std::move(*volume);
    const auto snapshots = snapshotsIn(snapshotFolder(*status.destination));
    status.snapshots = snapshots.size();
    std::string ignored;
    status.latest = findSnapshot(snapshots, "", ignored);
  }
  status.run = pidFileState();
  status.running = runningBackup();
  status.record = latestRecord();
  status.handOver = handOver();
  status.setAside = itemsSetAside().size();
  if (status.record) status.estimate = status.record->estimateBytes;
  // Halyard refuses while a run is active, and its size command empties the progress log.
  if (arguments.size && status.setUp && !status.running &&
      status.run.owner == PidFileState::Owner::none) {
    status.estimate = sizeEstimate();
  }
  if (auto configuration = helmsmanConfiguration(status.configurationProblem)) {
    status.leftOut = std::move(configuration->leftOut);
  }
  status.services = serviceLines(status.record);
  status.uncovered = uncoveredServers();
}

nlohmann::json serviceJson(const ServiceLine& line) {
  nlohmann::json document = {
      {"name", line.name},
      {"on", line.on},
      {"installed", line.installed},
      {"onThisHost", line.installed ? nlohmann::json(!line.absent) : nlohmann::json()},
      {"lastResult", nullptr},
      {"lastGood", nullptr},
      {"problems", nlohmann::json::array()}};
  if (line.last != nullptr) {
    document["lastResult"] = resultWord(*line.last);
    document["problems"] = line.last->problems;
  }
  if (line.good) {
    document["lastGood"] = timeText(line.good->time);
    document["bytes"] = line.good->bytes;
  }
  return document;
}

nlohmann::json statusJson(const HostStatus& status) {
  nlohmann::json document = {
      {"well", status.isWell()},
      {"setUp", status.setUp},
      {"automatic", status.automatic},
      {"schedule", describe(status.schedule)},
      {"destination", nullptr},
      {"latestSnapshot", nullptr},
      {"snapshots", status.snapshots},
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
      {"recovery",
       {{"waits", status.handOver.waitsForRecovery()},
        {"recordedVolume", status.handOver.recorded},
        {"bootedVolume", status.handOver.booted}}},
      {"services", nlohmann::json::array()},
      {"uncovered", nlohmann::json::array()}};
  if (status.running) {
    document["run"]["process"] = status.running->process;
    document["run"]["command"] = "backup";
    document["run"]["phase"] = status.running->phase;
    document["run"]["service"] = status.running->service;
    document["run"]["started"] = timeText(status.running->started);
  }
  if (status.destination) document["destination"] = {{"path", *status.destination}};
  if (status.volume) {
    document["destination"]["availableBytes"] = status.volume->availableBytes;
    document["destination"]["totalBytes"] = status.volume->totalBytes;
  }
  if (status.latest) document["latestSnapshot"] = status.latest->name;
  if (status.record) {
    document["lastBackup"] = recordJson(*status.record);
    document["lastBackup"].erase("services");
    document["lastBackup"].erase("lastGood");
  }
  if (status.estimate) document["estimateBytes"] = *status.estimate;
  for (const ServiceLine& line : status.services) document["services"].push_back(serviceJson(line));
  for (const UncoveredServer& server : status.uncovered) {
    document["uncovered"].push_back(
        {{"server", server.name}, {"program", server.program}, {"service", nullptr}});
    if (!server.service.empty()) document["uncovered"].back()["service"] = server.service;
  }
  return document;
}

std::string destinationText(const HostStatus& status) {
  if (!status.destination) return status.destinationProblem;
  std::string text = *status.destination;
  if (status.volume) {
    text += ", " + sizeText(status.volume->availableBytes) + " of " +
            sizeText(status.volume->totalBytes) + " free";
  }
  if (status.estimate) text += ", the services need " + sizeText(*status.estimate);
  return text;
}

std::string latestText(const HostStatus& status, std::int64_t now) {
  if (!status.latest) return "none";
  const auto time = beginOf(*status.latest);
  return status.latest->name + (time ? ", " + ageText(now - *time) : "") + " (" +
         std::to_string(status.snapshots) + " kept)";
}

std::string lastBackupText(const HostStatus& status, std::int64_t now) {
  if (!status.record) return "none";
  std::string text = std::string(resultWord(status.record->result)) + ", " +
                     ageText(now - status.record->finished);
  const auto good = status.record->lastGood.find("");
  if (status.record->result != RunRecord::Result::good) {
    text += good == status.record->lastGood.end()
                ? ", never a good one"
                : ", the last good one " + ageText(now - good->second.time);
  }
  return text;
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

void printText(const HostStatus& status) {
  const std::int64_t now = secondsNow();
  std::vector<std::vector<std::string>> rows = {
      {"Host:", status.setUp ? "set up" : "not set up (see: helmsman setup)"},
      {"Automatic:", (status.automatic ? "" : "off, ") + describe(status.schedule)},
      {"Destination:", destinationText(status)},
      {"Latest snapshot:", latestText(status, now)},
      {"Last backup:", lastBackupText(status, now)},
      {"Activity:", activityText(status, now)}};
  for (const std::string& path : status.leftOut) rows.push_back({"Left out:", path});
  if (status.handOver.waitsForRecovery()) {
    rows.push_back({"Recovery:", "recovered host, waits for: helmsman recover"});
  }
  if (status.setAside > 0) {
    rows.push_back({"Set aside:", std::to_string(status.setAside) +
                                      " items by restores (see: helmsman tidy --dry-run)"});
  }
  (void)std::fputs(factsText(rows).c_str(), stdout);
  if (!status.configurationProblem.empty()) printLine("Problem: " + status.configurationProblem);
  if (status.record) {
    for (const std::string& problem : status.record->problems) printLine("Problem: " + problem);
  }

  rows = {{"SERVICE", "BACKUP", "LAST RUN", "LAST GOOD", "SIZE"}};
  for (const ServiceLine& line : status.services) {
    rows.push_back({line.name,
                    !line.installed ? "not installed"
                    : line.absent   ? "not on this host"
                    : line.on       ? "on"
                                    : "off",
                    line.last == nullptr ? "-" : resultWord(*line.last),
                    line.good ? ageText(now - line.good->time) : "-",
                    line.good ? sizeText(line.good->bytes) : "-"});
  }
  (void)std::fputs(("\n" + tableText(rows)).c_str(), stdout);
  for (const ServiceLine& line : status.services) {
    if (line.last == nullptr) continue;
    for (const std::string& problem : line.last->problems) {
      printLine("Problem: " + line.name + ": " + problem);
    }
  }
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

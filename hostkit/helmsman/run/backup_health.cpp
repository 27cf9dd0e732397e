// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/backup_health.h"

#include <algorithm>
#include <map>

#include "common/machine.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/run/current_run.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/services.h"
#include "host/files/property_file.h"
#include "product/paths.h"
#include "product/snapshot_name.h"

namespace halyard::hostkit {

namespace {

// What the record says of its last good run, of a service or, with an empty name, of the host.
const GoodBackup* recordedGood(const BackupHealth& health, const std::string& name) {
  if (!health.record) return nullptr;
  const auto found = health.record->lastGood.find(name);
  return found == health.record->lastGood.end() ? nullptr : &found->second;
}

void lookForGood(const BackupHealth& health, ServiceHealth& service) {
  const GoodBackup* recorded = recordedGood(health, service.name);
  const Snapshot* holder =
      health.snapshotsAreKnown() ? newestWhole(health.snapshots, {service.name}) : nullptr;
  if (holder != nullptr) {
    service.snapshot = holder->name;
    service.lastGood = beginOf(*holder);
  }
  const bool isOfRecord = holder != nullptr
                              ? recorded != nullptr && recorded->snapshot == holder->path
                              : !health.snapshotsAreKnown() && recorded != nullptr;
  if (!isOfRecord) return;
  service.lastGood = recorded->time;
  service.bytes = recorded->bytes;
}

std::vector<ServiceHealth> servicesOf(const BackupHealth& health) {
  const PropertyDictionary preferences = servicePreferences();
  std::map<std::string, ServiceHealth> services;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    if (descriptor.serviceName().empty()) continue;
    ServiceHealth& service = services[descriptor.serviceName()];
    // Two descriptors may share one service.
    service.absent = (!service.installed || service.absent) && !isOnThisHost(descriptor);
    service.installed = true;
  }
  for (const auto& [key, value] : preferences) {
    ServiceHealth& service = services[key];
    service.expected = !service.installed && value.integerValue() != 0;
  }
  std::vector<ServiceHealth> sorted;
  for (auto& [name, service] : services) {
    service.name = name;
    service.on = isBackedUp(preferences, name);
    service.expected = service.expected || (service.installed && service.on && !service.absent);
    if (health.record) {
      const auto last = std::ranges::find(health.record->services, name, &ServiceResult::name);
      if (last != health.record->services.end()) service.last = *last;
    }
    lookForGood(health, service);
    sorted.push_back(std::move(service));
  }
  return sorted;
}

// The time of the last good run while its snapshot is there; then that of the oldest backup that a
// service would be restored from.
std::optional<std::int64_t> lastGoodOf(const BackupHealth& health) {
  if (!health.record) return std::nullopt;
  const GoodBackup* recorded = recordedGood(health, "");
  const bool isGoodElsewhere =
      health.record->result == RunRecord::Result::good && health.record->snapshot.empty();
  if (isGoodElsewhere) return health.record->finished;  // Another engine takes the snapshots.
  if (recorded == nullptr) return std::nullopt;
  if (!health.snapshotsAreKnown() || std::ranges::find(health.snapshots, recorded->snapshot,
                                                       &Snapshot::path) != health.snapshots.end()) {
    return recorded->time;
  }
  std::optional<std::int64_t> oldest;
  for (const ServiceHealth& service : health.services) {
    if (!service.expected) continue;
    if (!service.lastGood) return std::nullopt;
    oldest = std::min(oldest.value_or(recorded->time), *service.lastGood);
  }
  return oldest;
}

void addMissing(BackupHealth& health) {
  static constexpr char kAdvice[] = "run helmsman backup";
  // Before the first run there is nothing to miss; another engine's snapshots are not looked at.
  if (!health.record || !health.snapshotsAreKnown()) return;
  if (health.snapshots.empty() && recordedGood(health, "") != nullptr) {
    health.problems.push_back({"no snapshot is left of the backups of this host", kAdvice});
    return;
  }
  const bool isGoodElsewhere = health.record->snapshot.empty() && health.snapshots.empty();
  for (const ServiceHealth& service : health.services) {
    if (isGoodElsewhere || !service.expected || service.lastGood) continue;
    health.problems.push_back({"no snapshot holds " + service.name + " whole", kAdvice});
  }
}

void addOverdue(std::int64_t now, BackupHealth& health) {
  const std::int64_t longest = longestAge(health.schedule);
  const auto isTooOld = [&](std::int64_t time) { return now - time > longest; };
  const std::string due = health.automatic ? ", and one is due " + periodText(health.schedule)
                                           : ", and automatic backups are off";
  const std::string advice =
      health.automatic
          ? std::string("look why none after it was good: journalctl --unit ") + kBackupUnit
          : "run helmsman schedule --on";
  if (health.lastGood && isTooOld(*health.lastGood)) {
    health.problems.push_back(
        {"the last good backup was " + ageText(now - *health.lastGood) + due, advice});
    return;
  }
  for (const ServiceHealth& service : health.services) {
    if (!service.expected || !service.lastGood || !isTooOld(*service.lastGood)) continue;
    health.problems.push_back({"the last good backup of " + service.name + " was " +
                                   ageText(now - *service.lastGood) + due,
                               advice});
  }
}

// A service that a restore left half way is no state to back up.
void addBrokenRestores(std::int64_t now, BackupHealth& health) {
  for (const RestoreRecord& record : readRestoreRecords()) {
    const bool isOver = record.finished || record.undone;
    if (isOver || std::ranges::none_of(record.items, standsAside)) continue;
    health.problems.push_back({"the restore of " + record.service + ", begun " +
                                   ageText(now - record.time) + ", did not come to its end",
                               "unless it still runs: helmsman undo " + shellWord(record.service)});
  }
}

}  // namespace

BackupHealth backupHealth(std::int64_t now) {
  BackupHealth health;
  if (const auto engine = host::readDictionary(paths::kEnginePreferenceFile)) {
    health.schedule = scheduleFrom(*engine);
    health.automatic = isAutomatic(*engine);
  }
  health.timer = timerReport(Timed::backup, calendarExpression(health.schedule));
  health.destination = currentDestination();
  if (health.snapshotsAreKnown()) {
    health.snapshots = snapshotsIn(snapshotFolder(health.destination.path));
    std::erase_if(health.snapshots, [](const Snapshot& snapshot) { return snapshot.inProgress; });
  }
  health.record = latestRecord();
  health.services = servicesOf(health);
  health.lastGood = lastGoodOf(health);
  addMissing(health);
  addOverdue(now, health);
  addBrokenRestores(now, health);
  health.scrub = scrubHealth(now, health.snapshotsAreKnown() ? &health.snapshots : nullptr);
  health.problems.insert(health.problems.end(), health.scrub.problems.begin(),
                         health.scrub.problems.end());
  if (health.automatic) {
    health.problems.insert(health.problems.end(), health.timer.faults.begin(),
                           health.timer.faults.end());
  }
  return health;
}

}  // namespace halyard::hostkit

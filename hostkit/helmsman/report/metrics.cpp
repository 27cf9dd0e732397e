// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/report/metrics.h"

#include <cerrno>
#include <cstdio>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/safe_folder.h"
#include "common/times.h"
#include "helmsman/run/current_run.h"
#include "host/files/files.h"
#include "host/log/system_log.h"

namespace halyard::hostkit {

namespace {

constexpr int kDaemonError = 27;       // LOG_DAEMON | LOG_ERR
constexpr std::int64_t kSameRun = 60;  // Seconds between a run's own record and the unit's hook.

std::string escapedLabel(const std::string& text) {
  std::string result;
  for (const char character : text) {
    if (character == '\\' || character == '"') result += '\\';
    if (character == '\n') {
      result += "\\n";
    } else {
      result += character;
    }
  }
  return result;
}

class Metrics {
 public:
  void describe(const char* name, const char* help) {
    text_ += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
  }
  void value(const char* name, std::int64_t number) {
    text_ += std::string(name) + " " + std::to_string(number) + "\n";
  }
  void value(const char* name, const std::string& service, std::int64_t number) {
    text_ += std::string(name) + "{service=\"" + escapedLabel(service) + "\"} " +
             std::to_string(number) + "\n";
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

void addServices(const BackupHealth& health, Metrics& metrics) {
  metrics.describe("halyard_service_result", "1 when the last backup of the service was good.");
  for (const ServiceHealth& service : health.services) {
    // What is not on this host is neither good nor bad.
    if (service.on && service.last && !service.last->absent) {
      metrics.value("halyard_service_result", service.name, service.last->done ? 1 : 0);
    }
  }
  metrics.describe("halyard_service_bytes", "Size of the service in the last backup.");
  for (const ServiceHealth& service : health.services) {
    if (service.on && service.last) {
      metrics.value("halyard_service_bytes", service.name,
                    static_cast<std::int64_t>(service.last->bytes));
    }
  }
  metrics.describe("halyard_service_last_good_timestamp_seconds",
                   "When the service was last backed up whole, as a snapshot still holds it; 0 for "
                   "none.");
  for (const ServiceHealth& service : health.services) {
    if (service.expected || (service.on && service.lastGood)) {
      metrics.value("halyard_service_last_good_timestamp_seconds", service.name,
                    service.lastGood.value_or(0));
    }
  }
}

void addSchedule(const BackupHealth& health, Metrics& metrics) {
  metrics.describe("halyard_backup_automatic", "1 when automatic backups are switched on.");
  metrics.value("halyard_backup_automatic", health.automatic ? 1 : 0);
  if (health.timer.unknown.empty()) {
    metrics.describe("halyard_backup_timer_active", "1 when systemd starts the next backup.");
    metrics.value("halyard_backup_timer_active", health.timer.starts ? 1 : 0);
  }
  metrics.describe("halyard_backup_longest_age_seconds",
                   "How old the last good backup may become: two periods of the schedule.");
  metrics.value("halyard_backup_longest_age_seconds", longestAge(health.schedule));
  metrics.describe("halyard_destination_available",
                   "1 when the destination is there; last good times are unchecked otherwise.");
  metrics.value("halyard_destination_available", health.snapshotsAreKnown() ? 1 : 0);
}

void addScrub(const ScrubHealth& scrub, Metrics& metrics) {
  if (!scrub.record && scrub.period == ScrubPeriod::off) return;
  metrics.describe("halyard_scrub_result", "1 when the last part that was read was good.");
  metrics.value("halyard_scrub_result",
                scrub.record && scrub.record->result == ScrubRecord::Result::good ? 1 : 0);
  metrics.describe("halyard_scrub_timestamp_seconds", "When a part was last read; 0 for never.");
  metrics.value("halyard_scrub_timestamp_seconds", scrub.record ? scrub.record->finished : 0);
  metrics.describe("halyard_scrub_oldest_part_timestamp_seconds",
                   "When the part was read that was not read for the longest; 0 for never.");
  metrics.value("halyard_scrub_oldest_part_timestamp_seconds",
                oldestPart(scrub.record, scrub.parts).value_or(0));
  metrics.describe("halyard_snapshot_damaged_files", "Files in snapshots that are damaged.");
  metrics.value("halyard_snapshot_damaged_files",
                scrub.record ? static_cast<std::int64_t>(scrub.record->damaged.size()) : 0);
}

std::string currentMetrics() { return metricsText(backupHealth(secondsNow())); }

// The folder may be another account's, who must not lead root astray.
bool writeTo(const std::string& path) {
  // Read by an account of its own.
  constexpr mode_t kMode = 0644;
  const Result<host::Descriptor> folder = openFolderSafely(path);
  const Status written = folder
                             ? host::writeFileAt(folder->get(), kMetricsFileName, currentMetrics(),
                                                 host::Durability::power, kMode)
                             : folder.error();
  if (written) return true;
  const int error = written.error().code;
  if (error == ENOENT) {
    printError("the folder " + path + " is not there: install prometheus-node-exporter, or name " +
               "the one of another collector with --folder");
    return false;
  }
  printError(joinPath(path, kMetricsFileName) + " could not be written: " +
             (error == ELOOP || error == ENOTDIR ? "a part of the path is a link or no folder"
                                                 : errnoText(error)));
  return false;
}

// A run that ended by itself has kept its own record, and not a good one; one that was killed has
// left its mark; one that never came to its start has left nothing. What another run does now is
// no matter of the unit that failed.
bool recordFailedUnit(const std::string& unit) {
  host::systemLog(kDaemonError, "helmsman: the unit " + unit + " failed (see: helmsman status)");
  if (runningBackup()) return true;
  if (interruptedRun()) return settleInterruptedRun();
  const auto before = readLastRecord();
  if (before && before->result != RunRecord::Result::good &&
      secondsNow() - before->finished < kSameRun) {
    return true;
  }
  RunRecord record;
  record.started = secondsNow();
  record.finished = record.started;
  record.problems.push_back("the unit " + unit + " failed before the backup ended");
  inheritGood(record, before);
  if (keepRecord(record)) return true;
  printError(std::string("the result could not be kept in ") + kStateFolder);
  return false;
}

}  // namespace

std::string metricsText(const BackupHealth& health) {
  const std::optional<RunRecord>& record = health.record;
  Metrics metrics;
  metrics.describe("halyard_backup_known", "1 when this host has a record of a backup.");
  metrics.value("halyard_backup_known", record ? 1 : 0);
  addSchedule(health, metrics);
  addScrub(health.scrub, metrics);
  if (!record) return metrics.take();
  metrics.describe("halyard_backup_result", "1 when the last backup was good.");
  metrics.value("halyard_backup_result", record->result == RunRecord::Result::good ? 1 : 0);
  metrics.describe("halyard_backup_interrupted",
                   "1 when the last backup was stopped or killed, crashed, or the power failed.");
  metrics.value("halyard_backup_interrupted",
                record->result == RunRecord::Result::interrupted ? 1 : 0);
  metrics.describe("halyard_backup_timestamp_seconds", "When the last backup ended.");
  metrics.value("halyard_backup_timestamp_seconds", record->finished);
  metrics.describe("halyard_backup_duration_seconds", "How long the last backup took.");
  metrics.value("halyard_backup_duration_seconds", record->finished - record->started);
  metrics.describe("halyard_backup_last_good_timestamp_seconds",
                   "When the host was last backed up without a problem, as it is still there; 0 "
                   "for never.");
  metrics.value("halyard_backup_last_good_timestamp_seconds", health.lastGood.value_or(0));
  addServices(health, metrics);
  return metrics.take();
}

int metrics(const MetricsArguments& arguments) {
  if (!arguments.unitFailed.empty()) {
    const bool recorded = recordFailedUnit(arguments.unitFailed);
    return writeMetricsWhereWanted() && recorded ? kSuccess : kFailure;
  }
  if (!arguments.write) {
    (void)std::fputs(currentMetrics().c_str(), stdout);
    return finishOutput() ? kSuccess : kFailure;
  }
  const std::string folder = arguments.folder.empty() ? kMetricsFolder : arguments.folder;
  return writeTo(folder) ? kSuccess : kFailure;
}

bool writeMetricsWhereWanted() {
  return !host::isDirectory(kMetricsFolder) || writeTo(kMetricsFolder);
}

}  // namespace halyard::hostkit

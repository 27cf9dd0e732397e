// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether the backups of this host can be relied on: what is kept of them, how old it is, and
// whether the next one starts by itself. What status, metrics and check say of it is from here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/problem.h"
#include "helmsman/run/run_record.h"
#include "helmsman/run/scrub_record.h"
#include "helmsman/settings/schedule.h"
#include "helmsman/settings/timer.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

struct ServiceHealth {
  std::string name;
  bool on = false;
  bool installed = false;
  bool absent = false;    ///< Installed, and nothing of it is on this host.
  bool expected = false;  ///< A backup has to hold it.
  std::optional<ServiceResult> last;
  /// When it was last backed up whole, by the newest snapshot that holds it so; while the snapshots
  /// cannot be looked at, by the record alone.
  std::optional<std::int64_t> lastGood;
  std::optional<std::uint64_t> bytes;  ///< Then; absent when no record is of that snapshot.
  std::string snapshot;  ///< That one's name; empty when none holds it, or that is not known.
};

struct BackupHealth {
  bool automatic = false;  ///< Switched on by helmsman schedule.
  Schedule schedule;
  TimerReport timer;
  Destination destination;
  std::vector<Snapshot> snapshots;  ///< Complete ones; not known unless `destination` is there.
  std::optional<RunRecord> record;  ///< Of the latest run.
  std::vector<ServiceHealth> services;
  /// When the host was last backed up without a problem, by what is still there of it.
  std::optional<std::int64_t> lastGood;
  ScrubHealth scrub;
  /// That no whole snapshot holds a service, that the last good backup is too old, that nothing
  /// starts the next one, that a restore broke off, that snapshots are damaged or were not read
  /// for long. What the record itself tells is not among them.
  std::vector<Problem> problems;

  bool snapshotsAreKnown() const { return destination.state == Destination::State::there; }
};

/// Reads: preferences, descriptors, the latest record, the snapshots at the destination.
/// Runs:  systemctl, when systemd is the init system.
BackupHealth backupHealth(std::int64_t now);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The backup that runs now, and the one that never came to its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "helmsman/run/run_record.h"
#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// Held from the start to the end of a backup: a lock, which no death of this process survives,
/// what it does (below /run, for status), and a mark that survives a power cut.
class CurrentRun {
 public:
  /// Absent when another backup, or a restore, holds the host, or, with the reason, when the files
  /// cannot be made.
  static std::optional<CurrentRun> begin(std::string& problem);
  CurrentRun(CurrentRun&&) noexcept = default;
  CurrentRun& operator=(CurrentRun&&) = delete;
  /// Without end() the mark stays, and the run counts as interrupted.
  ~CurrentRun() = default;

  /// Keeps the record of a run before this one that was interrupted. False when it could not be
  /// written.
  bool settleInterrupted() const;
  /// Leaves the mark, from where on the run is one.
  bool mark(std::int64_t started) const;
  /// What it does now; a service is empty outside of one.
  void tell(const std::string& phase, const std::string& service) const;
  /// The record of this run is kept.
  static void end();

 private:
  explicit CurrentRun(host::Descriptor lock) : lock_(std::move(lock)) {}
  host::Descriptor lock_;
};

/// What a running backup tells of itself.
struct RunningBackup {
  int process = 0;
  std::int64_t started = 0;  ///< 0 when that cannot be read.
  std::string phase;
  std::string service;
};

/// Absent when none runs.
std::optional<RunningBackup> runningBackup();

/// Whether it has been running for longer than a backup takes: more likely it will never end.
bool isOverdue(const RunningBackup& running);

/// The record of a backup that was killed, crashed or cut off by power; absent when the last one
/// ended by itself or is still running.
std::optional<RunRecord> interruptedRun();

/// The latest record of this host, that of an interrupted run included.
std::optional<RunRecord> latestRecord();

/// Removes the mark when it is one that came with the snapshot of a lost host: it stood there
/// because the run that took the snapshot was at work. For who uses up the "/.Halyards" by which it
/// is known.
void dropMarkOfLostHost();

/// Keeps the record of an interrupted run for good, unless a backup is running, which does so
/// itself. False when it could not be written.
bool settleInterruptedRun();

/// Says why begin() gave nothing, by its reason, and returns the exit status: kBusy, but kFailure
/// for what holds up all others for a day, which is no reason to be quiet.
int refuseBeside(const std::string& problem);

}  // namespace halyard::hostkit

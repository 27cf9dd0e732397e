// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman backup": the whole cycle, and an honest judgement of it.
#pragma once

#include <chrono>
#include <optional>

namespace halyard::hostkit {

struct BackupArguments {
  bool json = false;
  bool quiet = false;
  bool noSnapshot = false;  ///< Only what Halyard does; "/.Halyards" stays for another engine.
  bool noEstimate = false;  ///< Do not ask the services for their size first.
  /// How long a plug-in may make no progress; else as the configuration says.
  std::optional<std::chrono::seconds> stallLimit;
};

/// Size estimate, Halyard's backup, the check of what it left behind, the snapshot, the check that
/// the snapshot carries the signature of this run, postBackupComplete, retention.
///
/// Halyard's own status is 0 whatever failed on the way, so the run is judged by its platform log,
/// its output, its progress log and its files. A listed file that this host does not have is no
/// problem, unless the latest snapshot has it. When the snapshot fails, "/.Halyards" stays.
/// Snapshots are only pruned after a run that was good: every service that is switched on is in the
/// snapshot, whole, and nothing else went wrong.
///
/// A plug-in that makes no progress for its limit is ended with its children, the service has
/// failed, and the run goes on. SIGTERM, SIGINT and SIGHUP end the whole run in order.
///
/// Writes:  the record that status and metrics read.
/// Returns: success after a good run; kPartial when the snapshot holds some services and lacks
///          others; kBusy, and nothing recorded, when another run is active;
///          kUsageError for a configuration that says something unknown; else failure.
int backup(const BackupArguments& arguments);

}  // namespace halyard::hostkit

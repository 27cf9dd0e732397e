// "helmsman backup": the whole cycle, and an honest judgement of it.
#pragma once

namespace halyard::hostkit {

struct BackupArguments {
  bool json = false;
  bool quiet = false;
  bool noSnapshot = false;  ///< Only what Halyard does; "/.Halyards" stays for another engine.
  bool noEstimate = false;  ///< Do not ask the services for their size first.
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
/// Writes:  the record that status and metrics read.
/// Returns: success after a good run; kPartial when the snapshot holds some services and lacks
///          others; kBusy when another run is active.
int backup(const BackupArguments& arguments);

}  // namespace halyard::hostkit

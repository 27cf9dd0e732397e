// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// One run of Halyard that restores a service, watched so that it can be taken back.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "helmsman/restore/restore_plan.h"
#include "helmsman/restore/restore_trace.h"
#include "host/process/task.h"

namespace halyard::hostkit {

/// A run of Halyard, and what its restore programs told meanwhile.
struct JournaledRun {
  host::TaskResult result;
  std::string journal;      ///< As parseJournal() and journalsOf() take it.
  std::timespec started{};  ///< By the clock of time stamps in file systems.
};

/// Runs Halyard with these words; its restore programs find the file at `path` by
/// kJournalVariable, and it is gone afterwards.
JournaledRun runWithJournal(const std::vector<std::string>& words, const std::string& path);

class WatchedRestore {
 public:
  /// Looks at every planned path, and keeps what is planned as the record of the service, so that
  /// undo knows its way whatever ends this process.
  WatchedRestore(const std::string& service, const std::string& snapshot,
                 const std::vector<PlannedItem>& plan);

  /// Whether the record could be written; nothing may be restored otherwise.
  bool canStart() const { return kept_; }

  /// Runs Halyard with these words, and settles. The plug-in may tell its part in the file that
  /// kJournalVariable names.
  host::TaskResult run(const std::vector<std::string>& words);
  /// After a run that began at `started`: compares the host, brings it all to disk and keeps what
  /// was found. `told` is what the restore program of this service wrote.
  void settle(const PlugInJournal& told, const std::timespec& started);

  /// What the run set aside, made and changed.
  const RestoreRecord& record() const { return record_; }
  /// What the plug-in itself and the last steps of settle() say went wrong.
  const std::vector<std::string>& problems() const { return problems_; }
  /// What its restore programs told.
  const PlugInJournal& told() const { return told_; }

 private:
  void bringToDisk();

  RestoreRecord record_;
  std::vector<PathBefore> before_;
  std::vector<std::string> problems_;
  PlugInJournal told_;
  std::string journal_;
  bool kept_ = false;
};

}  // namespace halyard::hostkit

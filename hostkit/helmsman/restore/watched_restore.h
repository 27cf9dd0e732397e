// One run of Halyard that restores a service, watched so that it can be taken back.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "helmsman/restore/restore_plan.h"
#include "helmsman/restore/restore_trace.h"
#include "host/process/task.h"

namespace halyard::hostkit {

/// Runs Halyard with these words; `journal` is what its restore programs wrote into the file at
/// `path`, which they find by kJournalVariable and which is gone afterwards.
host::TaskResult runWithJournal(const std::vector<std::string>& words, const std::string& path,
                                PlugInJournal& journal);

class WatchedRestore {
 public:
  /// Looks at every planned path, and keeps what is planned as the record of the service, so that
  /// undo knows its way whatever ends this process.
  WatchedRestore(const std::string& service, const std::string& snapshot,
                 const std::vector<PlannedItem>& plan);

  /// Whether the record could be written; nothing may be restored otherwise.
  bool canStart() const { return kept_; }

  /// Runs Halyard with these words, compares the host afterwards, brings it all to disk and keeps
  /// what was found. The plug-in may tell its part in the file that kJournalVariable names.
  host::TaskResult run(const std::vector<std::string>& words);

  /// What the run set aside, made and changed.
  const RestoreRecord& record() const { return record_; }
  /// What the plug-in itself and the last steps of run() say went wrong.
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

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/watched_restore.h"

#include <algorithm>
#include <cstdlib>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/tree/move_item.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kJournalLimit = std::size_t{16} << 20;
constexpr mode_t kJournalMode = 0600;
constexpr mode_t kUndoFolderMode = 0700;

// As the kernel stamps changes.
std::timespec coarseNow() {
  std::timespec now{};
  (void)::clock_gettime(CLOCK_REALTIME_COARSE, &now);  // Cannot fail for this clock.
  return now;
}

}  // namespace

WatchedRestore::WatchedRestore(const std::string& service, const std::string& snapshot,
                               const std::vector<PlannedItem>& plan)
    : journal_(joinPath(kUndoFolder, service + ".journal")) {
  std::vector<std::string> paths;
  record_.service = service;
  record_.snapshot = snapshot;
  record_.time = secondsNow();
  for (const PlannedItem& item : plan) {
    paths.push_back(item.path);
    if (item.inSnapshot) record_.items.push_back({item.path, item.live, {}});
  }
  before_ = lookBefore(paths);
  // What earlier restores set aside elsewhere is still theirs.
  record_.older = leftOf(readRestoreRecord(service), record_.items);
  kept_ = keepRestoreRecord(record_);
}

JournaledRun runWithJournal(const std::vector<std::string>& words, const std::string& path) {
  JournaledRun run;
  (void)host::removeItem(path);  // One of a run that was cut off.
  if (makeFolders(kUndoFolder, kUndoFolderMode) && host::createOrEmptyFile(path, kJournalMode)) {
    ::setenv(kJournalVariable, path.c_str(), 1);
  }
  run.started = coarseNow();
  run.result = runHalyard(words);
  ::unsetenv(kJournalVariable);
  run.journal = host::readFile(path, kJournalLimit).value_or("");
  (void)host::removeItem(path);  // What it says is in a record from here on.
  return run;
}

host::TaskResult WatchedRestore::run(const std::vector<std::string>& words) {
  JournaledRun run = runWithJournal(words, journal_);
  settle(parseJournal(run.journal), run.started);
  return std::move(run.result);
}

void WatchedRestore::settle(const PlugInJournal& told, const std::timespec& started) {
  told_ = told;
  problems_ = told_.problems;

  const auto older = leftOf(readRestoreRecord(record_.service), {});
  traceRestore(before_, told_, started, record_);
  record_.older.clear();
  for (const RestoreRecord::Item& item : older) {
    const auto isIt = [&item](const RestoreRecord::Item& now) { return now.path == item.path; };
    if (std::ranges::none_of(record_.items, isIt)) record_.older.push_back(item);
  }
  bringToDisk();
  if (!keepRestoreRecord(record_)) {
    problems_.emplace_back("the record for undo could not be written");
  }
}

void WatchedRestore::bringToDisk() {
  std::vector<std::string> paths;
  for (const PathBefore& path : before_) paths.push_back(path.path);
  for (const RestoreRecord::Item& item : record_.items) paths.push_back(item.path);
  if (const Status synced = host::syncFileSystems(paths); !synced) {
    problems_.push_back("what was restored may not be on disk: " + errnoText(synced.error().code));
  }
}

}  // namespace halyard::hostkit

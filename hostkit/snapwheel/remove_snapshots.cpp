// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/remove_snapshots.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "host/files/sync.h"
#include "host/volumes/subvolume.h"
#include "product/paths.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kRemovedTogether = 64;

/// The name while it is being removed: no instant, so that it is never taken over as a snapshot
/// that was interrupted while it was being made.
std::string nameWhileRemoved(const std::string& name) {
  return "removed-" + name + std::string(kInProgress);
}

void removeOne(const Repository& repository, int folder, std::string name) {
  if (!isInProgress(name)) {
    if (repository.latest() == name) (void)settleLatest(repository, name);
    std::string doomed = nameWhileRemoved(name);
    // A read-only subvolume cannot be renamed everywhere; it goes in one step anyway.
    if (std::rename(repository.path(name).c_str(), repository.path(doomed).c_str()) == 0) {
      name = std::move(doomed);
    } else if (const int error = errno; !host::isSubvolume(folder, name)) {
      throw Failure(errorText(repository.path(name), error));
    }
  }
  if (const Status removed = host::removeWithSubvolumes(folder, name); !removed) {
    throw Failure(errorText(repository.path(name), removed.error().code));
  }
}

bool holdsServices(const std::string& snapshot) {
  const auto manifest = readManifest(snapshot);
  return manifest && carriesBackup(joinPath(snapshot, manifest->volume));
}

/// What a snapshot is worth when others may go for it. A file that is written all the time must
/// not fill the disk with snapshots: torn ones hold nothing back, but they make none good.
enum class Worth { lacking, torn, good };

Worth worthOf(const std::string& snapshot) {
  const auto manifest = readManifest(snapshot);
  const bool isWhole = manifest && manifest->lacksNothing() && !manifest->unfinishedBackup &&
                       backupProblems(joinPath(snapshot, manifest->volume)).empty();
  if (!isWhole) return Worth::lacking;
  return manifest->complete ? Worth::good : Worth::torn;
}

/// Whether older snapshots may go for it: it lacks nothing, and when any of them holds the
/// services, it does so too, and whole.
bool mayReplace(const Repository& repository, const std::vector<std::string>& names) {
  if (names.empty()) return false;
  const std::string newest = repository.path(names.back());
  if (worthOf(newest) == Worth::lacking) return false;
  return holdsServices(newest) || std::ranges::none_of(names, [&](const std::string& name) {
           return holdsServices(repository.path(name));
         });
}

/// Snapshots whose backup is not whole take no place of others: what the rules keep among those
/// that are whole stays, too, and so does the newest one without a torn file.
void keepOfWhole(const Repository& repository, const RetentionRules& rules, Instant now,
                 std::vector<PlannedRemoval>& plan) {
  std::vector<PlannedRemoval*> whole;
  std::vector<Instant> instants;
  PlannedRemoval* newestGood = nullptr;
  for (PlannedRemoval& item : plan) {
    const Worth worth = worthOf(repository.path(item.name));
    if (worth == Worth::lacking) continue;
    if (worth == Worth::good) newestGood = &item;
    whole.push_back(&item);
    instants.push_back(*snapshotInstant(item.name));
  }
  const std::vector<Verdict> verdicts = judge(instants, rules, now);
  for (std::size_t index = 0; index < whole.size(); ++index) {
    if (!whole[index]->verdict.keep) whole[index]->verdict = verdicts[index];
  }
  if (newestGood != nullptr && !newestGood->verdict.keep) newestGood->verdict = {true, kNewestGood};
}

void keepPinned(const Repository& repository, std::vector<PlannedRemoval>& plan) {
  for (PlannedRemoval& item : plan) {
    item.pin = hostkit::readPin(repository.path(item.name));
    if (!item.pin) continue;
    const bool isKeptByRule = item.verdict.keep && item.verdict.reason != kNewestIsNotGood;
    item.verdict = {true, isKeptByRule ? item.verdict.reason + ", " + kPinned : kPinned};
  }
}

}  // namespace

std::string settleLatest(const Repository& repository, const std::string& without) {
  std::vector<std::string> snapshots = repository.list().snapshots;
  std::erase(snapshots, without);
  std::string newest = snapshots.empty() ? std::string() : snapshots.back();
  if (repository.latest().value_or("") == newest) return newest;
  if (const Status moved = repository.setLatest(newest); !moved) throw failureOf(moved.error());
  return newest;
}

void removeSnapshots(const Repository& repository, const std::vector<std::string>& names,
                     const std::function<void(const std::string& name)>& gone) {
  const host::Descriptor folder = repository.open();
  // To settle it is to list all snapshots, so from here on only where it leads to one that goes.
  if (!names.empty()) (void)settleLatest(repository);
  std::optional<Failure> failure;
  for (std::size_t next = 0; next < names.size() && !failure;) {
    std::vector<std::string> removed;
    try {
      for (; next < names.size() && removed.size() < kRemovedTogether; ++next) {
        removeOne(repository, folder.get(), names[next]);
        removed.push_back(names[next]);
      }
    } catch (const Failure& told) {
      failure = told;
    }
    // All of the file system: a subvolume goes by its next commit, not by a sync of the folder.
    const Status synced = host::syncFileSystem(repository.hostFolder());
    if (!synced) throw failureOf(synced.error());
    if (gone) std::ranges::for_each(removed, gone);
  }
  if (failure) throw Failure(*failure);
}

std::vector<PlannedRemoval> planPrune(const Repository& repository, const RetentionRules& rules) {
  const std::vector<std::string> names = repository.list().snapshots;
  std::vector<Instant> instants;
  instants.reserve(names.size());
  for (const std::string& name : names) instants.push_back(*snapshotInstant(name));
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::vector<Verdict> verdicts = judge(instants, rules, now);

  const bool good = mayReplace(repository, names);
  std::vector<PlannedRemoval> plan;
  for (std::size_t index = 0; index < names.size(); ++index) {
    plan.push_back({names[index], verdicts[index], std::nullopt});
    if (!good && !plan.back().verdict.keep) plan.back().verdict = {true, kNewestIsNotGood};
  }
  if (good) keepOfWhole(repository, rules, now, plan);
  keepPinned(repository, plan);
  return plan;
}

}  // namespace halyard::snapwheel

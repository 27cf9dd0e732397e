// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/restore_trace.h"

#include <sys/stat.h>

#include <algorithm>

#include "base/text.h"
#include "host/tree/walk_tree.h"

namespace halyard::hostkit {

namespace {

bool isAfter(const std::timespec& time, const std::timespec& other) {
  return time.tv_sec != other.tv_sec ? time.tv_sec > other.tv_sec : time.tv_nsec > other.tv_nsec;
}

// Whether anything at or below the path has changed since; links are not followed.
bool changedSince(const std::string& path, const std::timespec& started) {
  bool changed = false;
  host::TreeWalk walk;
  walk.visit = [&](const host::WalkedItem& item) {
    changed = isAfter(item.status.st_ctim, started);
    return changed ? host::WalkStep::end : host::WalkStep::goOn;
  };
  // Of what cannot be looked at, nobody can tell.
  (void)host::walkTree(path, walk);
  return changed;
}

void tracePath(const PathBefore& before, const std::timespec& started, RestoreRecord& record) {
  const ItemIdentity live = identityOf(before.path);
  const ItemIdentity aside = identityOf(asidePath(before.path));
  const auto lose = [&](const char* why) { record.lost.push_back({before.path, why}); };
  if (aside.isKnown() && aside != before.aside) {
    record.items.push_back({before.path, true, aside});
  } else if (!before.live.isKnown() && live.isKnown()) {
    record.items.push_back({before.path, false, {}});
  } else if (before.live.isKnown() && !live.isKnown()) {
    lose("was removed, and nothing was kept of it");
  } else if (live != before.live) {
    lose("was replaced, and nothing was kept of it");
  } else if (live.isKnown() && changedSince(before.path, started)) {
    lose("was changed in place, by the restore or by its server");
  }
}

}  // namespace

std::vector<PathBefore> lookBefore(const std::vector<std::string>& paths) {
  std::vector<PathBefore> before;
  before.reserve(paths.size());
  for (const std::string& path : paths) {
    before.push_back({path, identityOf(path), identityOf(asidePath(path))});
  }
  return before;
}

bool PlugInJournal::saysDone(const std::string& service) const {
  return std::ranges::find(done, service) != done.end();
}

PlugInJournal parseJournal(std::string_view text) {
  PlugInJournal journal;
  for (const std::string_view line : splitAt(text, '\n')) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) continue;
    const std::string_view word = line.substr(0, blank);
    const std::string rest(line.substr(blank + 1));
    if (word == "problem") journal.problems.push_back(rest);
    if (word == "done") journal.done.push_back(rest);
    if (!rest.starts_with('/')) continue;
    if (word == "aside") journal.aside.push_back(rest);
    if (word == "made") journal.made.push_back(rest);
  }
  return journal;
}

std::map<std::string, std::string> journalsOf(std::string_view text) {
  std::map<std::string, std::string> journals;
  std::string service;
  std::string lines;
  const auto endWith = [&](const std::string& owner) {
    if (!lines.empty()) journals[owner] += lines;
    lines.clear();
    service.clear();
  };
  for (const std::string_view line : splitAt(text, '\n')) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) continue;
    const std::string_view word = line.substr(0, blank);
    const std::string rest(line.substr(blank + 1));
    if (word == "service") {
      endWith(service);
      service = rest;
    }
    lines += std::string(line) + '\n';
    if (word == "done") endWith(rest);
  }
  endWith(service);
  return journals;
}

void traceRestore(const std::vector<PathBefore>& before, const PlugInJournal& journal,
                  const std::timespec& started, RestoreRecord& record) {
  record.items.clear();
  record.lost.clear();
  const auto told = [](const std::vector<std::string>& paths, const std::string& path) {
    return std::ranges::find(paths, path) != paths.end();
  };
  for (const PathBefore& path : before) {
    // An inode may be used again: what the plug-in says of its own doing comes first.
    const ItemIdentity set = identityOf(asidePath(path.path));
    if (told(journal.aside, path.path) && set.isKnown()) {
      record.items.push_back({path.path, true, set});
    } else {
      tracePath(path, started, record);
    }
  }
  const auto isListed = [&before](const std::string& path) {
    return std::ranges::any_of(before,
                               [&path](const PathBefore& other) { return other.path == path; });
  };
  for (const std::string& path : journal.aside) {
    if (isListed(path)) continue;
    const ItemIdentity aside = identityOf(asidePath(path));
    if (aside.isKnown()) {
      record.items.push_back({path, true, aside});
    } else {
      record.lost.push_back({path, "was replaced, and what was set aside is gone"});
    }
  }
  for (const std::string& path : journal.made) {
    if (!isListed(path) && !told(journal.aside, path)) record.items.push_back({path, false, {}});
  }
  record.finished = true;
}

}  // namespace halyard::hostkit

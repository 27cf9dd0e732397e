// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_proof.h"

#include <utility>

namespace halyard::snapwheel {

/// The entry of that name in the current folder; null for what came into the snapshot later.
const IndexEntry* RestoreProof::meet(const char* name) {
  Level& level = levels_.back();
  const IndexEntry* entry = level.folder.find(name);
  if (entry != nullptr) {
    level.seen[static_cast<std::size_t>(entry - level.folder.entries().data())] = true;
  }
  return entry;
}

bool RestoreProof::enter(const char* name, const struct stat& /*status*/) {
  Level level;
  if (levels_.empty()) {
    level.folder = index_.root();
  } else {
    const IndexEntry* entry = meet(name);
    level.path = levels_.back().path + name + "/";
    if (entry != nullptr) level.folder = index_.below(*entry);
  }
  level.seen.resize(level.folder.entries().size());
  levels_.push_back(std::move(level));
  return false;
}

void RestoreProof::leave() {
  const Level level = std::move(levels_.back());
  levels_.pop_back();
  for (std::size_t at = 0; at < level.seen.size(); ++at) {
    if (level.seen[at]) continue;
    const std::string name(level.folder.nameOf(level.folder.entries()[at]));
    if (selection_.partOf(level.path + name) != Part::all) continue;
    tell_(level.path + name, "is missing in the snapshot");
  }
}

bool RestoreProof::isUnchanged(const char* /*name*/, const struct stat& /*status*/) {
  digest_ = kNoDigest;
  return false;
}

host::InodeFlags RestoreProof::flagsOfContents(const char* name) {
  const IndexEntry* entry = meet(name);
  return entry == nullptr ? 0 : index_.flagsOf(*entry).value_or(0) & host::kFlagsOfContents;
}

/// Whether nothing speaks against what was read.
bool RestoreProof::isProven(const IndexEntry& entry) const {
  if (digest_ == kNoDigest) return true;  // A further name of a file is not read again.
  if (entry.digest != kNoDigest) return entry.digest == digest_;
  // The name that was read then may be none of those that are restored.
  const auto named = index_.findAnywhere(entry.inode);
  return !named || named->entry->digest == kNoDigest || named->entry->digest == digest_;
}

void RestoreProof::took(const char* name, const struct stat& status) {
  const IndexEntry* entry = meet(name);
  if (entry == nullptr) return;
  const bool isOfItsKind = (entry->mode & S_IFMT) == (status.st_mode & S_IFMT);
  if (!isOfItsKind || !isProven(*entry)) {
    tell_(levels_.back().path + name, "does not hold what was put into the snapshot");
  }
}

}  // namespace halyard::snapwheel

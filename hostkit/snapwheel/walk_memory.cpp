// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/walk_memory.h"

#include <utility>

#include "host/tree/change_time.h"
#include "product/paths.h"

namespace halyard::snapwheel {

namespace {

// The change time is set when a call that writes begins. One that writes much may wait for the disk
// for so long, and have written half of it when the file is read.
constexpr off_t kMuch = off_t{1} << 20;
constexpr time_t kLongestWrite = 600;

bool isSame(const IndexEntry& entry, const struct stat& status) {
  return entry.changeTime != kUntrusted && entry.changeTime == changeTimeOf(status) &&
         entry.mode == status.st_mode;
}

bool hasSize(const IndexEntry& entry, const struct stat& status) {
  return entry.size == static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

WalkMemory::WalkMemory(SourceIndexWriter& writer, EarlierWalk before, const struct timespec& began,
                       std::function<void(const std::string& path)> tore)
    : writer_(writer),
      before_(std::move(before)),
      began_(began),
      tore_(std::move(tore)),
      lastUser_(static_cast<uid_t>(-1)),
      lastGroup_(static_cast<gid_t>(-1)) {}

bool WalkMemory::isDamaged(const char* name) const {
  return !before_.damaged.isEmpty() && before_.damaged.covers(pathOf(name));
}

std::string WalkMemory::pathOf(const char* name) const {
  std::string path;
  for (const std::string& folder : path_) path += folder + "/";
  return path + name;
}

void WalkMemory::noteOwner(const struct stat& status) {
  if (status.st_uid != lastUser_) owners_.users.insert(lastUser_ = status.st_uid);
  if (status.st_gid != lastGroup_) owners_.groups.insert(lastGroup_ = status.st_gid);
}

bool WalkMemory::enter(const char* name, const struct stat& status) {
  noteOwner(status);
  writer_.enter(name, status, host::isBefore(status, began_));
  SourceIndex::Folder folder;
  const IndexEntry* same = nullptr;
  const bool isRoot = folders_.empty();
  if (before_.index != nullptr && isRoot) {
    folder = before_.index->root();
  } else if (before_.index != nullptr) {
    if (const IndexEntry* entry = folders_.back().find(status.st_ino, name)) {
      folder = before_.index->below(*entry);
      if (isSame(*entry, status)) same = entry;
    } else if (const IndexEntry* another = folders_.back().find(name)) {
      folder = before_.index->below(*another);  // Made anew: its files may be the same.
    }
  }
  folders_.push_back(std::move(folder));
  if (!isRoot) path_.emplace_back(name);
  isAtFolder_ = true;
  carryFlags(same);
  return same != nullptr;
}

/// The change time of an item moves with its flags.
void WalkMemory::carryFlags(const IndexEntry* unchanged) {
  flags_ = unchanged == nullptr ? std::nullopt : before_.index->flagsOf(*unchanged);
  areFlagsCarried_ = flags_.has_value();
  if (isAtFolder_) writer_.setFolderFlags(flags_);
}

void WalkMemory::sawFlags(host::InodeFlags flags) {
  flags_ = flags;
  if (isAtFolder_) writer_.setFolderFlags(flags_);
}

void WalkMemory::leave() {
  folders_.pop_back();
  if (!path_.empty()) path_.pop_back();
  writer_.leave();
}

bool WalkMemory::isUnchanged(const char* name, const struct stat& status) {
  noteOwner(status);
  digest_ = kNoDigest;
  isAtFolder_ = false;
  carryFlags(nullptr);
  if (!S_ISREG(status.st_mode)) {
    flags_ = 0;
    areFlagsCarried_ = true;
  }
  if (before_.index == nullptr) return false;
  const IndexEntry* entry = folders_.back().find(status.st_ino, name);
  if (entry == nullptr || !isSame(*entry, status) || !hasSize(*entry, status)) return false;
  if (S_ISREG(status.st_mode) && isDamaged(name)) return false;
  digest_ = entry->digest;
  if (S_ISREG(status.st_mode)) carryFlags(entry);
  return true;
}

host::TreeMemory::Earlier WalkMemory::earlier(const char* name, const struct stat& status) {
  Earlier earlier;
  earlier.isDamaged = isDamaged(name);
  if (before_.index == nullptr) return earlier;
  const IndexEntry* entry = folders_.back().find(name);
  if (entry != nullptr && S_ISREG(entry->mode) && hasSize(*entry, status) &&
      entry->digest != kNoDigest) {
    earlier.digest = &entry->digest;
  }
  return earlier;
}

std::optional<host::TreeMemory::Moved> WalkMemory::movedFrom(const struct stat& status) {
  if (before_.index == nullptr) return std::nullopt;
  moved_ = before_.index->findAnywhere(status.st_ino);
  if (!moved_ || !hasSize(*moved_->entry, status)) return std::nullopt;
  const std::string path = moved_->folder + (moved_->folder.empty() ? "" : "/") + moved_->name;
  Moved moved{moved_->folder.c_str(), moved_->name.c_str(), {}, isSame(*moved_->entry, status)};
  moved.earlier.isDamaged = before_.damaged.covers(path);
  if (moved_->entry->digest != kNoDigest) moved.earlier.digest = &moved_->entry->digest;
  if (moved.isProven) digest_ = moved_->entry->digest;
  return moved;
}

/// What the engine itself may write into the snapshot, once the walk is over.
bool WalkMemory::isMark(std::string_view name) const {
  return path_.size() == 2 && path_.front() == paths::kMetadataFolderName &&
         name == paths::kIncompleteMark;
}

void WalkMemory::took(const char* name, const struct stat& status) {
  if (isMark(name)) return writer_.add(name, status, false, kNoDigest, flags_);
  struct timespec settled = began_;
  if (S_ISREG(status.st_mode) && status.st_size >= kMuch) settled.tv_sec -= kLongestWrite;
  writer_.add(name, status, host::isBefore(status, settled), digest_, flags_);
}

void WalkMemory::tookTorn(const char* name, const struct stat& status) {
  writer_.add(name, status, false, digest_, flags_);
  tore_(pathOf(name));
}

}  // namespace halyard::snapwheel

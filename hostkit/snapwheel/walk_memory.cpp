// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/walk_memory.h"

#include <ctime>

namespace halyard::snapwheel {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
// Two changes within one tick of the clock can leave one change time. An item that changed this
// shortly before it was looked at is looked at again next time: 20 ms where times have a fraction
// (a tick is at most 10 ms), two seconds on file systems that keep whole seconds.
constexpr std::int64_t kFineTick = 20'000'000;
constexpr std::int64_t kCoarseTick = 2 * kNanoseconds;

std::int64_t coarseNow() {
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now.tv_sec * kNanoseconds + now.tv_nsec;
}

bool isSame(const IndexEntry& entry, const struct stat& status) {
  return entry.changeTime != kUntrusted && entry.changeTime == changeTimeOf(status) &&
         entry.mode == status.st_mode;
}

}  // namespace

WalkMemory::WalkMemory(SourceIndexWriter& writer, const SourceIndex* before)
    : writer_(writer),
      before_(before),
      sampled_(coarseNow()),
      lastUser_(static_cast<uid_t>(-1)),
      lastGroup_(static_cast<gid_t>(-1)) {}

bool WalkMemory::isSettled(const struct stat& status) {
  const std::int64_t tick = status.st_ctim.tv_nsec == 0 ? kCoarseTick : kFineTick;
  const bool settled = changeTimeOf(status) + tick < sampled_;
  sampled_ = coarseNow();
  return settled;
}

void WalkMemory::noteOwner(const struct stat& status) {
  if (status.st_uid != lastUser_) owners_.users.insert(lastUser_ = status.st_uid);
  if (status.st_gid != lastGroup_) owners_.groups.insert(lastGroup_ = status.st_gid);
}

bool WalkMemory::enter(const char* name, const struct stat& status) {
  noteOwner(status);
  writer_.enter(name, status, isSettled(status));
  SourceIndex::Folder folder;
  bool unchanged = false;
  if (before_ != nullptr && folders_.empty()) {
    folder = before_->root();
  } else if (before_ != nullptr) {
    if (const IndexEntry* entry = folders_.back().find(status.st_ino, name)) {
      folder = before_->below(*entry);
      unchanged = isSame(*entry, status);
    }
  }
  folders_.push_back(folder);
  return unchanged;
}

void WalkMemory::leave() {
  folders_.pop_back();
  writer_.leave();
}

bool WalkMemory::isUnchanged(const char* name, const struct stat& status) {
  noteOwner(status);
  settled_ = isSettled(status);
  if (before_ == nullptr) return false;
  const IndexEntry* entry = folders_.back().find(status.st_ino, name);
  return entry != nullptr && isSame(*entry, status) &&
         entry->size == static_cast<std::uint64_t>(status.st_size);
}

void WalkMemory::took(const char* name, const struct stat& status) {
  writer_.add(name, status, settled_);
}

}  // namespace halyard::snapwheel

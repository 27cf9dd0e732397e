// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/source_scout.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "host/tree/earlier_file.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kBatchItems = 256;
constexpr std::uint64_t kBatchBytes = std::uint64_t{4} << 20;
// What follows the kernel reads ahead by itself.
constexpr off_t kFirstBytes = off_t{1} << 20;
// Items are read from the disk many at a time, so that most batches find theirs in memory.
constexpr int kColdBatches = 64;
// A file system may list its items under other numbers than they have.
constexpr int kMostMisses = 1024;

std::string_view folderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

host::Descriptor openBelow(int root, const std::string& path) {
  open_how how{};
  how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  const char* name = path.empty() ? "." : path.c_str();
  return host::Descriptor(static_cast<int>(::syscall(SYS_openat2, root, name, &how, sizeof how)));
}

}  // namespace

SourceScout::SourceScout(ScoutRoute route) : route_(std::move(route)) {
  if (!route_.reference.empty()) {
    referenceRoot_ = host::Descriptor(
        ::open(route_.reference.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    hasEnded_ = true;  // The walk does without.
  }
}

SourceScout::~SourceScout() {
  stop();
  if (thread_.joinable()) thread_.join();
}

void SourceScout::stop() {
  const std::lock_guard lock(mutex_);
  stops_ = true;
  queue_.clear();
  drained_.notify_all();
}

void SourceScout::run() noexcept {
  try {
    host::TreeWalk walk;
    walk.visit = [this](const host::WalkedItem& item) { return visit(item); };
    (void)host::walkTree(route_.source, walk);
    handOver();
  } catch (const std::exception&) {
    // Out of memory: the walk goes on alone, and will meet the same.
  }
  const std::lock_guard lock(mutex_);
  hasEnded_ = true;
  arrived_.notify_all();
}

host::WalkStep SourceScout::visit(const host::WalkedItem& item) {
  if (stops_) return host::WalkStep::end;
  if (item.path.empty()) return host::WalkStep::goOn;
  if (const auto folder = folderOf(item.path); folder != filling_.folder) enter(folder);
  if (route_.excluded(item.path)) return host::WalkStep::passOver;
  if (!S_ISDIR(item.status.st_mode)) look(item);
  return host::WalkStep::goOn;
}

void SourceScout::enter(std::string_view folder) {
  handOver();
  filling_.folder = folder;
}

void SourceScout::look(const host::WalkedItem& item) {
  if (filling_.items.size() >= kBatchItems || filling_.bytes >= kBatchBytes) handOver();
  if (filling_.items.empty() && referenceRoot_) {
    referenceFolder_ = openBelow(referenceRoot_.get(), filling_.folder);
  }
  const bool isAlike =
      referenceFolder_ && host::isAlike(referenceFolder_.get(), item.name, item.status);
  filling_.items.push_back({{item.status, isAlike}, filling_.names.size()});
  filling_.names.append(item.name).push_back('\0');
  if (coldBatches_ == 0 || !willBeRead(item.status)) return;
  readAhead(item);
  if (!isAlike) lookAtEarlier(item.status.st_ino);
}

bool SourceScout::willBeRead(const struct stat& status) const {
  if (!S_ISREG(status.st_mode) || status.st_blocks == 0) return false;
  if (route_.before == nullptr) return true;
  const IndexEntry* entry = route_.before->anyOf(status.st_ino);
  return entry == nullptr || entry->changeTime != changeTimeOf(status);
}

void SourceScout::readAhead(const host::WalkedItem& item) {
  const host::Descriptor file(opener_.open(
      item.folder, item.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return;
  const off_t length = std::min(item.status.st_size, kFirstBytes);
  (void)::posix_fadvise(file.get(), 0, length, POSIX_FADV_WILLNEED);
  filling_.bytes += static_cast<std::uint64_t>(length);
}

/// Of a file that moved the walk takes the copy under its earlier name.
void SourceScout::lookAtEarlier(ino_t inode) const {
  if (route_.before == nullptr || !referenceRoot_) return;
  const auto place = route_.before->findAnywhere(inode);
  if (place) (void)openBelow(referenceRoot_.get(), "./" + place->folder + "/" + place->name);
}

/// Gives what was seen to the walk and waits until that has come close.
void SourceScout::handOver() {
  noteReading();
  Batch next;
  next.folder = filling_.folder;
  if (filling_.items.empty()) return;
  std::unique_lock lock(mutex_);
  queuedItems_ += filling_.items.size();
  queuedBytes_ += filling_.bytes;
  queue_.push_back(std::exchange(filling_, std::move(next)));
  arrived_.notify_one();
  if (isFull()) drained_.wait(lock, [this] { return stops_ || isHalfEmpty(); });
}

void SourceScout::noteReading() {
  struct rusage usage {};
  (void)::getrusage(RUSAGE_THREAD, &usage);
  if (usage.ru_inblock != blocksRead_) {
    coldBatches_ = kColdBatches;
  } else if (coldBatches_ > 0) {
    --coldBatches_;
  }
  blocksRead_ = usage.ru_inblock;
}

SourceScout::Batch SourceScout::takeFirst() {
  Batch first = std::move(queue_.front());
  queue_.pop_front();
  queuedItems_ -= first.items.size();
  queuedBytes_ -= first.bytes;
  if (isHalfEmpty()) drained_.notify_one();
  return first;
}

/// The walk comes back to no folder that it has left.
void SourceScout::forgetPassed() {
  while (!queue_.empty() && queue_.front().folder == folder_) (void)takeFirst();
}

/// Makes the next batch of the folder the current one. False when there is none: a folder that one
/// of the two found and the other did not, or that has got more in it since.
bool SourceScout::fetch(std::string_view folder) {
  std::unique_lock lock(mutex_);
  const bool isEntered = folder != folder_;
  arrived_.wait(lock, [&] {
    if (isEntered) forgetPassed();
    return hasEnded_ || !queue_.empty();
  });
  folder_ = folder;
  batch_ = {};
  at_ = 0;
  const bool isThere = std::ranges::find(queue_, folder, &Batch::folder) != queue_.end();
  // When all that it may hold is of somewhere else, it is to go on.
  const bool isAstray = !isThere && isEntered && isFull();
  while (isAstray && !queue_.empty()) (void)takeFirst();
  while (isThere && queue_.front().folder != folder) (void)takeFirst();
  if (isThere) batch_ = takeFirst();
  return isThere;
}

/// Goes on to the batch of the same folder that has the item, where there is one: what is left of
/// the current one has gone since.
void SourceScout::skipTo(const char* name, ino_t inode) {
  std::unique_lock lock(mutex_);
  std::size_t passed = 0;
  const auto isFound = [&] {
    const auto has = [&](const Batch& batch) {
      return batch.folder == folder_ && batch.placeOf(name, inode, 0) < batch.items.size();
    };
    passed = static_cast<std::size_t>(std::ranges::find_if(queue_, has) - queue_.begin());
    return passed < queue_.size();
  };
  arrived_.wait(lock, [&] {
    const bool isAllThere = !queue_.empty() && queue_.back().folder != folder_;
    return isFound() || isAllThere || hasEnded_ || isFull();
  });
  if (!isFound()) return;
  for (; passed > 0; --passed) (void)takeFirst();
  batch_ = takeFirst();
  at_ = 0;
}

std::size_t SourceScout::Batch::placeOf(const char* name, ino_t inode, std::size_t first) const {
  std::size_t place = first;
  while (place < items.size() && (items[place].item.status.st_ino != inode ||
                                  std::strcmp(names.c_str() + items[place].name, name) != 0)) {
    ++place;
  }
  return place;
}

const host::TreeScout::Item* SourceScout::find(std::string_view folder, const char* name,
                                               ino_t inode) {
  if (stops_ || (isAlone_ && folder == folder_)) return nullptr;
  if (folder != folder_ || at_ == batch_.items.size()) isAlone_ = !fetch(folder);
  if (isAlone_) return nullptr;
  std::size_t place = batch_.placeOf(name, inode, at_);
  if (place == batch_.items.size()) {
    skipTo(name, inode);
    place = batch_.placeOf(name, inode, at_);
  }
  if (place < batch_.items.size()) {
    at_ = place + 1;
    misses_ = 0;
    return &batch_.items[place].item;
  }
  if (++misses_ == kMostMisses) stop();
  return nullptr;
}

}  // namespace halyard::snapwheel

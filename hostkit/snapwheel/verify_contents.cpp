// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/verify_contents.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <memory>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/text.h"
#include "common/messages.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/identity.h"
#include "host/files/system_call.h"
#include "host/tree/file_data_copy.h"
#include "host/tree/folder_chain.h"
#include "host/tree/quiet_opener.h"
#include "host/volumes/subvolume.h"
#include "snapwheel/damage.h"
#include "snapwheel/digest.h"
#include "snapwheel/source_index.h"
#include "snapwheel/writable_snapshot.h"

namespace halyard::snapwheel {

namespace {

/// What reading a file of the repository told.
struct Reading {
  int error = 0;
  host::ContentDigest digest = kNoDigest;
};

class FileReader final : public Digesting<host::ContentWatcher> {
 public:
  FileReader() { data_.watch(this); }

  Reading read(int file, const struct stat& status) {
    Reading reading;
    reading.error = data_.read(file, status);
    if (reading.error == 0) reading.digest = digest_;
    return reading;
  }
  std::uint64_t bytes() const { return bytes_; }

  void read(const char* bytes, std::size_t count) override {
    Digesting::read(bytes, count);
    bytes_ += count;
  }

 private:
  host::FileDataCopier data_;
  std::uint64_t bytes_ = 0;
};

/// What tells a file whose data other snapshots share from all others: its inode where it has
/// several names, and on btrfs, where each snapshot has inodes of its own, the places of its data
/// on the disk. Empty where neither is to be had.
std::string sharedKey(int file, const struct stat& status) {
  if (status.st_nlink > 1) {
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  }
  constexpr std::size_t kMostExtents = 32;
  alignas(struct fiemap)
      std::array<char, sizeof(struct fiemap) + kMostExtents * sizeof(struct fiemap_extent)>
          room{};
  auto* const map = reinterpret_cast<struct fiemap*>(room.data());
  map->fm_length = FIEMAP_MAX_OFFSET;
  map->fm_extent_count = kMostExtents;
  if (!host::isOnBtrfs(file) || ::ioctl(file, FS_IOC_FIEMAP, map) != 0) return {};
  const std::span<const fiemap_extent> extents(map->fm_extents, map->fm_mapped_extents);
  if (extents.empty() || (extents.back().fe_flags & FIEMAP_EXTENT_LAST) == 0) return {};
  constexpr std::uint32_t kNowhere =
      FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_DATA_INLINE |
      FIEMAP_EXTENT_ENCODED;  // Of compressed data two files may use different parts.
  std::string key = std::to_string(status.st_size);
  for (const fiemap_extent& extent : extents) {
    if ((extent.fe_flags & kNowhere) != 0) return {};
    key += ":" + std::to_string(extent.fe_logical) + "," + std::to_string(extent.fe_physical) +
           "," + std::to_string(extent.fe_length);
  }
  return key;
}

class Verification {
 public:
  Verification(const Repository& repository, const VerifyPart& part)
      : repository_(repository), part_(part) {}

  VerifyReport run(const std::vector<std::string>& snapshots) {
    for (const std::string& name : snapshots) {
      for (const SnapshotVolume& volume : volumesOf(repository_.path(name))) verify(name, volume);
    }
    report_.bytesRead = reader_.bytes();
    for (const Key& key : unproven_) report_.unproven += proven_.contains(key) ? 0 : 1;
    for (auto& [key, file] : damaged_) report_.damaged.push_back(std::move(file));
    return std::move(report_);
  }

 private:
  struct Level {
    SourceIndex::Folder folder;
    std::size_t next = 0;
    std::size_t pathLength = 0;  ///< Of the folder above.
  };
  /// What is the same for a file in every snapshot that shares it.
  using Key = std::string;

  void verify(const std::string& name, const SnapshotVolume& volume) {
    if (!volume.isThere) return;
    const std::string snapshot = repository_.path(name);
    const std::string indexPath = volume.records(snapshot).path("index");
    const auto index = SourceIndex::open(indexPath);
    const std::string root = volume.path(snapshot);
    host::Descriptor folder(::open(root.c_str(), host::kFolderFlags));
    host::Identity identity;
    if (!index || !folder || host::identify(folder.get(), identity) != 0) {
      if (host::isAbsent(snapshot)) return;
      auto& volumes =
          SourceIndex::isDamaged(indexPath) ? report_.damagedIndexes : report_.withoutDigests;
      volumes.push_back({name, volume});
      return;
    }
    name_ = name;
    volume_ = volume;
    earlier_ = readDamage(volume.records(snapshot));
    if (earlier_.isUnreadable) report_.unreadableRecords.push_back({name, volume});
    stillDamaged_.clear();
    found_.clear();
    path_.clear();
    folders_.clear();
    folders_.push(std::move(folder), identity);
    walk(*index);
    // A snapshot that is removed meanwhile loses its files first.
    if (!host::isAbsent(root)) {
      keep(snapshot);
    } else {
      for (const Key& key : found_) forget(key);
    }
  }

  void walk(const SourceIndex& index) {
    std::vector<Level> levels(1);
    levels.back().folder = index.root();
    while (!levels.empty()) {
      Level& level = levels.back();
      if (level.next == level.folder.entries().size()) {
        path_.resize(level.pathLength);
        levels.pop_back();
        if (!levels.empty() && folders_.pop() != 0) return breakOff();
        continue;
      }
      const IndexEntry& entry = level.folder.entries()[level.next++];
      const std::string entryName(level.folder.nameOf(entry));
      if (S_ISREG(entry.mode)) verifyFile(entry, entryName);
      if (!S_ISDIR(entry.mode) || !enter(entryName)) continue;
      Level below;
      below.folder = index.below(entry);
      below.pathLength = path_.size();
      path_ += (path_.empty() ? "" : "/") + entryName;
      levels.push_back(std::move(below));
    }
  }

  /// The way back up is lost, as when the folder above cannot be read any more.
  void breakOff() {
    damage(ownKey("."), ".", "could not be verified to its end");
    stillDamaged_.insert(earlier_.paths.begin(), earlier_.paths.end());
  }

  /// What is below a folder that cannot be entered is as it was known before.
  void keepEarlierBelow(const std::string& folder) {
    for (const std::string& path : earlier_.paths) {
      if (path.starts_with(folder + "/")) stillDamaged_.insert(path);
    }
  }

  bool enter(const std::string& name) {
    host::Descriptor folder(::openat(folders_.current(), name.c_str(), host::kFolderFlags));
    host::Identity identity;
    if (!folder || host::identify(folder.get(), identity) != 0) {
      damage(ownKey(name), name, "cannot be opened: " + hostkit::errnoText(errno));
      keepEarlierBelow(pathOf(name));
      return false;
    }
    folders_.push(std::move(folder), identity);
    return true;
  }

  void verifyFile(const IndexEntry& entry, const std::string& name) {
    struct stat status {};
    const bool isThere =
        ::fstatat(folders_.current(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (isThere && !S_ISREG(status.st_mode)) {  // To open a device is to do something with it.
      damage(ownKey(name), name, "is no file any more");
      return;
    }
    const host::Descriptor file(opener_.open(folders_.current(), name.c_str(),
                                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file || ::fstat(file.get(), &status) != 0) {
      // Of a file that cannot be opened no part is known: each part tells.
      damage(ownKey(name), name, "cannot be opened: " + hostkit::errnoText(errno));
      return;
    }
    Key key = sharedKey(file.get(), status);
    const bool isShared = !key.empty();
    if (!isShared) key = ownKey(name);
    if (status.st_ino % part_.count != part_.number - 1) {
      if (earlier_.paths.contains(pathOf(name))) stillDamaged_.insert(pathOf(name));
      return;
    }
    const Reading reading = readingOf(file.get(), status, isShared ? key : Key());
    if (reading.error != 0) {
      damage(key, name, "cannot be read: " + hostkit::errnoText(reading.error));
    } else if (entry.digest == kNoDigest) {
      unproven_.insert(key);  // As long as no other name of the file has a digest.
    } else if (entry.digest != reading.digest) {
      damage(key, name, "does not hold what was put there");
    } else if (isShared) {
      proven_.insert(key);
    }
  }

  /// Each file is read once, however many snapshots share it.
  Reading readingOf(int file, const struct stat& status, const Key& shared) {
    const auto found = shared.empty() ? readings_.end() : readings_.find(shared);
    if (found != readings_.end()) return found->second;
    ++report_.files;
    const Reading reading = reader_.read(file, status);
    if (!shared.empty()) readings_.emplace(shared, reading);
    return reading;
  }

  /// Of what no other snapshot shares.
  Key ownKey(const std::string& name) const {
    return name_ + "/" + volume_.folder + "/" + pathOf(name);
  }

  std::string pathOf(const std::string& name) const {
    return path_ + (path_.empty() ? "" : "/") + name;
  }

  void damage(const Key& key, const std::string& name, const std::string& reason) {
    DamagedFile& file = damaged_[key];
    if (file.path.empty()) {
      file.path = volume_.hostPath(pathOf(name));
      file.reason = reason;
    }
    if (file.snapshots.empty() || file.snapshots.back() != name_) file.snapshots.push_back(name_);
    found_.push_back(key);
    stillDamaged_.insert(pathOf(name));
  }

  void forget(const Key& key) {
    const auto file = damaged_.find(key);
    if (file == damaged_.end()) return;
    std::erase(file->second.snapshots, name_);
    if (file->second.snapshots.empty()) damaged_.erase(file);
  }

  void keep(const std::string& snapshot) {
    std::unordered_set<std::string> paths;
    paths.swap(stillDamaged_);
    // One that cannot be read stands for all that it may name, until all was read.
    if (earlier_.isUnreadable ? part_.count > 1 : paths == earlier_.paths) return;
    const WritableSnapshot writable(repository_, name_);
    const Status kept = writeDamage(volume_.records(snapshot), paths);
    // Of one that was removed meanwhile nothing is to be kept.
    if (!kept && !host::isAbsent(snapshot)) report_.unrecorded.push_back(kept.error());
  }

  const Repository& repository_;
  VerifyPart part_;
  VerifyReport report_;
  FileReader reader_;
  host::QuietOpener opener_;
  host::FolderChain folders_;  ///< Of the snapshot at hand, down to where the walk is.
  std::string path_;           ///< Of the current folder.
  std::string name_;           ///< Of the snapshot at hand.
  SnapshotVolume volume_;      ///< The one at hand.
  DamageRecord earlier_;       ///< What it had recorded before.
  std::unordered_set<std::string> stillDamaged_;
  std::vector<Key> found_;                     ///< What is damaged in it.
  std::unordered_map<Key, Reading> readings_;  ///< Of shared files.
  std::unordered_set<Key> proven_;             ///< Shared files with a digest that is right.
  std::unordered_set<Key> unproven_;           ///< Files without a digest under one of their names.
  std::map<Key, DamagedFile> damaged_;
};

}  // namespace

VerifyReport verifyContents(const Repository& repository, const std::vector<std::string>& snapshots,
                            const VerifyPart& part) {
  return Verification(repository, part).run(snapshots);
}

}  // namespace halyard::snapwheel

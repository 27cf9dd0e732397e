// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/snapshot_diff.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>

#include "base/text.h"
#include "host/tree/folder_entries.h"
#include "snapwheel/failure.h"
#include "snapwheel/item_look.h"
#include "snapwheel/snapshot_index.h"

namespace halyard::snapwheel {

namespace {

struct Item {
  std::string name;
  IndexEntry entry;
};
using Items = std::vector<Item>;

void sortByName(Items& items) { std::ranges::sort(items, {}, &Item::name); }

/// A volume as one side of the comparison.
class Side {
 public:
  explicit Side(const std::string& root) : tree_(root) {}
  virtual ~Side() = default;

  /// What stands in the folder, by name. The path is relative to the volume's root.
  virtual Items itemsIn(const std::string& path, const IndexEntry* folder) = 0;
  virtual std::uint64_t countBelow(const std::string& path, const IndexEntry& folder) = 0;
  /// Those that chattr sets, which only an index has of a snapshot.
  virtual KnownFlags flagsOf(const IndexEntry&) const { return std::nullopt; }
  /// Whether another file system is mounted upon the folder, which hides what is compared.
  virtual bool isHidden(const std::string&) { return false; }
  const LookedAtTree& tree() const { return tree_; }

 private:
  LookedAtTree tree_;
};

class SnapshotSide final : public Side {
 public:
  SnapshotSide(const std::string& root, std::unique_ptr<SourceIndex> index)
      : Side(root), index_(std::move(index)) {}

  Items itemsIn(const std::string&, const IndexEntry* folder) override {
    const SourceIndex::Folder contents =
        folder == nullptr ? index_->root() : index_->below(*folder);
    Items items;
    items.reserve(contents.entries().size());
    for (const IndexEntry& entry : contents.entries()) {
      items.push_back({std::string(contents.nameOf(entry)), entry});
    }
    sortByName(items);
    return items;
  }
  KnownFlags flagsOf(const IndexEntry& entry) const override { return index_->flagsOf(entry); }
  std::uint64_t countBelow(const std::string&, const IndexEntry& folder) override {
    std::uint64_t count = 0;
    walkIndex(*index_, index_->below(folder),
              [&count](const std::string&, std::string_view, const IndexEntry&) { ++count; });
    return count;
  }

 private:
  std::unique_ptr<SourceIndex> index_;
};

/// What the host has now.
class HostSide final : public Side {
 public:
  HostSide(SnapshotVolume volume, const hostkit::Exclusions& exclusions)
      : Side(volume.mountPoint), volume_(std::move(volume)), exclusions_(exclusions) {}

  Items itemsIn(const std::string& path, const IndexEntry*) override {
    Items items;
    const host::Descriptor folder = tree().open(path, O_RDONLY | O_DIRECTORY);
    if (!folder) return items;
    std::vector<host::FolderEntry> entries;
    do {
      if (reader_.next(folder.get(), entries) != 0) break;
      for (const host::FolderEntry& entry : entries) {
        const std::string itemPath = path + (path.empty() ? "" : "/") + entry.name;
        struct stat status {};
        if (exclusions_.match(volume_.hostPath(itemPath)) ||
            ::fstatat(folder.get(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
          continue;
        }
        items.push_back({entry.name, entryOf(status)});
      }
    } while (!entries.empty());
    sortByName(items);
    return items;
  }
  bool isHidden(const std::string& path) override {
    const host::Descriptor folder = tree().open(path, O_PATH);
    return !folder && errno == EXDEV;
  }
  std::uint64_t countBelow(const std::string& path, const IndexEntry& folder) override {
    std::uint64_t count = 0;
    std::vector<std::string> open = {path};
    while (!open.empty()) {
      const std::string at = std::move(open.back());
      open.pop_back();
      for (const Item& item : itemsIn(at, &folder)) {
        ++count;
        if (S_ISDIR(item.entry.mode)) open.push_back(at + "/" + item.name);
      }
    }
    return count;
  }

 private:
  static IndexEntry entryOf(const struct stat& status) {
    IndexEntry entry;
    entry.inode = status.st_ino;
    entry.changeTime = changeTimeOf(status);
    entry.size = static_cast<std::uint64_t>(status.st_size);
    entry.mode = static_cast<std::uint16_t>(status.st_mode);
    return entry;
  }
  SnapshotVolume volume_;
  const hostkit::Exclusions& exclusions_;
  host::FolderReader reader_;
};

bool isAtOrBelow(const std::string& path, const std::string& folder) {
  return folder.empty() || path == folder || path.starts_with(folder + "/");
}

/// The paths that are meant, all where none is named, and which of them were there to be compared.
class AskedPaths {
 public:
  explicit AskedPaths(std::vector<std::string> paths)
      : paths_(std::move(paths)), isMet_(paths_.size(), false) {}

  bool isAsked(const std::string& path) const {
    return paths_.empty() || std::ranges::any_of(paths_, [&](const std::string& asked) {
             return isAtOrBelow(path, asked);
           });
  }
  /// Or holds what is.
  bool leadsToAsked(const std::string& path) const {
    return isAsked(path) || std::ranges::any_of(paths_, [&](const std::string& asked) {
             return isAtOrBelow(asked, path);
           });
  }
  void meet(const std::string& path) {
    meetIf([&](auto& asked) { return isAtOrBelow(path, asked); });
  }
  /// What is told as a whole stands for all in it.
  void meetWhole(const std::string& path) {
    meet(path);
    meetIf([&](auto& asked) { return isAtOrBelow(asked, path); });
  }
  bool hasMet(std::size_t at) const { return isMet_[at]; }

 private:
  template <typename Condition>
  void meetIf(Condition condition) {
    for (std::size_t at = 0; at < paths_.size(); ++at) {
      if (!isMet_[at] && condition(paths_[at])) isMet_[at] = true;
    }
  }

  std::vector<std::string> paths_;
  std::vector<bool> isMet_;
};

/// Two sides of one volume.
class VolumeDiff {
 public:
  VolumeDiff(SnapshotVolume volume, Side& older, Side& newer, AskedPaths& asked,
             const std::function<void(const Difference&)>& tell)
      : volume_(std::move(volume)), older_(older), newer_(newer), asked_(asked), tell_(tell) {}

  void run() {
    std::vector<Level> levels;
    if (isAsked("")) {
      asked_.meet(volume_.hostPath(""));
      compareFolder("", false);
    }
    levels.push_back(levelAt("", nullptr, nullptr));
    while (!levels.empty()) {
      Level& level = levels.back();
      const Item* mine = level.older.size() > level.left ? &level.older[level.left] : nullptr;
      const Item* other = level.newer.size() > level.right ? &level.newer[level.right] : nullptr;
      if (mine == nullptr && other == nullptr) {
        levels.pop_back();
        continue;
      }
      const int order = mine == nullptr    ? 1
                        : other == nullptr ? -1
                                           : mine->name.compare(other->name);
      if (order <= 0) ++level.left;
      if (order >= 0) ++level.right;
      const std::string& name = order <= 0 ? mine->name : other->name;
      const std::string path = level.path + (level.path.empty() ? "" : "/") + name;
      // Only a hostile index holds items without a name.
      if (name.empty() || !asked_.leadsToAsked(volume_.hostPath(path))) continue;
      asked_.meet(volume_.hostPath(path));
      if (order != 0) {
        asked_.meetWhole(volume_.hostPath(path));
        tellOne(order < 0 ? Change::removed : Change::added, path,
                order < 0 ? mine->entry : other->entry, order < 0 ? older_ : newer_);
      } else if (S_ISDIR(mine->entry.mode) && S_ISDIR(other->entry.mode)) {
        if (newer_.isHidden(path)) continue;
        if (isAsked(path)) {
          compareFolder(path, hasOtherFlags(mine->entry, other->entry));
        }
        Level below = levelAt(path, &mine->entry, &other->entry);
        levels.push_back(std::move(below));
      } else if (isAsked(path)) {
        compareItems(path, mine->entry, other->entry);
      }
    }
  }

 private:
  struct Level {
    std::string path;
    Items older;
    Items newer;
    std::size_t left = 0;
    std::size_t right = 0;
  };

  Level levelAt(const std::string& path, const IndexEntry* mine, const IndexEntry* other) {
    return {path, older_.itemsIn(path, mine), newer_.itemsIn(path, other)};
  }

  bool isAsked(const std::string& path) const { return asked_.isAsked(volume_.hostPath(path)); }

  void tellOne(Change change, const std::string& path, const IndexEntry& entry, Side& side) {
    Difference difference;
    difference.change = change;
    difference.path = volume_.hostPath(path);
    difference.mode = entry.mode;
    if (S_ISDIR(entry.mode)) difference.items += side.countBelow(path, entry);
    tell_(difference);
  }

  bool hasOtherFlags(const IndexEntry& mine, const IndexEntry& other) const {
    const KnownFlags one = older_.flagsOf(mine);
    const KnownFlags another = newer_.flagsOf(other);
    return one && another && *one != *another;
  }

  void compareFolder(const std::string& path, bool hasOtherFlags) {
    ItemDifference seen = look_.compare(older_.tree(), newer_.tree(), path, false);
    seen.attributes = seen.attributes || hasOtherFlags;
    tellChange(path, S_IFDIR, seen);
  }

  void compareItems(const std::string& path, const IndexEntry& mine, const IndexEntry& other) {
    if (((mine.mode ^ other.mode) & S_IFMT) != 0) {
      return tellChange(path, other.mode, {true, false, false});
    }
    const bool isFile = S_ISREG(mine.mode);
    const bool isKnown = mine.digest != kNoDigest && other.digest != kNoDigest;
    const bool isOther =
        isFile && (mine.size != other.size || (isKnown && mine.digest != other.digest));
    const bool isUntouched = !isOther && mine.inode == other.inode && mine.mode == other.mode &&
                             mine.size == other.size && mine.changeTime != kUntrusted &&
                             mine.changeTime == other.changeTime;
    if (isUntouched) return;
    ItemDifference seen =
        look_.compare(older_.tree(), newer_.tree(), path, isFile && !isOther && !isKnown);
    seen.contents = seen.contents || isOther;
    seen.attributes = seen.attributes || hasOtherFlags(mine, other);
    tellChange(path, other.mode, seen);
  }

  void tellChange(const std::string& path, std::uint32_t mode, const ItemDifference& seen) {
    if (!seen.contents && !seen.attributes && !seen.isUnknown) return;
    tell_({Change::changed, volume_.hostPath(path), mode, 1, seen.contents, seen.attributes,
           seen.isUnknown});
  }

  SnapshotVolume volume_;
  Side& older_;
  Side& newer_;
  AskedPaths& asked_;
  const std::function<void(const Difference&)>& tell_;
  ItemLook look_;
};

/// "/srv/x/", "srv/x" -> "srv/x".
std::vector<std::string> plainPaths(const std::vector<std::string>& paths) {
  std::vector<std::string> plain;
  for (const std::string& path : paths) {
    std::string joined;
    for (const std::string_view name : splitAt(path, '/')) {
      if (name == "..") throw Failure(path + " holds \"..\"", hostkit::kUsageError);
      if (!name.empty() && name != ".") joined.append(joined.empty() ? "" : "/").append(name);
    }
    plain.push_back(joined);
  }
  return plain;
}

std::map<std::string, VolumeIndex> volumesByPlace(const Repository& repository,
                                                  const std::string& name) {
  std::map<std::string, VolumeIndex> volumes;
  for (VolumeIndex& volume : indexesOf(repository.path(name))) {
    if (volume.volume.isThere && !volume.index) {
      throw Failure(name + "/" + volume.volume.folder +
                    " has no index that can be used: what differs cannot be told (diff -r compares "
                    "the files)");
    }
    if (volume.index) volumes.emplace(volume.volume.mountPoint, std::move(volume));
  }
  if (volumes.empty()) throw Failure(name + " holds no volume");
  return volumes;
}

}  // namespace

std::vector<std::string> diffSnapshots(
    const Repository& repository, const DiffRequest& request,
    const std::function<void(const Difference& difference)>& tell) {
  AskedPaths asked(plainPaths(request.paths));
  auto older = volumesByPlace(repository, request.older);
  auto newer = request.newer.empty() ? std::map<std::string, VolumeIndex>()
                                     : volumesByPlace(repository, request.newer);
  const auto sideOf = [&](VolumeIndex& volume, const std::string& name) {
    return std::make_unique<SnapshotSide>(volume.volume.path(repository.path(name)),
                                          std::move(volume.index));
  };
  const auto tellWhole = [&](const std::string& place, Change change) {
    const std::string path = place.substr(1);
    if (!asked.leadsToAsked(path)) return;
    asked.meetWhole(path);
    tell({change, path, S_IFDIR, 1, false, false, false});
  };
  for (auto& [place, volume] : older) {
    const auto match = newer.find(place);
    const auto mine = sideOf(volume, request.older);
    std::unique_ptr<Side> other;
    if (request.newer.empty()) {
      other = std::make_unique<HostSide>(volume.volume, request.exclusions);
    } else if (match != newer.end()) {
      other = sideOf(match->second, request.newer);
    }
    if (other) {
      VolumeDiff(volume.volume, *mine, *other, asked, tell).run();
    } else {
      tellWhole(place, Change::removed);
    }
  }
  for (const auto& [place, volume] : newer) {
    if (!older.contains(place)) tellWhole(place, Change::added);
  }
  std::vector<std::string> notHeld;
  for (std::size_t at = 0; at < request.paths.size(); ++at) {
    if (!asked.hasMet(at)) notHeld.push_back(request.paths[at]);
  }
  // Of what is not there at all nothing is the same.
  if (!notHeld.empty() && notHeld.size() == request.paths.size()) {
    throw Failure("neither of the two holds anything of what is named");
  }
  return notHeld;
}

}  // namespace halyard::snapwheel

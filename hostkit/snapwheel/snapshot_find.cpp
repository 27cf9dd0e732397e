// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/snapshot_find.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <map>
#include <utility>

#include "snapwheel/failure.h"
#include "snapwheel/item_look.h"
#include "snapwheel/snapshot_index.h"

namespace halyard::snapwheel {

namespace {

/// A version while the snapshots are gone through.
struct Version {
  FoundVersion found;
  IndexEntry entry;      ///< In the last snapshot so far.
  std::size_t last = 0;  ///< Which one that is.
  std::string pathInVolume;
  std::string volume;  ///< Its folder.
};

bool isSameVersion(const IndexEntry& one, const IndexEntry& other) {
  if (((one.mode ^ other.mode) & S_IFMT) != 0) return false;
  if (S_ISDIR(one.mode)) return true;
  if (one.size != other.size) return false;
  if (one.digest != kNoDigest && other.digest != kNoDigest) return one.digest == other.digest;
  return one.inode == other.inode && one.changeTime == other.changeTime &&
         one.changeTime != kUntrusted;
}

/// "/etc/nginx/", too, is the folder /etc/nginx.
std::string withoutOuterSlashes(std::string pattern) {
  while (pattern.ends_with('/')) pattern.pop_back();
  return pattern.substr(pattern.starts_with('/') ? 1 : 0);
}

class Search {
 public:
  Search(const Repository& repository, const std::string& pattern)
      : repository_(repository),
        isForPaths_(pattern.find('/') != std::string::npos),
        pattern_(withoutOuterSlashes(pattern)),
        isPlain_(pattern_.find_first_of("*?[\\") == std::string::npos) {}

  FindReport run() {
    const std::vector<std::string> snapshots = repository_.list().snapshots;
    for (std::size_t number = 0; number < snapshots.size(); ++number) {
      search(snapshots[number], number);
    }
    for (auto& [path, versions] : found_) {
      FoundItem item{path, {}};
      for (Version& version : versions) {
        version.found.modified = modifiedIn(version);
        item.versions.push_back(std::move(version.found));
      }
      report_.items.push_back(std::move(item));
    }
    return std::move(report_);
  }

 private:
  void search(const std::string& name, std::size_t number) {
    bool isWhole = false;
    for (const VolumeIndex& volume : indexesOf(repository_.path(name))) {
      isWhole = volume.index != nullptr;
      if (!isWhole) break;
      searchVolume(volume, name, number);
    }
    if (!isWhole) report_.withoutIndex.push_back(name);
  }

  void searchVolume(const VolumeIndex& volume, const std::string& name, std::size_t number) {
    walkIndex(*volume.index, volume.index->root(),
              [&](const std::string& folder, std::string_view itemName, const IndexEntry& entry) {
                if (!matches(volume.volume, folder, itemName)) return;
                add(volume.volume, folder + std::string(itemName), entry, name, number);
              });
  }

  bool matches(const SnapshotVolume& volume, const std::string& folder, std::string_view name) {
    if (name.empty()) return false;
    if (!isForPaths_ && isPlain_) return name == pattern_;
    text_.clear();
    if (isForPaths_) text_ = volume.hostPath(folder);
    if (!text_.empty() && !text_.ends_with('/')) text_ += '/';  // At the top of a further volume.
    text_.append(name);
    return ::fnmatch(pattern_.c_str(), text_.c_str(), isForPaths_ ? FNM_PATHNAME : 0) == 0;
  }

  void add(const SnapshotVolume& volume, const std::string& path, const IndexEntry& entry,
           const std::string& name, std::size_t number) {
    std::vector<Version>& versions = found_[volume.hostPath(path)];
    if (!versions.empty()) {
      Version& latest = versions.back();
      if (latest.last + 1 == number && isSameVersion(latest.entry, entry)) {
        latest.entry = entry;
        latest.last = number;
        latest.found.last = name;
        ++latest.found.snapshots;
        return;
      }
    }
    const std::uint64_t size = S_ISREG(entry.mode) ? entry.size : 0;
    versions.push_back(
        {{name, name, 1, size, entry.mode, std::nullopt}, entry, number, path, volume.folder});
  }

  std::optional<std::int64_t> modifiedIn(const Version& version) const {
    try {
      const LookedAtTree tree(repository_.path(version.found.last) + "/" + version.volume);
      const host::Descriptor item = tree.open(version.pathInVolume, O_PATH);
      struct stat status {};
      if (!item || ::fstat(item.get(), &status) != 0) return std::nullopt;
      return status.st_mtim.tv_sec;
    } catch (const Failure&) {
      return std::nullopt;
    }
  }

  const Repository& repository_;
  bool isForPaths_;
  std::string pattern_;
  bool isPlain_;  ///< No letter in it means more than itself.
  std::string text_;
  std::map<std::string, std::vector<Version>> found_;
  FindReport report_;
};

}  // namespace

FindReport findInSnapshots(const Repository& repository, const std::string& pattern) {
  return Search(repository, pattern).run();
}

}  // namespace halyard::snapwheel

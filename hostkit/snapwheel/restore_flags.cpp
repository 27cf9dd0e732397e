// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_flags.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <map>
#include <utility>

#include "base/text.h"
#include "host/files/descriptor.h"
#include "host/files/identity.h"
#include "host/files/system_call.h"
#include "host/tree/folder_chain.h"

namespace halyard::snapwheel {

namespace {

host::Descriptor openFolder(int above, const char* name) {
  return host::Descriptor(
      host::uninterrupted([&] { return ::openat(above, name, host::kFolderFlags); }));
}

/// Walks the index; in the target it opens only what leads to an item with flags.
class FlagGiver {
 public:
  FlagGiver(const SourceIndex* index, int target, const Selection& selection,
            const std::vector<FlaggedFolder>& before)
      : index_(index), target_(target), selection_(selection) {
    for (const FlaggedFolder& folder : before) before_[folder.path] = folder.flags;
  }

  FlagReport run() {
    if (index_ != nullptr) walk();
    // What the index does not know, the deepest first: a folder sorts before what is in it.
    for (auto folder = before_.rbegin(); folder != before_.rend(); ++folder) giveBack(*folder);
    return report_;
  }

 private:
  struct Level {
    SourceIndex::Folder folder;
    std::size_t next = 0;
    std::string name;
    KnownFlags flags;  ///< Of the folder itself; absent where they are not to be given.
    std::size_t pathLength = 0;
  };

  void walk() {
    Level root;
    root.folder = index_->root();
    if (selection_.partOf("") == Part::all) root.flags = known(index_->flagsOfRoot());
    levels_.push_back(std::move(root));
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.next == level.folder.entries().size()) {
        leave();
        continue;
      }
      meet(level.folder.entries()[level.next++]);
    }
  }

  KnownFlags known(const KnownFlags& flags) {
    if (!flags) ++report_.unknown;
    return flags;
  }

  void meet(const IndexEntry& entry) {
    if (!S_ISREG(entry.mode) && !S_ISDIR(entry.mode)) return;
    const std::string name(levels_.back().folder.nameOf(entry));
    const std::size_t length = path_.size();
    path_ += (path_.empty() ? "" : "/") + name;
    const Part part = selection_.partOf(path_);
    const KnownFlags flags = part == Part::all ? known(index_->flagsOf(entry)) : std::nullopt;
    if (S_ISDIR(entry.mode) && part != Part::none) {
      Level below;
      below.folder = index_->below(entry);
      below.name = name;
      below.flags = flags;
      below.pathLength = length;
      levels_.push_back(std::move(below));
      return;
    }
    if (S_ISREG(entry.mode) && flags.value_or(0) != 0 && openFolders()) {
      giveFile(name, *flags, entry.size);
    }
    path_.resize(length);
  }

  /// Opens the way down to the current level. False where that is not in the target.
  bool openFolders() {
    while (opened_.size() < levels_.size()) {
      const bool isRoot = opened_.empty();
      const std::string& name = levels_[opened_.size()].name;
      host::Descriptor folder =
          isRoot ? openFolder(target_, ".") : openFolder(opened_.current(), name.c_str());
      host::Identity identity;
      if (!folder || host::identify(folder.get(), identity) != 0) return false;
      opened_.push(std::move(folder), identity);
    }
    return true;
  }

  void giveFile(const std::string& name, host::InodeFlags flags, std::uint64_t size) {
    const host::Descriptor file(host::uninterrupted([&] {
      return ::openat(opened_.current(), name.c_str(),
                      O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }));
    struct stat status {};
    // What is not there, or was put there since, was told when it was copied.
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::uint64_t>(status.st_size) != size) {
      return;
    }
    give(file.get(), flags, path_);
  }

  void give(int item, host::InodeFlags flags, const std::string& path) {
    host::InodeFlags lacking = 0;
    if (host::setInodeFlags(item, flags, lacking) == 0 && lacking == 0) return;
    if (report_.lacking++ == 0) report_.firstLacking = path;
  }

  void leave() {
    const Level& level = levels_.back();
    const auto had = before_.find(path_);
    const bool isToSet = level.flags && (*level.flags != 0 || had != before_.end());
    if (isToSet && openFolders()) give(opened_.current(), *level.flags, path_);
    if (level.flags && had != before_.end()) before_.erase(had);
    if (opened_.size() == levels_.size() && opened_.pop() != 0) opened_.clear();
    path_.resize(level.pathLength);
    levels_.pop_back();
  }

  void giveBack(const std::pair<const std::string, host::InodeFlags>& folder) {
    host::Descriptor at = openFolder(target_, ".");
    for (const std::string_view name : splitAt(folder.first, '/')) {
      if (!name.empty() && at) at = openFolder(at.get(), std::string(name).c_str());
    }
    if (at) give(at.get(), folder.second, folder.first);
  }

  const SourceIndex* index_;
  int target_;
  const Selection& selection_;
  std::map<std::string, host::InodeFlags> before_;
  FlagReport report_;
  std::vector<Level> levels_;
  host::FolderChain opened_;  ///< Of the target, the first of the levels.
  std::string path_;
};

}  // namespace

FlagReport giveFlags(const SourceIndex& index, int target, const Selection& selection,
                     const std::vector<FlaggedFolder>& before) {
  return FlagGiver(&index, target, selection, before).run();
}

FlagReport giveFlagsBack(int target, const std::vector<FlaggedFolder>& before) {
  return FlagGiver(nullptr, target, Selection(), before).run();
}

}  // namespace halyard::snapwheel

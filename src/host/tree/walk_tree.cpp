// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/walk_tree.h"

#include <utility>
#include <vector>

#include "host/files/identity.h"
#include "host/files/system_call.h"
#include "host/tree/folder_chain.h"
#include "host/tree/folder_entries.h"
#include "host/tree/quiet_opener.h"

namespace halyard::host {

namespace {

class Walker {
 public:
  explicit Walker(const TreeWalk& walk) : walk_(walk) {}

  int run(const Location& root);

 private:
  struct Level {
    NameQueue folders;       ///< Still to be entered.
    std::size_t pathLength;  ///< Of the path of the folder above.
  };

  bool meet(int folder, const char* name, std::string_view shownName, bool& isToEnter);
  void enter(int folder, const char* name, std::string_view shownName);
  void visitEntries();
  int leave();
  void fail(int error);
  std::size_t appendToPath(std::string_view name);

  const TreeWalk& walk_;
  FolderChain chain_;
  std::vector<Level> levels_;
  FolderReader reader_;
  QuietOpener opener_;
  std::vector<FolderEntry> entries_;
  std::string path_;  ///< Of the item at hand.
  Identity mount_;
  bool ended_ = false;
  int rootError_ = 0;
};

/// In place, since copies of the path of each folder would cost the square of the depth.
std::size_t Walker::appendToPath(std::string_view name) {
  const std::size_t length = path_.size();
  if (!path_.empty()) path_ += '/';
  path_ += name;
  return length;
}

void Walker::fail(int error) {
  if (path_.empty() && rootError_ == 0) rootError_ = error;
  if (walk_.failed) walk_.failed(path_, error);
}

/// Shows the item to the caller. False when it cannot be looked at.
bool Walker::meet(int folder, const char* name, std::string_view shownName, bool& isToEnter) {
  const std::size_t length = appendToPath(shownName);
  struct stat status = {};
  const int error = errorOf(
      [&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT); });
  WalkStep step = WalkStep::passOver;
  if (error != 0) {
    fail(error);
  } else {
    step = walk_.visit({folder, name, path_, status});
  }
  ended_ = ended_ || step == WalkStep::end;
  isToEnter = step == WalkStep::goOn && S_ISDIR(status.st_mode);
  path_.resize(length);
  return error == 0;
}

/// Makes the folder the current one and shows all that is in it.
void Walker::enter(int folder, const char* name, std::string_view shownName) {
  const std::size_t length = appendToPath(shownName);
  Identity identity;
  Descriptor opened(opener_.open(folder, name, kFolderFlags));
  int error = opened ? identify(opened.get(), identity) : errno;
  const bool isRoot = levels_.empty();
  if (error == 0 && isRoot) mount_ = identity;
  const bool isMountedUpon = error == 0 && !identity.sameMount(mount_);
  if (error != 0) fail(error);
  if (error != 0 || (isMountedUpon && !walk_.entersMounts)) return path_.resize(length);
  chain_.push(std::move(opened), identity);
  levels_.push_back({{}, length});
  visitEntries();
}

void Walker::visitEntries() {
  do {
    if (const int error = reader_.next(chain_.current(), entries_)) return fail(error);
    for (const FolderEntry& entry : entries_) {
      bool isToEnter = false;
      (void)meet(chain_.current(), entry.name, entry.name, isToEnter);  // The caller was told.
      if (ended_) return;
      if (isToEnter) levels_.back().folders.add(entry.name);
    }
  } while (!entries_.empty());
}

int Walker::leave() {
  path_.resize(levels_.back().pathLength);
  levels_.pop_back();
  return chain_.pop();
}

int Walker::run(const Location& root) {
  bool isToEnter = false;
  if (!meet(root.folder.get(), root.name.c_str(), "", isToEnter)) return rootError_;
  if (isToEnter && !ended_) enter(root.folder.get(), root.name.c_str(), "");
  while (!levels_.empty() && !ended_) {
    if (levels_.back().folders.empty()) {
      if (const int error = leave()) return error;
    } else {
      const std::string name = levels_.back().folders.take();
      enter(chain_.current(), name.c_str(), name);
    }
  }
  return rootError_;
}

}  // namespace

Status walkTree(const Location& root, const TreeWalk& walk) {
  return outcomeOf(Walker(walk).run(root), root.name);
}

Status walkTree(const std::string& path, const TreeWalk& walk) {
  const Result<Location> root = locate(path);
  if (!root) return root.error();
  return outcomeOf(Walker(walk).run(*root), path);
}

}  // namespace halyard::host

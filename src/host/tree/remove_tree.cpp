// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/remove_tree.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "host/files/identity.h"
#include "host/files/location.h"
#include "host/files/system_call.h"
#include "host/tree/folder_chain.h"
#include "host/tree/folder_entries.h"

namespace halyard::host {

namespace {

/// How often a folder that others keep filling, or a walk that others move away, is begun again.
constexpr int kAttempts = 8;

int unlinkItem(int folder, const char* name, int flags = 0) {
  const int error = errorOf([&] { return ::unlinkat(folder, name, flags); });
  return error == ENOENT ? 0 : error;
}

/// One walk over one folder, depth first.
class Removal {
 public:
  Removal(int folder, const Identity& mount) : folder_(folder), mount_(mount) {}

  /// ESTALE when the walk lost its way and may be begun again.
  int run(const std::string& name);

 private:
  struct Level {
    std::string name;
    NameQueue folders;   ///< Still to be removed.
    int attempt = 1;     ///< How often this folder has been entered.
    bool keeps = false;  ///< Something in it cannot be removed.
  };

  int current() const { return chain_.empty() ? folder_ : chain_.current(); }
  void note(int error);
  void enter(std::string name, int attempt);
  int emptyCurrent();
  int leave();

  int folder_;
  Identity mount_;
  FolderChain chain_;
  std::vector<Level> levels_;
  FolderReader reader_;
  std::vector<FolderEntry> entries_;
  int firstError_ = 0;
};

void Removal::note(int error) {
  if (firstError_ == 0) firstError_ = error;
  if (!levels_.empty()) levels_.back().keeps = true;
}

/// Opens a folder, removes all in it but its folders, and makes it the current one.
void Removal::enter(std::string name, int attempt) {
  Descriptor opened(uninterrupted([&] { return ::openat(current(), name.c_str(), kFolderFlags); }));
  if (!opened) {
    int error = errno;
    // Meanwhile it is gone, or no folder any more.
    if (error == ENOENT) return;
    if (error == ENOTDIR || error == ELOOP) error = unlinkItem(current(), name.c_str());
    if (error != 0) note(error);
    return;
  }
  Identity identity;
  int error = identify(opened.get(), identity);
  if (error == 0 && !identity.sameMount(mount_)) error = EBUSY;
  if (error != 0) return note(error);

  chain_.push(std::move(opened), identity);
  levels_.push_back({std::move(name), {}, attempt, false});
  error = emptyCurrent();
  if (error != 0) note(error);
}

int Removal::emptyCurrent() {
  const int folder = chain_.current();
  Level& level = levels_.back();
  for (;;) {
    if (const int error = reader_.next(folder, entries_)) return error;
    if (entries_.empty()) return 0;
    for (const FolderEntry& entry : entries_) {
      const int error = entry.type == DT_DIR ? EISDIR : unlinkItem(folder, entry.name);
      if (error == EISDIR) {
        level.folders.add(entry.name);
      } else if (error != 0) {
        note(error);
      }
    }
  }
}

/// Goes up and removes the folder that was left, or enters it again when others filled it.
int Removal::leave() {
  Level left = std::move(levels_.back());
  levels_.pop_back();
  if (const int error = chain_.pop()) return error;
  const int error = unlinkItem(current(), left.name.c_str(), AT_REMOVEDIR);
  if (error == 0) return 0;
  const bool filled = error == ENOTEMPTY || error == EEXIST;
  if (filled && !left.keeps && left.attempt < kAttempts) {
    enter(std::move(left.name), left.attempt + 1);
  } else {
    note(error);
  }
  return 0;
}

int Removal::run(const std::string& name) {
  enter(name, 1);
  while (!levels_.empty()) {
    if (!levels_.back().folders.empty()) {
      enter(levels_.back().folders.take(), 1);
    } else if (const int error = leave()) {
      // The folder above is not where it was: what it holds now is another walk's business.
      return error == ENOENT ? ESTALE : error;
    }
  }
  return firstError_;
}

/// removeTreeAt as an error number.
int removeAll(int folder, const std::string& name) {
  if (name.empty() || name == "." || name == "..") return EINVAL;
  const int error = errorOf([&] { return ::unlinkat(folder, name.c_str(), 0); });
  if (error != EISDIR) return error;

  Identity mount;
  if (const int unknown = identify(folder, mount)) return unknown;
  int outcome = ESTALE;
  for (int attempt = 0; attempt < kAttempts && outcome == ESTALE; ++attempt) {
    outcome = Removal(folder, mount).run(name);
  }
  if (outcome == 0) return 0;
  // A folder that could not be read to its end may have been empty all the same.
  struct stat status = {};
  const int stands =
      errorOf([&] { return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW); });
  return stands == ENOENT ? 0 : outcome;
}

}  // namespace

Status removeTreeAt(int folder, const std::string& name) {
  return outcomeOf(removeAll(folder, name), name);
}

Status removeTree(const std::string& path) {
  const Result<Location> item = locate(path);
  if (!item) return item.error();
  return outcomeOf(removeAll(item->folder.get(), item->name), path);
}

}  // namespace halyard::host

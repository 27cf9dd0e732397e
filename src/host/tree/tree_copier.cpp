// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/tree_copier.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/tree/change_time.h"
#include "host/tree/remove_tree.h"
#include "host/tree/replace_item.h"

namespace halyard::host {

namespace {

constexpr mode_t kPrivateMode = 0700;

/// The rest of the tree will fare no better.
bool endsEveryCopy(int error) { return error == ENOSPC || error == EDQUOT || error == EROFS; }

}  // namespace

TreeCopier::TreeCopier(const TreeCopyOptions& options, SelfCopy selfCopy)
    : options_(options), selfCopy_(selfCopy), items_(report_, options) {}

TreeCopyReport TreeCopier::copy(const Location& source, const Location& target) {
  int error = copyRoot(source, target);
  if (error == 0) error = walk();
  if (error != 0) discardUnfinished();
  report_.ended = error != 0;
  if (error != 0) report_.error = error;
  report_.complete = report_.error == 0;
  return report_;
}

int TreeCopier::copyRoot(const Location& source, const Location& target) {
  FolderPair folders;
  folders.source = source.folder.get();
  folders.target = target.folder.get();
  folders.replaces = options_.intoExisting || options_.update;
  folders.isLive = options_.intoExisting && !options_.update;
  folders.handsDown = true;  // It may well: for one item it is not worth asking.
  const char* name = source.name.c_str();
  const int error = items_.copy(folders, name, target.name.c_str(), DT_UNKNOWN);
  if (error == 0) ++report_.items;
  if (error != EISDIR) return error;
  return enter(folders.source, name, folders.target, target.name.c_str());
}

int TreeCopier::walk() {
  while (!levels_.empty()) {
    int error = 0;
    std::string name;
    if (levels_.back().folders.empty()) {
      error = leave();
    } else {
      name = levels_.back().folders.take();
      error = enter(source_.current(), name.c_str(), target_.current(), name.c_str());
    }
    if (error != 0) return error;
  }
  return 0;
}

/// The error itself when it ends the walk; 0 once it has been told to whom it concerns.
int TreeCopier::tolerate(int error, std::string_view name) {
  if (error == 0 || !options_.failed || endsEveryCopy(error)) return error;
  if (report_.error == 0) report_.error = error;
  const std::size_t folderLength = appendToPath(name);
  const bool goesOn = options_.failed(path_, error);
  path_.resize(folderLength);
  return goesOn ? 0 : error;
}

bool TreeCopier::isLeftOut(const char* name) {
  if (!options_.excluded) return false;
  const std::size_t folderLength = appendToPath(name);
  const bool leftOut = options_.excluded(path_);
  path_.resize(folderLength);
  return leftOut;
}

/// In place, since copies of the path of each folder would cost the square of the depth.
std::size_t TreeCopier::appendToPath(std::string_view name) {
  const std::size_t folderLength = path_.size();
  if (!path_.empty() && !name.empty()) path_ += '/';
  path_ += name;
  return folderLength;
}

/// Makes the folder the current one on all three sides and copies its items but the folders.
int TreeCopier::enter(int sourceFolder, const char* fromName, int targetFolder,
                      const char* toName) {
  const bool isRoot = levels_.empty();
  const std::string_view shownName = isRoot ? "" : fromName;
  Level level = {};
  Identity identity;
  Descriptor source(items_.opener().open(sourceFolder, fromName, kFolderFlags));
  int error = source ? identify(source.get(), identity) : errno;
  if (error == 0) error = errorOf([&] { return ::fstat(source.get(), &level.source); });
  if (error != 0) return giveUp(error, targetFolder, toName, shownName);
  if (!isRoot && identity.sameItem(targetRoot_)) return selfCopy_ == SelfCopy::refused ? EINVAL : 0;

  Descriptor target;
  Identity targetIdentity;
  error = openTarget(targetFolder, toName, target, level);
  if (error == 0) error = identify(target.get(), targetIdentity);
  if (error == 0 && isRoot) error = items_.hardLinks().begin(target.get());
  if (isRoot && !options_.earlier.empty()) {
    earlierRoot_ = Descriptor(uninterrupted(
        [&] { return ::open(options_.earlier.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  }
  if (error == 0 && targetIdentity.sameItem(identity)) error = EINVAL;
  if (error != 0) return tolerate(error, shownName);

  level.pathLength = appendToPath(shownName);
  if (options_.memory != nullptr) {
    // A copy that was changed since is looked through, whatever is known of the source.
    level.isKnown = options_.memory->enter(isRoot ? "" : fromName, level.source) &&
                    sameTime(level.givenTime, level.source.st_mtim);
    InodeFlags flags = 0;
    if (options_.memory->wantsFlags() && readInodeFlags(source.get(), flags) == 0) {
      options_.memory->sawFlags(flags);
    }
  }
  if (level.isMerged && level.flags != 0) options_.flagged(path_, level.flags);
  enterReference(fromName);
  source_.push(std::move(source), identity);
  target_.push(std::move(target), targetIdentity);
  levels_.push_back(std::move(level));
  if (isRoot) {
    sourceRoot_ = identity;
    targetRoot_ = targetIdentity;
  } else {
    const std::string& temporary = levels_.back().temporary;
    items_.hardLinks().enter(temporary.empty() ? fromName : temporary);
  }
  ++report_.items;
  names_.clear();
  const bool isMountedUpon = options_.oneFileSystem && !identity.sameMount(sourceRoot_);
  if (isMountedUpon) {
    error = identity.device == sourceRoot_.device ? tolerate(EXDEV, "") : 0;
  } else {
    error = copyEntries();
  }
  if (error == 0 && mayHaveStale()) error = tolerate(removeStale(), "");
  return error;
}

/// Makes the folder in the copy, or opens the one that is there and may be merged.
int TreeCopier::openTarget(int folder, const char* name, Descriptor& opened, Level& level) {
  int error = errorOf([&] { return ::mkdirat(folder, name, kPrivateMode); });
  level.isMerged = error == EEXIST && (options_.intoExisting || options_.update);
  if (error != 0 && !level.isMerged) return error;
  if (!level.isMerged) noteChange();

  const int follow = level.isMerged && levels_.empty() ? kFolderFlags & ~O_NOFOLLOW : kFolderFlags;
  opened = Descriptor(uninterrupted([&] { return ::openat(folder, name, follow); }));
  if (!opened && level.isMerged && (errno == ENOTDIR || errno == ELOOP)) {
    // Something else stands there and is replaced.
    level.isMerged = false;
    noteChange();
    if (options_.update) {
      error = errorOf([&] { return ::unlinkat(folder, name, 0); });
      if (error == 0) error = errorOf([&] { return ::mkdirat(folder, name, kPrivateMode); });
    } else {
      error = makeTemporary(folder, name, level);
      name = level.temporary.c_str();
    }
    if (error != 0) return error;
    opened = Descriptor(uninterrupted([&] { return ::openat(folder, name, kFolderFlags); }));
  }
  error = opened ? prepareTarget(opened.get(), level) : errno;
  if (error != 0 && !level.isMerged) {
    (void)errorOf([&] { return ::unlinkat(folder, name, AT_REMOVEDIR); });
  }
  return error;
}

/// In a live folder what is replaced stands until all that takes its place is on disk.
int TreeCopier::makeTemporary(int folder, const char* name, Level& level) {
  level.name = name;
  int error = EEXIST;
  for (int attempt = 0; error == EEXIST && attempt < kTemporaryNameAttempts; ++attempt) {
    level.temporary = temporaryName();
    error = errorOf([&] { return ::mkdirat(folder, level.temporary.c_str(), kPrivateMode); });
  }
  return error;
}

int TreeCopier::prepareTarget(int folder, Level& level) {
  struct stat status = {};
  if (const int error = errorOf([&] { return ::fstat(folder, &status); })) return error;
  level.givenTime = status.st_mtim;
  level.given = {status.st_uid, status.st_gid, status.st_mode & kPermissionBits};
  if (options_.flagged) {
    if (const int error = settleFlags(folder, level)) return error;
  }
  if (level.isMerged) {
    level.handsDown = handsDownLists(folder);
    return 0;
  }
  // Only a folder that was there before can have handed a list down to this one.
  const bool mayHaveLists = levels_.empty() || levels_.back().handsDown;
  return mayHaveLists ? removeInheritedLists(folder) : 0;
}

/// Unlocks a folder that was there; a new one gets no flags from the one that it is in.
int TreeCopier::settleFlags(int folder, Level& level) const {
  if (const int error = readInodeFlags(folder, level.flags)) return error;
  const InodeFlags kept = level.isMerged ? level.flags & ~kLockingFlags : 0;
  if (level.flags == kept) return 0;
  InodeFlags lacking = 0;
  const int error = setInodeFlags(folder, kept, lacking);
  if (!level.isMerged) level.flags = lacking;
  return error == 0 && (lacking & kLockingFlags) != 0 ? EPERM : error;
}

void TreeCopier::enterReference(const char* name) {
  // The chain ends where the earlier copy lacks a folder of the path.
  if (reference_.size() != levels_.size()) return;
  Descriptor folder;
  if (!levels_.empty()) {
    folder = Descriptor(items_.opener().open(reference_.current(), name, kFolderFlags));
  } else if (!options_.reference.empty()) {
    folder = Descriptor(items_.opener().open(AT_FDCWD, options_.reference.c_str(),
                                             O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  Identity identity;
  if (!folder || identify(folder.get(), identity) != 0) return;
  reference_.push(std::move(folder), identity);
}

int TreeCopier::copyEntries() {
  FolderPair folders;
  folders.source = source_.current();
  folders.target = target_.current();
  if (reference_.size() == levels_.size()) folders.reference = reference_.current();
  folders.updates = options_.update && levels_.back().isMerged;
  folders.replaces = options_.intoExisting || options_.update;
  folders.isLive = options_.intoExisting && !options_.update && levels_.back().isMerged;
  folders.handsDown = levels_.back().handsDown;
  folders.handsDownFlags = (levels_.back().flags & ~kLockingFlags) != 0;
  folders.earlierRoot = earlierRoot_.get();
  int error = 0;
  if (folders.updates && options_.memory != nullptr) {
    error = folders.there.read(reader_, folders.target);
  }
  do {
    if (error == 0) error = tolerate(reader_.next(folders.source, entries_), "");
    for (std::size_t at = 0; error == 0 && at < entries_.size(); ++at) {
      error = copyEntry(folders, entries_[at]);
    }
  } while (error == 0 && !entries_.empty());
  if (folders.changed) noteChange();
  return error;
}

int TreeCopier::copyEntry(FolderPair& folders, const FolderEntry& entry) {
  if (isLeftOut(entry.name)) return 0;
  if (mayHaveStale()) names_.emplace_back(entry.name);
  if (options_.scout != nullptr && entry.type != DT_DIR) {
    folders.seen = options_.scout->find(path_, entry.name, entry.inode);
  }
  const int error = items_.copy(folders, entry.name, entry.name, entry.type);
  if (error == 0) ++report_.items;
  tellLost(entry.name, items_.takeLost());
  if (error == EISDIR) levels_.back().folders.add(entry.name);
  if (error == 0 || error == EISDIR) return 0;
  return giveUp(error, folders.target, entry.name, entry.name);
}

/// What could not be copied is left out: in an update, no older copy may pass for it.
int TreeCopier::giveUp(int error, int targetFolder, const char* name, std::string_view shownName) {
  if (options_.update && !levels_.empty() && !endsEveryCopy(error) &&
      removeTreeAt(targetFolder, name)) {
    noteChange();
  }
  return tolerate(error, shownName);
}

/// Whether the copy of the current folder may have names that the folder itself has not.
bool TreeCopier::mayHaveStale() const {
  return options_.update && levels_.back().isMerged && !levels_.back().isKnown;
}

void TreeCopier::noteChange() {
  if (!levels_.empty()) levels_.back().isChanged = true;
}

int TreeCopier::removeStale() {
  std::ranges::sort(names_);
  std::vector<std::string> stale;
  for (;;) {
    if (const int error = reader_.next(target_.current(), entries_)) return error;
    if (entries_.empty()) break;
    for (const FolderEntry& entry : entries_) {
      if (!std::ranges::binary_search(names_, entry.name)) stale.emplace_back(entry.name);
    }
  }
  for (const std::string& name : stale) {
    if (const Status removed = removeTreeAt(target_.current(), name); !removed) {
      return removed.error().code;
    }
    noteChange();
  }
  return 0;
}

int TreeCopier::giveFolderAttributes(const Level& level) {
  ExtendedAttributes attributes;
  const int target = target_.current();
  int error = attributes.read(AttributeItem::opened(source_.current()));
  if (error == 0 && level.isMerged) {
    error = attributes.removeOthers(AttributeItem::opened(target));
  }
  if (error != 0) return error;
  struct stat wanted = level.source;
  if (options_.adapt) options_.adapt(wanted, attributes);
  LostAttributes lost;
  error = giveAttributes(target, wanted, attributes, level.given,
                         options_.attributesLost ? &lost : nullptr);
  tellLost("", lost);
  return error;
}

void TreeCopier::tellLost(std::string_view name, const LostAttributes& lost) {
  if (!lost.any()) return;
  const std::size_t folderLength = appendToPath(name);
  options_.attributesLost(path_, lost);
  path_.resize(folderLength);
}

/// Gives the folder its attributes, last of all, since every item in it changed its times, and goes
/// back up.
int TreeCopier::leave() {
  const Level& level = levels_.back();
  const bool isUntouched = options_.update && level.isMerged && level.isKnown && !level.isChanged;
  const bool keepsOwn = level.isMerged && options_.passedThrough && options_.passedThrough(path_);
  const int failure = isUntouched || keepsOwn ? 0 : tolerate(giveFolderAttributes(level), "");
  if (failure != 0) return failure;
  if (options_.memory != nullptr) options_.memory->leave();

  if (reference_.size() == levels_.size() && reference_.pop() != 0) {
    reference_.clear();  // From here on all is copied afresh.
  }
  int error = source_.pop();
  if (error == 0) error = target_.pop();
  if (error == 0 && !level.temporary.empty()) error = tolerate(publish(level), "");
  if (error != 0) return error;
  path_.resize(level.pathLength);
  levels_.pop_back();
  if (!levels_.empty()) items_.hardLinks().leave();
  return 0;
}

/// Of a folder that was left; its parent is the current one.
int TreeCopier::publish(const Level& level) {
  const int parent = target_.current();
  int error = syncFileSystem(parent).error().code;
  const Locks locks = options_.flagged ? Locks::opened : Locks::respected;
  if (error == 0) {
    error = changePlaces(parent, level.temporary, level.name.c_str(), locks);
  } else {
    (void)removeTreeAt(parent, level.temporary);
  }
  if (error == 0) items_.hardLinks().rename(level.name);
  return error;
}

/// What stands where such a folder was to come stays.
void TreeCopier::discardUnfinished() {
  for (; !levels_.empty(); levels_.pop_back()) {
    while (target_.size() >= levels_.size()) {
      if (target_.pop() != 0) return;
    }
    const std::string& temporary = levels_.back().temporary;
    if (!temporary.empty() && !target_.empty()) (void)removeTreeAt(target_.current(), temporary);
  }
}

}  // namespace halyard::host

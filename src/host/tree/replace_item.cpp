// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/replace_item.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/descriptor.h"
#include "host/files/identity.h"
#include "host/files/location.h"
#include "host/files/rename_item.h"
#include "host/files/system_call.h"
#include "host/tree/inode_flags.h"
#include "host/tree/remove_tree.h"
#include "host/tree/walk_tree.h"

namespace halyard::host {

namespace {

int renameOver(int folder, const std::string& temporary, const char* name) {
  return errorOf([&] { return ::renameat(folder, temporary.c_str(), folder, name); });
}

/// The old item stands as it did, where that can be.
void lockAgain(int folder, const char* name, InodeFlags former) {
  const Descriptor old(uninterrupted(
      [&] { return ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  InodeFlags lacking = 0;
  if (old) (void)setInodeFlags(old.get(), former, lacking);
}

int replaceLocked(int folder, const std::string& temporary, const char* name) {
  InodeFlags former = 0;
  if (unlockItem(folder, name, former) != 0 || (former & kLockingFlags) == 0) return EPERM;
  const int error = renameOver(folder, temporary, name);
  if (error == 0) return 0;
  lockAgain(folder, name, former);  // The rename's error is told.
  return error;
}

/// What is mounted in a folder would go along with it.
bool holdsMount(int folder, const char* name) {
  Identity above;
  bool holds = identify(folder, above) != 0;
  TreeWalk walk;
  walk.visit = [&](const WalkedItem& item) {
    if (!S_ISDIR(item.status.st_mode)) return WalkStep::goOn;
    const Descriptor inner(uninterrupted(
        [&] { return ::openat(item.folder, item.name, O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
    Identity identity;
    holds = inner && identify(inner.get(), identity) == 0 && !identity.sameMount(above);
    return holds ? WalkStep::end : WalkStep::goOn;
  };
  Location root;
  root.folder = Descriptor(
      uninterrupted([&] { return ::openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  root.name = name;
  if (!holds && root.folder) (void)walkTree(root, walk);  // The removal meets what this cannot.
  return holds;
}

int exchange(int folder, const std::string& temporary, const char* name, Locks locks) {
  const auto attempt = [&] {
    return errorOf(
        [&] { return ::renameat2(folder, temporary.c_str(), folder, name, RENAME_EXCHANGE); });
  };
  int error = attempt();
  InodeFlags former = 0;
  if (error != EPERM || locks != Locks::opened || unlockItem(folder, name, former) != 0) {
    return error;
  }
  error = attempt();
  if (error != 0) lockAgain(folder, name, former);
  return error;
}

int syncData(int folder, const char* name) {
  struct stat status = {};
  const int error = errorOf([&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); });
  if (error != 0 || !S_ISREG(status.st_mode)) return error;
  const Descriptor file(uninterrupted(
      [&] { return ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  return file ? errorOf([&] { return ::fdatasync(file.get()); }) : errno;
}

}  // namespace

int changePlaces(int folder, const std::string& temporary, const char* name, Locks locks) {
  const auto removed = [&](const char* item) {
    if (locks == Locks::opened) unlockTree(folder, item);
    return removeTreeAt(folder, item).error().code;
  };
  int error = holdsMount(folder, name) ? EBUSY : exchange(folder, temporary, name, locks);
  if (error == 0) return removed(temporary.c_str());
  if (error == EINVAL || error == ENOSYS) {  // Some file systems cannot do that.
    error = removed(name);
    if (error == 0) error = renameOver(folder, temporary, name);
  }
  if (error != 0) (void)removeTreeAt(folder, temporary);
  return error;
}

int replaceItem(int folder, const std::string& temporary, const char* name, Locks locks) {
  int error = renameOver(folder, temporary, name);
  if (error == EPERM && locks == Locks::opened) error = replaceLocked(folder, temporary, name);
  if (error == EISDIR) return changePlaces(folder, temporary, name, locks);
  // Two names of one item are not renamed over each other: the temporary one would stay.
  (void)errorOf([&] { return ::unlinkat(folder, temporary.c_str(), 0); });
  return error;
}

int publishItem(int folder, const std::string& temporary, const char* name, Locks locks) {
  int error = renameWithoutReplacing(folder, temporary, folder, name);
  if (error == 0) return 0;
  if (error == EEXIST) error = syncData(folder, temporary.c_str());
  if (error == 0) return replaceItem(folder, temporary, name, locks);
  (void)errorOf([&] { return ::unlinkat(folder, temporary.c_str(), 0); });
  return error;
}

}  // namespace halyard::host

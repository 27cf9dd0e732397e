// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/replace_item.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/descriptor.h"
#include "host/files/rename_item.h"
#include "host/files/system_call.h"
#include "host/tree/inode_flags.h"
#include "host/tree/remove_tree.h"

namespace halyard::host {

namespace {

int renameOver(int folder, const std::string& temporary, const char* name) {
  return errorOf([&] { return ::renameat(folder, temporary.c_str(), folder, name); });
}

int replaceLocked(int folder, const std::string& temporary, const char* name) {
  InodeFlags former = 0;
  if (unlockItem(folder, name, former) != 0 || (former & kLockingFlags) == 0) return EPERM;
  const int error = renameOver(folder, temporary, name);
  if (error == 0) return 0;
  const Descriptor old(uninterrupted(
      [&] { return ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  InodeFlags lacking = 0;
  // The rename's error is told, and the old item stands as it did where that can be.
  if (old) (void)setInodeFlags(old.get(), former, lacking);
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

int replaceItem(int folder, const std::string& temporary, const char* name, Locks locks) {
  int error = renameOver(folder, temporary, name);
  if (error == EPERM && locks == Locks::opened) error = replaceLocked(folder, temporary, name);
  if (error == EISDIR) {
    if (locks == Locks::opened) unlockTree(folder, name);
    error = removeTreeAt(folder, name).error().code;
    if (error == 0) error = renameOver(folder, temporary, name);
  }
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

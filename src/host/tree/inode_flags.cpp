// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/inode_flags.h"

#include <sys/ioctl.h>
#include <sys/stat.h>

#include "host/files/descriptor.h"
#include "host/files/location.h"
#include "host/files/system_call.h"
#include "host/tree/walk_tree.h"

namespace halyard::host {

namespace {

/// All flags, also those that nobody sets.
int readAll(int descriptor, InodeFlags& flags) {
  unsigned int held = 0;  // What the kernel writes, whatever the request's name says.
  const int error = errorOf([&] { return ::ioctl(descriptor, FS_IOC_GETFLAGS, &held); });
  flags = held;
  return error;
}

int writeAll(int descriptor, InodeFlags flags) {
  unsigned int wanted = flags;
  return errorOf([&] { return ::ioctl(descriptor, FS_IOC_SETFLAGS, &wanted); });
}

/// One flag after the other, the locking ones last: what one of them is refused for is not lost for
/// all.
void setOneByOne(int descriptor, InodeFlags wanted) {
  const auto settle = [&](InodeFlags flag) {
    InodeFlags held = 0;
    if (readAll(descriptor, held) != 0 || ((held ^ wanted) & flag) == 0) return;
    (void)writeAll(descriptor, held ^ flag);  // What it has afterwards tells.
  };
  for (InodeFlags flag = 1; flag != 0; flag <<= 1) {
    if ((flag & kSettableFlags & ~kLockingFlags) != 0) settle(flag);
  }
  settle(FS_APPEND_FL);
  settle(FS_IMMUTABLE_FL);
}

bool knowsNoFlags(int error) {
  return error == ENOTTY || error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
}

}  // namespace

int readInodeFlags(int descriptor, InodeFlags& flags) {
  const int error = readAll(descriptor, flags);
  flags &= kSettableFlags;
  if (error == 0) return 0;
  flags = 0;
  return knowsNoFlags(error) ? 0 : error;
}

int setInodeFlags(int descriptor, InodeFlags wanted, InodeFlags& lacking) {
  wanted &= kSettableFlags;
  lacking = wanted;
  InodeFlags held = 0;
  if (const int error = readAll(descriptor, held)) return knowsNoFlags(error) ? 0 : error;
  lacking = (held ^ wanted) & kSettableFlags;
  if (lacking == 0) return 0;
  const int error = writeAll(descriptor, (held & ~kSettableFlags) | wanted);
  if (error == EROFS || error == EIO || error == ENOSPC) return error;
  if (error != 0) setOneByOne(descriptor, wanted);
  // Some file systems take a flag and forget it.
  if (const int unread = readAll(descriptor, held)) return unread;
  lacking = (held ^ wanted) & kSettableFlags;
  return 0;
}

int unlockItem(int folder, const char* name, InodeFlags& former) {
  former = 0;
  const Descriptor item(uninterrupted([&] {
    return ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  if (!item) return errno;
  if (const int error = readInodeFlags(item.get(), former)) return error;
  if ((former & kLockingFlags) == 0) return 0;
  InodeFlags lacking = 0;
  const int error = setInodeFlags(item.get(), former & ~kLockingFlags, lacking);
  return error == 0 && (lacking & kLockingFlags) != 0 ? EPERM : error;
}

void unlockTree(int folder, const char* name) {
  Location root;
  root.folder = Descriptor(
      uninterrupted([&] { return ::openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  root.name = name;
  TreeWalk walk;
  walk.visit = [](const WalkedItem& item) {
    InodeFlags former = 0;
    const bool mayHave = S_ISREG(item.status.st_mode) || S_ISDIR(item.status.st_mode);
    if (mayHave) (void)unlockItem(item.folder, item.name, former);  // The removal tells.
    return WalkStep::goOn;
  };
  if (root.folder) (void)walkTree(root, walk);
}

}  // namespace halyard::host

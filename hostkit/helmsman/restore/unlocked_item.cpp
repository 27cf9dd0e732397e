// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/unlocked_item.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "common/messages.h"

namespace halyard::hostkit {

UnlockedItem::UnlockedItem(int folder, const std::string& name)
    : name_(name), error_(unlock(folder)) {}

int UnlockedItem::unlock(int folder) {
  struct stat status {};
  if (::fstatat(folder, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return 0;
  host::Descriptor item(
      ::openat(folder, name_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!item) return errno;
  if (const int error = host::readInodeFlags(item.get(), flags_)) return error;
  if ((flags_ & host::kLockingFlags) == 0) return 0;
  host::InodeFlags lacking = 0;
  const int error = host::setInodeFlags(item.get(), flags_ & ~host::kLockingFlags, lacking);
  item_ = std::move(item);
  return error == 0 && (lacking & host::kLockingFlags) != 0 ? EPERM : error;
}

bool UnlockedItem::lockAgain() {
  if (!item_) return true;
  host::InodeFlags lacking = 0;
  const bool isLocked = host::setInodeFlags(item_.get(), flags_, lacking) == 0 && lacking == 0;
  item_ = host::Descriptor();
  if (!isLocked) printWarning(name_ + " could not be given its inode flags (see: lsattr)");
  return isLocked;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/rename_item.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

/// For file systems that know no RENAME_NOREPLACE (some network and FUSE ones).
int renameByOtherMeans(int fromFolder, const char* fromName, int toFolder, const char* toName) {
  struct stat status = {};
  if (const int error =
          errorOf([&] { return ::fstatat(fromFolder, fromName, &status, AT_SYMLINK_NOFOLLOW); })) {
    return error;
  }
  if (!S_ISDIR(status.st_mode)) {
    const int error = errorOf([&] { return ::linkat(fromFolder, fromName, toFolder, toName, 0); });
    if (error == 0) {
      const int kept = errorOf([&] { return ::unlinkat(fromFolder, fromName, 0); });
      if (kept != 0) (void)errorOf([&] { return ::unlinkat(toFolder, toName, 0); });
      return kept;
    }
    if (!isUnsupported(error) && error != EPERM) return error;
  }
  if (::fstatat(toFolder, toName, &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  if (errno != ENOENT) return errno;
  return errorOf([&] { return ::renameat(fromFolder, fromName, toFolder, toName); });
}

}  // namespace

int renameWithoutReplacing(int fromFolder, const std::string& fromName, int toFolder,
                           const std::string& toName) {
  const int error = errorOf([&] {
    return ::renameat2(fromFolder, fromName.c_str(), toFolder, toName.c_str(), RENAME_NOREPLACE);
  });
  // EINVAL also means a folder moved into itself; the other means answer that one alike.
  if (error != EINVAL && error != ENOSYS) return error;
  return renameByOtherMeans(fromFolder, fromName.c_str(), toFolder, toName.c_str());
}

}  // namespace halyard::host

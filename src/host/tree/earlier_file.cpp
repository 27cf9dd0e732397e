// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/earlier_file.h"

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

#include "host/files/system_call.h"

namespace halyard::host {

bool isAlike(int folder, const char* name, const struct stat& status) {
  struct stat there = {};
  return errorOf([&] { return ::fstatat(folder, name, &there, AT_SYMLINK_NOFOLLOW); }) == 0 &&
         (there.st_mode & S_IFMT) == (status.st_mode & S_IFMT) &&
         (!S_ISREG(status.st_mode) || there.st_size == status.st_size);
}

EarlierFile openEarlier(QuietOpener& opener, int folder, const char* name,
                        const TreeMemory::Earlier& known) {
  EarlierFile earlier;
  if (folder < 0 || known.isDamaged) return earlier;
  Descriptor file(
      opener.open(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file || ::fstat(file.get(), &earlier.status) != 0 || !S_ISREG(earlier.status.st_mode)) {
    return earlier;
  }
  earlier.folder = folder;
  earlier.name = name;
  earlier.file = std::move(file);
  earlier.known = known;
  return earlier;
}

EarlierFile openMoved(QuietOpener& opener, int root, const TreeMemory::Moved& moved) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  const char* path = *moved.folder == '\0' ? "." : moved.folder;
  Descriptor folder(static_cast<int>(::syscall(SYS_openat2, root, path, &how, sizeof how)));
  if (!folder) return {};
  EarlierFile earlier = openEarlier(opener, folder.get(), moved.name, moved.earlier);
  earlier.held = std::move(folder);
  earlier.isProven = moved.isProven;
  return earlier;
}

}  // namespace halyard::host

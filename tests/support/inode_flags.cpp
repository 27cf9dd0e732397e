// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/inode_flags.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>

#include "host/files/descriptor.h"
#include "host/tree/walk_tree.h"

namespace halyard::test {

namespace {

host::Descriptor opened(const std::string& path) {
  return host::Descriptor(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

}  // namespace

host::InodeFlags flagsOf(const std::string& path) {
  const host::Descriptor item = opened(path);
  unsigned flags = 0;
  if (!item || ::ioctl(item.get(), FS_IOC_GETFLAGS, &flags) != 0) return 0;
  return flags & host::kSettableFlags;
}

bool setFlags(const std::string& path, host::InodeFlags flags) {
  const host::Descriptor item = opened(path);
  unsigned held = 0;
  if (!item || ::ioctl(item.get(), FS_IOC_GETFLAGS, &held) != 0) return false;
  held = (held & ~host::kSettableFlags) | flags;
  return ::ioctl(item.get(), FS_IOC_SETFLAGS, &held) == 0 && flagsOf(path) == flags;
}

std::vector<std::string> listFlags(const std::string& root) {
  std::vector<std::string> lines;
  host::TreeWalk walk;
  walk.visit = [&](const host::WalkedItem& item) {
    const bool mayHave = S_ISREG(item.status.st_mode) || S_ISDIR(item.status.st_mode);
    const std::string path(item.path);
    const host::InodeFlags flags = mayHave ? flagsOf(root + "/" + path) : 0;
    if (flags != 0) lines.push_back(path + " " + std::to_string(flags));
    return host::WalkStep::goOn;
  };
  if (!host::walkTree(root, walk)) lines.emplace_back("cannot be listed");
  std::ranges::sort(lines);
  return lines;
}

UnlockedAtTheEnd::~UnlockedAtTheEnd() { host::unlockTree(AT_FDCWD, root_.c_str()); }

}  // namespace halyard::test

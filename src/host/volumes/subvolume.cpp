// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/subvolume.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include "host/files/descriptor.h"
#include "host/files/system_call.h"
#include "host/tree/folder_entries.h"
#include "host/tree/remove_tree.h"

namespace halyard::host {

namespace {

constexpr ino_t kSubvolumeRoot = 256;  // The number that btrfs gives the root of each subvolume.

/// A folder right in another one: no link, and not what is mounted on top of it.
Descriptor openFolderIn(int folder, const std::string& name) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  return Descriptor(
      static_cast<int>(::syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how)));
}

bool isOnBtrfs(int folder) {
  struct statfs status {};
  return ::fstatfs(folder, &status) == 0 && status.f_type == BTRFS_SUPER_MAGIC;
}

bool isSubvolume(int folder) {
  struct stat status {};
  return ::fstat(folder, &status) == 0 && status.st_ino == kSubvolumeRoot;
}

/// Nothing can be taken out of a read-only subvolume.
void makeWritable(int subvolume) {
  std::uint64_t flags = 0;
  if (::ioctl(subvolume, BTRFS_IOC_SUBVOL_GETFLAGS, &flags) != 0) return;
  if ((flags & BTRFS_SUBVOL_RDONLY) == 0) return;
  flags &= ~static_cast<std::uint64_t>(BTRFS_SUBVOL_RDONLY);
  (void)::ioctl(subvolume, BTRFS_IOC_SUBVOL_SETFLAGS, &flags);  // A refusal shows later.
}

bool destroy(int folder, const std::string& name) {
  btrfs_ioctl_vol_args arguments{};
  if (name.size() >= sizeof arguments.name) return false;
  name.copy(arguments.name, name.size());
  return ::ioctl(folder, BTRFS_IOC_SNAP_DESTROY, &arguments) == 0;
}

/// The folders right in a folder.
std::vector<std::string> foldersIn(int folder) {
  std::vector<std::string> names;
  FolderReader reader;
  std::vector<FolderEntry> entries;
  while (reader.next(folder, entries) == 0 && !entries.empty()) {
    for (const FolderEntry& entry : entries) {
      if (entry.type == DT_DIR) names.emplace_back(entry.name);
    }
  }
  return names;
}

}  // namespace

bool destroySubvolumes(int folder, const std::string& name) {
  Descriptor item = openFolderIn(folder, name);
  if (!item || !isOnBtrfs(item.get())) return false;
  const bool isRoot = isSubvolume(item.get());
  if (isRoot && destroy(folder, name)) return true;  // The usual case: nothing nested in it.
  if (isRoot) makeWritable(item.get());
  for (const std::string& inner : foldersIn(item.get())) {
    const Descriptor candidate = openFolderIn(item.get(), inner);
    if (!candidate || !isSubvolume(candidate.get())) continue;
    // What stays is removed item by item, which a read-only subvolume would refuse.
    if (!destroy(item.get(), inner)) makeWritable(candidate.get());
  }
  item.reset();
  return isRoot && destroy(folder, name);
}

Status removeWithSubvolumes(const std::string& parent, const std::string& name) {
  const Descriptor folder(::open(parent.c_str(), kFolderFlags));
  if (!folder) return Error{errno, parent};
  if (destroySubvolumes(folder.get(), name)) return {};
  return removeTreeAt(folder.get(), name);
}

}  // namespace halyard::host

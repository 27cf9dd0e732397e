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

#include "base/text.h"
#include "host/files/system_call.h"
#include "host/tree/folder_entries.h"
#include "host/tree/remove_tree.h"

// The requests of the kernel itself (btrfs-ioctl(2)): the library over them adds nothing to the
// seven that are used, and would be one more thing to load.
namespace halyard::host {

namespace {

constexpr ino_t kSubvolumeRoot = 256;  // The number that btrfs gives the root of each subvolume.

/// A request about a name in a folder, which the kernel looks up there without following a link.
int request(unsigned long what, int folder, const std::string& name, int source = -1) {
  btrfs_ioctl_vol_args arguments{};
  if (name.size() >= sizeof arguments.name) return ENAMETOOLONG;
  name.copy(arguments.name, name.size());
  arguments.fd = source;
  return errorOf([&] { return ::ioctl(folder, what, &arguments); });
}

int setReadOnly(int subvolume, bool readOnly) {
  std::uint64_t flags = 0;
  const int error = errorOf([&] { return ::ioctl(subvolume, BTRFS_IOC_SUBVOL_GETFLAGS, &flags); });
  if (error != 0 || ((flags & BTRFS_SUBVOL_RDONLY) != 0) == readOnly) return error;
  flags ^= static_cast<std::uint64_t>(BTRFS_SUBVOL_RDONLY);
  return errorOf([&] { return ::ioctl(subvolume, BTRFS_IOC_SUBVOL_SETFLAGS, &flags); });
}

bool destroy(int folder, const std::string& name) {
  return request(BTRFS_IOC_SNAP_DESTROY, folder, name) == 0;
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

bool destroySubvolumes(int folder, const std::string& name);

/// Destroys those that lie in a subvolume, at any depth.
void destroyNested(int subvolume) {
  const auto nested = subvolumesIn(subvolume);
  if (!nested) return;
  for (const std::string& path : *nested) {
    const Descriptor above = openInVolume(subvolume, parentPath("./" + path));
    if (above) (void)destroySubvolumes(above.get(), path.substr(path.rfind('/') + 1));
  }
}

/// Destroys a subvolume, and first those that lie in it; a plain folder loses those that lie
/// directly in it and stays. What is left is no longer read-only, which would refuse removal item
/// by item. True when the item is gone.
bool destroySubvolumes(int folder, const std::string& name) {
  Descriptor item = openInVolume(folder, name);
  if (!item || !isOnBtrfs(item.get())) return false;
  const bool isRoot = isSubvolumeRoot(item.get());
  if (isRoot && destroy(folder, name)) return true;  // The usual case: nothing nested in it.
  if (isRoot) {
    (void)setReadOnly(item.get(), false);  // A refusal shows later.
    destroyNested(item.get());
  }
  for (const std::string& inner : foldersIn(item.get())) {
    const Descriptor candidate = openInVolume(item.get(), inner);
    if (!candidate || !isSubvolumeRoot(candidate.get())) continue;
    if (!destroy(item.get(), inner)) (void)setReadOnly(candidate.get(), false);
  }
  item.reset();
  return isRoot && destroy(folder, name);
}

}  // namespace

bool isOnBtrfs(int folder) {
  struct statfs status {};
  return ::fstatfs(folder, &status) == 0 && status.f_type == BTRFS_SUPER_MAGIC;
}

bool isSubvolumeRoot(int folder) {
  struct stat status {};
  return isOnBtrfs(folder) && ::fstat(folder, &status) == 0 && status.st_ino == kSubvolumeRoot;
}

Descriptor openInVolume(int folder, const std::string& path) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  return Descriptor(uninterrupted([&] {
    return static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how));
  }));
}

bool isSubvolume(int folder, const std::string& name) {
  const Descriptor item = openInVolume(folder, name);
  return item && isSubvolumeRoot(item.get());
}

Status createSubvolume(int folder, const std::string& name) {
  return outcomeOf(request(BTRFS_IOC_SUBVOL_CREATE, folder, name), name);
}

Status copySubvolume(int folder, const std::string& source, const std::string& name) {
  const Descriptor original = openInVolume(folder, source);
  if (!original) return Error{errno, source};
  return outcomeOf(request(BTRFS_IOC_SNAP_CREATE, folder, name, original.get()), name);
}

Status copySubvolume(int source, int folder, const std::string& name) {
  return outcomeOf(request(BTRFS_IOC_SNAP_CREATE, folder, name, source), name);
}

Result<std::vector<std::string>> subvolumesIn(int subvolume) {
  std::vector<std::string> paths;
  btrfs_ioctl_get_subvol_rootref_args found{};
  int error = 0;
  do {
    // EOVERFLOW: there are more than fit, and the next call goes on where this one ended.
    error = errorOf([&] { return ::ioctl(subvolume, BTRFS_IOC_GET_SUBVOL_ROOTREF, &found); });
    if (error != 0 && error != EOVERFLOW) return Error{error, "subvolumes"};
    for (std::size_t at = 0; at < found.num_items; ++at) {
      btrfs_ioctl_ino_lookup_user_args place{};
      place.treeid = found.rootref[at].treeid;
      place.dirid = found.rootref[at].dirid;
      const int unknown =
          errorOf([&] { return ::ioctl(subvolume, BTRFS_IOC_INO_LOOKUP_USER, &place); });
      if (unknown == ENOENT) continue;  // It is gone since.
      if (unknown != 0) return Error{unknown, "subvolumes"};
      paths.push_back(std::string(place.path) + place.name);
    }
  } while (error == EOVERFLOW);
  return paths;
}

Status setSubvolumeReadOnly(int folder, const std::string& name, bool readOnly) {
  const Descriptor item = openInVolume(folder, name);
  return outcomeOf(item ? setReadOnly(item.get(), readOnly) : errno, name);
}

Status removeWithSubvolumes(int folder, const std::string& name) {
  return destroySubvolumes(folder, name) ? Status() : removeTreeAt(folder, name);
}

Status removeWithSubvolumes(const std::string& folder, const std::string& name) {
  const Descriptor opened(uninterrupted([&] { return ::open(folder.c_str(), kFolderFlags); }));
  if (!opened) return Error{errno, folder};
  return removeWithSubvolumes(opened.get(), name);
}

}  // namespace halyard::host

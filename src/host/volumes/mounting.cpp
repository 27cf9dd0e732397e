// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/mounting.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <string_view>
#include <vector>

#include "host/volumes/mount_library.h"
#include "host/volumes/mount_table.h"

namespace halyard::host {

namespace {

// The table's name is given to the library, which would else follow an environment variable.
MountTable parsedFstab(const MountLibrary& library) {
  MountTable table(library.newTable(), library.unrefTable);
  if (table && library.parseFstab(table.get(), kFstab) != 0) table.reset();
  return table;
}

/// Whether the mount is what one reaches by its path: no other mount lies on top of it.
bool isVisible(const Mount& mount) {
  const auto status = mountStatusOf(mount.mountPoint);
  if (!status || !S_ISDIR(status->stx_mode)) return false;
  if ((status->stx_mask & STATX_MNT_ID) == 0) return true;  // An older kernel does not tell.
  return status->stx_mnt_id == mount.identifier;
}

/// Whether the device behind a mount carries the tag. Asked of the device, so that it does not
/// matter which of its names or, on a file system of several devices, which device the mount shows.
bool carriesTag(const MountLibrary& library, libmnt_cache* cache, const Mount& mount,
                const VolumeTag& tag) {
  if (!mount.device.starts_with("/dev/")) return false;
  const char* value = library.tagValue(cache, mount.device.c_str(), tag.name.c_str());
  return value != nullptr && value == tag.value;
}

/// In a child of its own that may be led astray by no terminal: mounts and ends.
[[noreturn]] void mountInChild(const MountLibrary& library, libmnt_table* fstab,
                               const std::string& mountPoint) {
  ::setsid();  // A helper that asks for a password opens /dev/tty, which now fails.
  const int null = ::open("/dev/null", O_RDWR);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (null < 0 || ::dup2(null, stream) < 0) ::close(stream);
  }
  // A helper that stays, as those of user-space file systems do, inherits nothing else.
  (void)::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  ::signal(SIGPIPE, SIG_DFL);
  ::signal(SIGXFSZ, SIG_DFL);
  libmnt_context* context = library.newContext();
  const bool mounted = context != nullptr && library.setFstab(context, fstab) == 0 &&
                       library.setTarget(context, mountPoint.c_str()) == 0 &&
                       library.mount(context) == 0;
  ::_exit(mounted ? 0 : 1);
}

}  // namespace

std::optional<std::string> mountPointOf(const VolumeTag& tag) {
  const MountLibrary* library = mountLibrary();
  const auto table = mounts();
  if (library == nullptr || !table) return std::nullopt;
  const MountCache cache(library->newCache(), library->unrefCache);
  if (!cache) return std::nullopt;
  std::optional<std::string> partial;
  for (const Mount& mount : *table) {
    if (!carriesTag(*library, cache.get(), mount, tag) || !isVisible(mount)) continue;
    if (mount.root.empty() || mount.root == "/") return mount.mountPoint;
    if (!partial) partial = mount.mountPoint;
  }
  return partial;
}

std::optional<std::string> listedMountPointOf(const VolumeTag& tag) {
  const MountLibrary* library = mountLibrary();
  if (library == nullptr) return std::nullopt;
  const MountTable fstab = parsedFstab(*library);
  // With a cache the device is asked too, so that an entry by another name of it is found.
  const MountCache cache(library->newCache(), library->unrefCache);
  if (!fstab || !cache || library->setTableCache(fstab.get(), cache.get()) != 0) {
    return std::nullopt;
  }
  libmnt_fs* entry =
      library->findTag(fstab.get(), tag.name.c_str(), tag.value.c_str(), MNT_ITER_FORWARD);
  const char* target = entry == nullptr ? nullptr : library->target(entry);
  if (target == nullptr || *target != '/') return std::nullopt;
  return target;
}

bool mountListed(const std::string& mountPoint) {
  const MountLibrary* library = mountLibrary();
  if (library == nullptr) return false;
  const MountTable fstab = parsedFstab(*library);
  if (!fstab) return false;
  const pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) mountInChild(*library, fstab.get(), mountPoint);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  // A helper's status tells little; what counts is what is there now.
  return isMountPoint(mountPoint);
}

Result<Descriptor> openWithoutMounts(const std::string& path) {
  const int tree = ::open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC);
  if (tree < 0) return Error{errno, path};
  return Descriptor(tree);
}

Result<Descriptor> openWithoutMounts(int folder) {
  const int tree = ::open_tree(folder, "", AT_EMPTY_PATH | OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC);
  if (tree < 0) return Error{errno, ""};
  return Descriptor(tree);
}

}  // namespace halyard::host

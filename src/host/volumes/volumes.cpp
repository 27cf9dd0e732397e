// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/volumes.h"

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

#include "base/text.h"
#include "host/volumes/mount_library.h"

namespace halyard::host {

namespace {

// Given to the library too, which would else follow an environment variable.
constexpr const char* kFstab = "/etc/fstab";
constexpr const char* kMounts = "/proc/self/mountinfo";

std::optional<struct statx> statusOf(const std::string& path) {
  struct statx status {};
  if (path.empty() || ::statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE | STATX_MNT_ID, &status) != 0) {
    return std::nullopt;
  }
  return status;
}

/// The names of an absolute path, "." and ".." worked out as text.
std::vector<std::string> normalNames(std::string_view path) {
  std::vector<std::string> names;
  for (const std::string_view name : splitAt(path, '/')) {
    if (name == "..") {
      if (!names.empty()) names.pop_back();
    } else if (!name.empty() && name != ".") {
      names.emplace_back(name);
    }
  }
  return names;
}

bool isSameOrBelow(const std::vector<std::string>& path, const std::vector<std::string>& folder) {
  return path.size() >= folder.size() && std::equal(folder.begin(), folder.end(), path.begin());
}

/// Hands over the rows of a table in the form of fstab.
template <typename Take>
void forEachEntry(const char* path, Take take) {
  const std::unique_ptr<std::FILE, decltype(&::endmntent)> table(::setmntent(path, "re"),
                                                                 ::endmntent);
  if (!table) return;
  std::array<char, std::size_t{16} << 10> buffer{};
  mntent entry{};
  while (::getmntent_r(table.get(), &entry, buffer.data(), static_cast<int>(buffer.size())) !=
         nullptr) {
    take(entry);
  }
}

MountTable parsedFstab(const MountLibrary& library) {
  MountTable table(library.newTable(), library.unrefTable);
  if (table && library.parseFstab(table.get(), kFstab) != 0) table.reset();
  return table;
}

/// Whether the mount is what one reaches by its path: no other mount lies on top of it.
bool isVisible(const std::string& target, int mountIdentifier) {
  const auto status = statusOf(target);
  if (!status || !S_ISDIR(status->stx_mode)) return false;
  if ((status->stx_mask & STATX_MNT_ID) == 0) return true;  // An older kernel does not tell.
  return status->stx_mnt_id == static_cast<std::uint64_t>(mountIdentifier);
}

/// Whether the device behind a mount carries the tag. Asked of the device, so that it does not
/// matter which of its names or, on a file system of several devices, which device the mount shows.
bool carriesTag(const MountLibrary& library, libmnt_cache* cache, libmnt_fs* mount,
                const VolumeTag& tag) {
  const char* device = library.source(mount);
  if (device == nullptr || !std::string_view(device).starts_with("/dev/")) return false;
  const char* value = library.tagValue(cache, device, tag.name.c_str());
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

bool isMountPoint(const std::string& path) {
  if (!path.empty() && normalNames(path).empty()) return true;
  const auto status = statusOf(path);
  if (!status) return false;
  if ((status->stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
    return (status->stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }
  // An older kernel: another device than the parent's.
  const auto parent = statusOf(path + "/..");
  return parent && (parent->stx_dev_major != status->stx_dev_major ||
                    parent->stx_dev_minor != status->stx_dev_minor);
}

std::vector<std::string> listedMountPoints(const std::string& path) {
  const auto names = normalNames(path);
  std::vector<std::vector<std::string>> found;
  forEachEntry(kFstab, [&](const mntent& entry) {
    const std::string_view target(entry.mnt_dir);
    auto folder = normalNames(target);
    if (target.starts_with('/') && !folder.empty() && isSameOrBelow(names, folder)) {
      found.push_back(std::move(folder));
    }
  });
  std::ranges::sort(found, {}, &std::vector<std::string>::size);
  std::vector<std::string> mountPoints;
  mountPoints.reserve(found.size());
  for (const auto& folder : found) mountPoints.push_back("/" + joinComponents(folder));
  return mountPoints;
}

std::optional<std::string> mountPointOf(const VolumeTag& tag) {
  const MountLibrary* library = mountLibrary();
  if (library == nullptr) return std::nullopt;
  const MountTable mounts(library->newTable(), library->unrefTable);
  const MountCache cache(library->newCache(), library->unrefCache);
  const MountIterator iterator(library->newIterator(MNT_ITER_FORWARD), library->freeIterator);
  if (!mounts || !cache || !iterator || library->parseFile(mounts.get(), kMounts) != 0) {
    return std::nullopt;
  }
  std::optional<std::string> partial;
  libmnt_fs* mount = nullptr;
  while (library->nextEntry(mounts.get(), iterator.get(), &mount) == 0) {
    if (!carriesTag(*library, cache.get(), mount, tag)) continue;
    const std::string target = library->target(mount);
    if (!isVisible(target, library->mountIdentifier(mount))) continue;
    const char* root = library->root(mount);
    if (root == nullptr || std::string_view(root) == "/") return target;
    if (!partial) partial = target;
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

std::vector<std::string> writableLocalVolumes() {
  std::vector<std::string> mountPoints;
  forEachEntry("/proc/self/mounts", [&](const mntent& entry) {
    const bool isLocal = std::string_view(entry.mnt_fsname).starts_with("/dev/");
    if (isLocal && ::hasmntopt(&entry, MNTOPT_RO) == nullptr) {
      mountPoints.emplace_back(entry.mnt_dir);
    }
  });
  return mountPoints;
}

}  // namespace halyard::host

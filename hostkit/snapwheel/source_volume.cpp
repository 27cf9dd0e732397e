// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/source_volume.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "base/text.h"
#include "common/volume_names.h"
#include "host/files/files.h"
#include "host/files/system_call.h"
#include "host/volumes/mounting.h"
#include "host/volumes/volume.h"
#include "product/paths.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

/// The path below a folder, which is an absolute one as the path is; absent when it is elsewhere.
std::optional<std::string> pathBelow(const std::string& folder, const std::string& path) {
  if (folder == "/") return path.substr(1);
  if (path == folder) return "";
  if (!path.starts_with(folder + "/")) return std::nullopt;
  return path.substr(folder.size() + 1);
}

/// Where the path lies in its file system, whatever part of that is mounted where.
std::string placeInFileSystem(const host::Volume& volume, const std::string& path) {
  return appendPath(volume.root, pathBelow(volume.mountPoint, path).value_or(""));
}

/// Follows no link on the way, so that nobody who owns a part of the way can turn it.
host::Descriptor openBelow(int folder, const std::string& path) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  return host::Descriptor(host::uninterrupted([&] {
    return static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how));
  }));
}

/// Whether something is mounted right at the open folder.
bool isMountRoot(int folder, int above) {
  struct statx status {};
  if (::statx(folder, "", AT_EMPTY_PATH, STATX_TYPE, &status) != 0) return false;
  if ((status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }
  struct stat one {};
  struct stat other {};  // An older kernel: another device will have to do.
  return ::fstat(folder, &one) == 0 && ::fstat(above, &other) == 0 && one.st_dev != other.st_dev;
}

}  // namespace

SourceVolume SourceVolume::root(const Repository& repository, const std::string& source,
                                std::string folder, const Exclusions& exclusions) {
  SourceVolume volume;
  volume.place_ = {std::move(folder), "/", true};
  volume.exclusions_ = exclusions;
  volume.path_ = host::realPath(source).value_or("");
  if (volume.path_.empty() || !host::isDirectory(volume.path_)) {
    throw Failure("the source " + source + " is no folder");
  }
  const std::string all = host::realPath(repository.folder()).value_or("");
  if (pathBelow(all, volume.path_)) {
    throw Failure("the source " + volume.path_ + " is part of the repository");
  }
  volume.folder_ =
      host::Descriptor(::open(volume.path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!volume.folder_) throw Failure(errorText(volume.path_, errno));
  volume.leaveOutRepository(repository);
  volume.describe();
  return volume;
}

SourceVolume SourceVolume::further(const Repository& repository, const SourceVolume& root,
                                   const std::string& mountPoint, const Exclusions& exclusions) {
  SourceVolume volume;
  volume.place_ = {hostkit::volumeFolderName(mountPoint), mountPoint, true};
  volume.exclusions_ = exclusions;
  volume.path_ = appendPath(root.path_, mountPoint);
  if (volume.place_.folder.size() > NAME_MAX) {
    volume.missing_ = ENAMETOOLONG;
    return volume;
  }
  volume.folder_ = openBelow(root.folder_.get(), mountPoint.substr(1));
  if (!volume.folder_) {
    volume.missing_ = errno;
  } else if (!isMountRoot(volume.folder_.get(), root.folder_.get())) {
    volume.missing_ = ENODEV;
  } else {
    volume.leaveOutRepository(repository);
    volume.describe();
  }
  return volume;
}

void SourceVolume::leaveOutRepository(const Repository& repository) {
  const std::string all = host::realPath(repository.folder()).value_or("");
  auto inside = pathBelow(path_, all);
  if (!inside && !place_.isRoot()) {
    // The same file system may be mounted elsewhere, too, or a part of it.
    const auto holder = host::volumeOf(all);
    const auto own = host::volumeOf(path_);
    const bool isShared = holder && own && holder->number == own->number && !holder->root.empty() &&
                          !own->root.empty();
    if (isShared) {
      inside = pathBelow(placeInFileSystem(*own, path_), placeInFileSystem(*holder, all));
    }
  }
  if (inside && !inside->empty()) exclusions_.addPath(place_.hostPath(*inside));
}

void SourceVolume::describe() {
  const auto volume = host::volumeOf(path_);
  if (!volume) return;
  uuid_ = volume->uuid;
  type_ = volume->type;
}

bool SourceVolume::leavesOut(std::string_view path) const {
  if (place_.isRoot()) return exclusions_.match(path);
  return isFalseHandOver(path) || exclusions_.match(place_.hostPath(std::string(path)));
}

bool SourceVolume::isFalseHandOver(std::string_view path) const {
  return !place_.isRoot() && path == paths::kMetadataFolderName;
}

std::string SourceVolume::indexIdentity() const {
  struct statx root {};
  (void)::statx(folder_.get(), "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &root);
  // The first volume's is as it was before there were others, so that its indexes stay of use.
  const std::string fileSystem = place_.isRoot() ? std::string() : "\n" + uuid_;
  return path_ + "\n" + place_.folder + "\n" + std::to_string(root.stx_ino) + " " +
         std::to_string(root.stx_btime.tv_sec) + "." + std::to_string(root.stx_btime.tv_nsec) +
         fileSystem + "\n" + exclusions_.fingerprint();
}

void SourceVolume::writeBack() const {
  (void)::syncfs(folder_.get());  // An error of the disk shows when files are read.
}

host::Descriptor SourceVolume::openAlone() const {
  const auto alone = host::openWithoutMounts(folder_.get());
  // What open_tree(2) gives is good for paths alone.
  const int folder = alone ? alone->get() : folder_.get();
  return host::Descriptor(host::uninterrupted(
      [&] { return ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/mounted_volume.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/files/descriptor.h"
#include "host/process/task.h"

namespace halyard::test {

namespace {

std::string firstOf(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

}  // namespace

MountedVolume::MountedVolume(const Scratch& scratch, const std::string& kind,
                             std::uint64_t megabytes, const std::string& place) {
  const std::string maker = firstOf({"/sbin/mkfs." + kind, "/usr/sbin/mkfs." + kind});
  if (maker.empty()) reason_ = "mkfs." + kind + " is not installed";
  if (::geteuid() != 0) reason_ = "mounting needs root";
  if (!reason_.empty()) return;

  const std::string name = place.empty() ? kind : place;
  std::string imageName = name + ".img";
  std::ranges::replace(imageName, '/', '-');
  const std::string image = scratch.write(imageName);
  const std::string folder = scratch.makeFolder(name);
  const bool isSized = ::truncate(image.c_str(), static_cast<off_t>(megabytes) * 1024 * 1024) == 0;
  // mkfs.vfat knows no such word.
  const auto made = host::RunTask(maker, kind == "vfat" ? std::vector<std::string>{image}
                                                        : std::vector<std::string>{"-q", image});
  const auto mounted =
      host::RunTask(firstOf({"/bin/mount", "/usr/bin/mount"}), {"-o", "loop", image, folder});
  if (!isSized || made.status != 0 || mounted.status != 0) {
    reason_ = "no loop-mounted " + kind + " here: " + made.error + mounted.error;
    return;
  }
  path_ = folder;
  image_ = image;
}

MountedVolume::~MountedVolume() { unmount(); }

void MountedVolume::unmount() {
  if (!path_.empty()) (void)::umount2(path_.c_str(), MNT_DETACH);
  path_.clear();
}

bool MountedVolume::remount(bool readOnly) const {
  return ::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | (readOnly ? MS_RDONLY : 0),
                 nullptr) == 0;
}

bool MountedVolume::spoil(const std::string& bytes, const std::string& file) const {
  const host::Descriptor held(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  const host::Descriptor image(::open(image_.c_str(), O_RDWR | O_CLOEXEC));
  if (!held || !image || ::syncfs(held.get()) != 0) return false;
  const auto length = static_cast<std::size_t>(::lseek(image.get(), 0, SEEK_END));
  void* const disk = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, image.get(), 0);
  if (disk == MAP_FAILED) return false;
  const void* const found = ::memmem(disk, length, bytes.data(), bytes.size());
  const off_t at =
      found == nullptr ? -1 : static_cast<const char*>(found) - static_cast<char*>(disk);
  ::munmap(disk, length);
  return at >= 0 && ::pwrite(image.get(), "spoilt", 6, at) == 6 && ::fsync(image.get()) == 0 &&
         ::posix_fadvise(held.get(), 0, 0, POSIX_FADV_DONTNEED) == 0;
}

}  // namespace halyard::test

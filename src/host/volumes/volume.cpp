// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/volume.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string_view>

#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/volumes/kernel_uuid.h"
#include "host/volumes/mount_table.h"

namespace halyard::host {

namespace {

constexpr std::uint64_t kExt4RootInode = 2;

using Mounts = std::vector<Mount>;

// Its number and birth, too.
Result<struct statx> statusOf(const std::string& path) {
  return mountStatusOf(path, STATX_INO | STATX_BTIME);
}

dev_t deviceOf(const struct statx& item) { return makedev(item.stx_dev_major, item.stx_dev_minor); }

// The mount that an item lies on; null when this process cannot see it, as in a chroot whose root
// is a plain folder. The device number guards against a table that is not this host's; a btrfs
// gives each subvolume a number of its own.
const Mount* mountOf(const Mounts& mounts, const struct statx& item) {
  const auto mount = std::find_if(mounts.rbegin(), mounts.rend(), [&](const Mount& row) {
    return row.identifier == item.stx_mnt_id &&
           (row.number == deviceOf(item) || row.type == "btrfs");
  });
  return mount == mounts.rend() ? nullptr : &*mount;
}

// The highest folder above `path` on the same mount: by the path alone, for roots without /proc.
std::string highestFolder(const std::string& path, const struct statx& status) {
  std::string folder = realPath(path).value_or("/");
  while (folder != "/") {
    const std::size_t slash = folder.rfind('/');
    const std::string parent = slash == 0 ? "/" : folder.substr(0, slash);
    const auto above = statusOf(parent);
    if (!above || above->stx_mnt_id != status.stx_mnt_id || deviceOf(*above) != deviceOf(status)) {
      break;
    }
    folder = parent;
  }
  return folder;
}

bool isBlockDevice(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

struct DeviceTags {
  std::string uuid;
  std::string label;
};

// Read from the device itself, never from a cache that may be out of date.
DeviceTags tagsOf(const std::string& device) {
  DeviceTags tags;
  const std::unique_ptr<std::remove_pointer_t<blkid_probe>, decltype(&blkid_free_probe)> probe(
      blkid_new_probe_from_filename(device.c_str()), &blkid_free_probe);
  if (!probe) return tags;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL);
  if (blkid_do_safeprobe(probe.get()) != 0) return tags;
  const char* value = nullptr;
  if (blkid_probe_lookup_value(probe.get(), "UUID", &value, nullptr) == 0) tags.uuid = value;
  if (blkid_probe_lookup_value(probe.get(), "LABEL", &value, nullptr) == 0) tags.label = value;
  return tags;
}

std::string typeName(long magic) {
  switch (magic) {
    case EXT4_SUPER_MAGIC:
      return "ext4";
    case XFS_SUPER_MAGIC:
      return "xfs";
    case BTRFS_SUPER_MAGIC:
      return "btrfs";
    case TMPFS_MAGIC:
      return "tmpfs";
    case OVERLAYFS_SUPER_MAGIC:
      return "overlay";
    case NFS_SUPER_MAGIC:
      return "nfs";
    default:
      return {};
  }
}

// Only of those whose number comes from the volume; others use the device's number, which
// another boot gives to another device.
std::uint64_t lastingFileSystemId(const struct statfs& fileSystem) {
  const std::string type = typeName(fileSystem.f_type);
  if (type != "ext4" && type != "btrfs" && type != "tmpfs") return 0;
  std::uint64_t number = 0;
  static_assert(sizeof number == sizeof fileSystem.f_fsid);
  std::memcpy(&number, &fileSystem.f_fsid, sizeof number);
  return number;
}

std::string identifierOfFolder(const std::string& folder, const struct statfs& fileSystem) {
  const auto status = statusOf(folder);
  if (!status) return {};
  const bool born = (status->stx_mask & STATX_BTIME) != 0;
  return folderIdentifier(
      static_cast<std::uint64_t>(fileSystem.f_type), lastingFileSystemId(fileSystem),
      status->stx_ino, born ? status->stx_btime.tv_sec : 0, born ? status->stx_btime.tv_nsec : 0);
}

void measure(Volume& volume, const struct statfs& fileSystem) {
  const auto block = static_cast<std::uint64_t>(fileSystem.f_frsize);
  volume.totalBytes = fileSystem.f_blocks * block;
  volume.freeBytes = fileSystem.f_bfree * block;
  volume.availableBytes = fileSystem.f_bavail * block;
  volume.readOnly = (fileSystem.f_flags & ST_RDONLY) != 0;
}

// A container or chroot: "/" is not the root folder of the volume that holds it. A btrfs is one
// volume, whichever of its subvolumes is mounted.
bool isFolderOfBiggerVolume(const Mount* row, const struct statx& top,
                            const std::string& mountPoint, const std::string& type) {
  if (mountPoint != "/") return false;
  if (row == nullptr) {
    // Without /proc a folder that was bind-mounted still shows by its number on ext4.
    return (top.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0 ||
           (type == "ext4" && top.stx_ino != kExt4RootInode);
  }
  return type != "btrfs" && row->root != "/";
}

void identify(Volume& volume, const Mount* row, const struct statfs& fileSystem) {
  const Descriptor folder(::open(volume.mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto top = statusOf(volume.mountPoint);
  if (isBlockDevice(volume.device)) {
    DeviceTags tags = tagsOf(volume.device);
    volume.uuid = std::move(tags.uuid);
    volume.label = std::move(tags.label);
  }
  if (volume.uuid.empty() && folder) volume.uuid = kernelUuid(folder.get());
  if (!volume.uuid.empty() && top &&
      !isFolderOfBiggerVolume(row, *top, volume.mountPoint, volume.type)) {
    return;
  }
  volume.identity = Volume::Identity::rootFolder;
  volume.uuid = identifierOfFolder(volume.mountPoint, fileSystem);
}

constexpr std::array<std::string_view, 3> kStorageWithoutDevice = {"tmpfs", "overlay", "zfs"};

bool holdsFiles(const Mount& mount) {
  if (mount.mountPoint.starts_with("/sys/") || mount.mountPoint.starts_with("/proc/")) return false;
  if (mount.isPseudo) {
    return std::ranges::find(kStorageWithoutDevice, mount.type) != kStorageWithoutDevice.end();
  }
  return mount.isNetwork || mount.device.starts_with('/') ||
         mount.device.find(':') != std::string::npos;
}

Result<Volume> volumeOf(const std::string& path, const Mounts& mounts) {
  const Result<struct statx> status = statusOf(path);
  if (!status) return status.error();
  struct statfs fileSystem {};
  if (::statfs(path.c_str(), &fileSystem) != 0) return Error{errno, path};

  Volume volume;
  volume.number = deviceOf(*status);
  const Mount* row = mountOf(mounts, *status);
  if (row != nullptr) {
    volume.mountPoint = row->mountPoint;
    volume.device = row->device;
    volume.type = row->type;
    volume.root = row->root;
  } else {
    volume.mountPoint = highestFolder(path, *status);
    volume.type = typeName(fileSystem.f_type);
    const std::unique_ptr<char, decltype(&std::free)> device(
        blkid_devno_to_devname(deviceOf(*status)), &std::free);
    if (device) volume.device = device.get();
  }
  measure(volume, fileSystem);
  identify(volume, row, fileSystem);
  return volume;
}

}  // namespace

std::string folderIdentifier(std::uint64_t fileSystemType, std::uint64_t fileSystemId,
                             std::uint64_t inode, std::int64_t birthSeconds,
                             std::uint32_t birthNanoseconds) {
  // A name space of its own, so that no other derived UUID can be equal.
  static constexpr uuid_t kNameSpace = {0x6b, 0x1f, 0x5c, 0x0e, 0x93, 0x4d, 0x4a, 0x1b,
                                        0x8d, 0x37, 0x52, 0xc4, 0x0a, 0x9e, 0x71, 0xd8};
  const std::string name = std::to_string(fileSystemType) + ":" + std::to_string(fileSystemId) +
                           ":" + std::to_string(inode) + ":" + std::to_string(birthSeconds) + "." +
                           std::to_string(birthNanoseconds);
  uuid_t made{};
  uuid_generate_sha1(made, kNameSpace, name.data(), name.size());
  std::array<char, 37> text{};
  uuid_unparse_lower(made, text.data());
  return text.data();
}

Result<Volume> volumeOf(const std::string& path) {
  return volumeOf(path, mounts().value_or(Mounts()));
}

std::vector<Volume> mountedVolumes() {
  std::vector<Volume> volumes;
  std::set<std::string> seen;
  const Mounts table = mounts().value_or(Mounts());
  for (const Mount& mount : table) {
    if (!holdsFiles(mount) || !seen.insert(mount.mountPoint).second) continue;
    // By path, not by row: what is mounted on top is what the path leads to.
    if (auto volume = volumeOf(mount.mountPoint, table)) volumes.push_back(std::move(*volume));
  }
  if (!seen.contains("/")) {
    if (auto volume = volumeOf("/", table)) volumes.insert(volumes.begin(), std::move(*volume));
  }
  return volumes;
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/kernel_uuid.h"

#include <linux/btrfs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace halyard::host {

namespace {

// Requests that Debian 12's headers lack; their layout is part of the kernel's interface.
struct FileSystemUuid {  // FS_IOC_GETFSUUID, any file system, Linux 6.9
  std::uint8_t length;
  std::uint8_t uuid[16];
};

struct Ext4Uuid {  // EXT4_IOC_GETFSUUID, Linux 6.0
  std::uint32_t length;
  std::uint32_t flags;
  std::uint8_t uuid[16];
};

struct XfsGeometry {  // XFS_IOC_FSGEOMETRY_V1: sizes first, then the UUID
  std::uint32_t sizesBefore[7];
  std::uint32_t alignment[2];
  std::uint64_t blocks[4];
  std::uint8_t uuid[16];
  std::uint64_t logStart;
  std::int32_t version;
  std::uint32_t sizesAfter[5];
};

constexpr unsigned long kFileSystemUuid = _IOR(0x15, 0, FileSystemUuid);
// The argument is declared without the UUID's bytes, which follow the header.
constexpr unsigned long kExt4Uuid = _IOR('f', 44, std::uint64_t);
constexpr unsigned long kXfsGeometry = _IOR('X', 100, XfsGeometry);
constexpr long kXfsMagic = 0x58465342;

std::string uuidText(const std::uint8_t* bytes) {
  if (std::all_of(bytes, bytes + 16, [](std::uint8_t byte) { return byte == 0; })) return {};
  std::array<char, 37> text{};
  uuid_unparse_lower(bytes, text.data());
  return text.data();
}

std::string ofExt4(int folder) {
  Ext4Uuid answer{};
  answer.length = sizeof answer.uuid;
  return ::ioctl(folder, kExt4Uuid, &answer) == 0 ? uuidText(answer.uuid) : std::string{};
}

std::string ofXfs(int folder) {
  XfsGeometry answer{};
  return ::ioctl(folder, kXfsGeometry, &answer) == 0 ? uuidText(answer.uuid) : std::string{};
}

std::string ofBtrfs(int folder) {
  btrfs_ioctl_fs_info_args answer{};
  return ::ioctl(folder, BTRFS_IOC_FS_INFO, &answer) == 0 ? uuidText(answer.fsid) : std::string{};
}

}  // namespace

std::string kernelUuid(int folder) {
  struct statfs fileSystem {};
  if (::fstatfs(folder, &fileSystem) != 0) return {};
  // tmpfs has a UUID too, but a new one at every mount: no identity.
  switch (fileSystem.f_type) {
    case EXT4_SUPER_MAGIC:
      if (std::string uuid = ofExt4(folder); !uuid.empty()) return uuid;
      break;
    case kXfsMagic:
      if (std::string uuid = ofXfs(folder); !uuid.empty()) return uuid;
      break;
    case BTRFS_SUPER_MAGIC:
      if (std::string uuid = ofBtrfs(folder); !uuid.empty()) return uuid;
      break;
    default:
      return {};
  }
  FileSystemUuid answer{};
  if (::ioctl(folder, kFileSystemUuid, &answer) != 0 || answer.length != 16) return {};
  return uuidText(answer.uuid);
}

}  // namespace halyard::host

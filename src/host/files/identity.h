// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which item a descriptor leads to, and through which mount.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace halyard::host {

struct Identity {
  dev_t device = 0;
  ino_t inode = 0;
  std::uint64_t mount = 0;  ///< 0 where the kernel does not tell.

  bool sameItem(const Identity& other) const {
    return device == other.device && inode == other.inode;
  }
  /// Parts of one file system (btrfs subvolumes) have devices of their own but share the mount.
  bool sameMount(const Identity& other) const {
    return mount == other.mount && (mount != 0 || device == other.device);
  }
};

/// Fills `identity`; any kind of descriptor will do.
int identify(int descriptor, Identity& identity);

}  // namespace halyard::host

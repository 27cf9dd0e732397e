// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A small file system on a loop device, for one test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/scratch.h"

namespace halyard::test {

/// Makes an image, a file system in it, and mounts it in the scratch folder; goes away with the
/// object. Where that cannot be had, reason() says why and there is no path: the test skips.
class MountedVolume {
 public:
  /// `kind` is "ext4", "btrfs" or "xfs"; `place` its folder in the scratch folder, the kind when
  /// it is empty.
  MountedVolume(const Scratch& scratch, const std::string& kind, std::uint64_t megabytes,
                const std::string& place = "");
  ~MountedVolume();
  MountedVolume(const MountedVolume&) = delete;
  MountedVolume& operator=(const MountedVolume&) = delete;

  const std::string& path() const { return path_; }
  const std::string& reason() const { return reason_; }
  /// Mounts it again read-only or writable; false when that was refused.
  bool remount(bool readOnly) const;
  /// Takes it away before the object goes.
  void unmount();
  /// Spoils the first place on the disk where these bytes stand, as a bad block does; false when
  /// they stand nowhere. Of btrfs, whose checksums tell, a file that holds them cannot be read
  /// then.
  bool spoil(const std::string& bytes, const std::string& file) const;

 private:
  std::string path_;
  std::string image_;
  std::string reason_;
};

}  // namespace halyard::test

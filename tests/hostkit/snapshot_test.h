// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The fixture of the tests that take snapshots of real trees on real file systems.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/volumes/subvolume.h"
#include "snapwheel/take_snapshot.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::snapwheel {

/// A source tree with one of everything, and a repository on the file system under test.
class SnapshotTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string kind = GetParam();
    if (kind != "here") {
      volume_ = std::make_unique<test::MountedVolume>(scratch_, kind, 320);
      if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
      destination_ = volume_->path();
    } else {
      destination_ = scratch_.makeFolder("destination");
    }
    source_ = scratch_.makeFolder("source");
    repository_ = std::make_unique<Repository>(destination_, "files1");
    fillSource();
  }

  void fillSource() {
    put("etc/passwd", "root:x:0:0::/root:/bin/sh\nada:x:1815:1816::/:/bin/sh\n");
    put("etc/group", "root:x:0:\nengine:x:1816:\n");
    put("etc/hosts", "127.0.0.1 localhost\n");
    put("srv/one", "the same");
    put("srv/deep/er/two", std::string(100000, 'x'));
    put(".Halyards/.halyardSignature", "signature");
    put(".Halyards/depotHost/etc/x", "x");
    put("proc/1/status", "left out");
    ASSERT_EQ(::link(at("srv/one").c_str(), at("srv/deep/other-name").c_str()), 0);
    ASSERT_EQ(::symlink("../nowhere", at("srv/dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("srv/fifo").c_str(), 0620), 0);
    ASSERT_EQ(::mknod(at("srv/null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    ASSERT_EQ(::chown(at("srv/deep").c_str(), 1815, 1816), 0);
    ASSERT_EQ(::chown(at("etc/hosts").c_str(), 1815, 1816), 0);
    ASSERT_EQ(::chmod(at("etc/hosts").c_str(), 06755), 0);
    ASSERT_EQ(::chmod(at("srv/deep/er").c_str(), 01700), 0);
    ASSERT_EQ(::lsetxattr(at("srv/one").c_str(), "user.note", "kept", 4, 0), 0);
    // A list for one more user: version 2, then owner, user 1815, group, mask, others.
    const std::string list(
        "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\x17\7\0\0\4\0\4\0\377\377\377\377"
        "\x10\0\4\0\377\377\377\377\x20\0\0\0\377\377\377\377",
        44);
    ASSERT_EQ(::lsetxattr(at("srv/deep/er/two").c_str(), "system.posix_acl_access", list.data(),
                          list.size(), 0),
              0);
    settle();
  }

  /// Waits until what was changed is old enough for its change time to prove something.
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

  std::string at(const std::string& path) const { return source_ + "/" + path; }
  void put(const std::string& path, const std::string& bytes) const {
    scratch_.write("source/" + path, bytes);
  }

  SnapshotRequest request() const {
    SnapshotRequest request;
    request.source = source_;
    request.exclusions = Exclusions::parse("/proc/*\n");
    request.machineLock = scratch_ / "lock";
    return request;
  }
  SnapshotOutcome take() const { return takeSnapshot(*repository_, request()); }
  std::string volumeOf(const SnapshotOutcome& outcome) const {
    return repository_->path(outcome.name) + "/System";
  }
  bool isOnBtrfs() const { return host::isOnBtrfs(repository_->open().get()); }
  bool isSubvolume(const SnapshotOutcome& outcome) const {
    return host::isSubvolume(repository_->open().get(), outcome.name);
  }
  /// So that a test can change what is in it.
  void makeWritable(const SnapshotOutcome& outcome) const {
    if (!isSubvolume(outcome)) return;
    ASSERT_TRUE(host::setSubvolumeReadOnly(repository_->open().get(), outcome.name, false));
  }
  /// The source as a snapshot of it must be.
  std::vector<std::string> expected() const {
    auto listing = test::listTree(source_);
    std::erase_if(listing, [](const std::string& line) { return line.starts_with("/proc/"); });
    return listing;
  }

  test::Scratch scratch_;
  std::unique_ptr<test::MountedVolume> volume_;
  std::string destination_;
  std::string source_;
  std::unique_ptr<Repository> repository_;
};

/// Here, in the scratch folder, and on each file system that can be mounted.
inline auto fileSystems() { return testing::Values("here", "ext4", "btrfs", "xfs"); }

inline std::string fileSystemName(const testing::TestParamInfo<const char*>& info) {
  return info.param;
}

}  // namespace halyard::snapwheel

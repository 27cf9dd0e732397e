// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Volumes of real file systems, where loop devices can be had.
#include "host/volumes/volume.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "support/scratch.h"

namespace halyard::host {
namespace {

/// A process has its own: mkfs.btrfs refuses one that another test's volume has at the same time.
std::string chosenUuid() {
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "3e6be9de-8139-4a1f-9106-%012x",
                static_cast<unsigned>(::getpid()));
  return text.data();
}

bool succeeds(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

/// A file system in a file, mounted in the scratch folder; skips the test where that is not
/// possible here.
class MountedVolume : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string image = scratch_ / "image";
    mountPoint_ = scratch_.makeFolder("volume");
    const std::string type = GetParam();
    const std::string uuid = type == "xfs" ? "-m uuid=" : "-U ";
    if (::geteuid() != 0 || !succeeds("truncate -s 320M " + image) ||
        !succeeds("mkfs." + type + " -q " + uuid + chosenUuid() + " -L spare " + image) ||
        !succeeds("mount -o loop " + image + " " + mountPoint_)) {
      GTEST_SKIP() << "no " << type << " can be made and mounted here";
    }
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_ && ::umount2(mountPoint_.c_str(), MNT_DETACH) != 0) {
      ADD_FAILURE() << mountPoint_ << " stays mounted";
    }
  }
  const std::string& mountPoint() const { return mountPoint_; }

 private:
  test::Scratch scratch_;
  std::string mountPoint_;
  bool mounted_ = false;
};

TEST_P(MountedVolume, IsIdentifiedByTheUuidOfItsFileSystem) {
  const auto volume = volumeOf(mountPoint());
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->uuid, chosenUuid());
  EXPECT_EQ(volume->identity, Volume::Identity::fileSystem);
  EXPECT_EQ(volume->type, GetParam());
  EXPECT_EQ(volume->label, "spare");
  EXPECT_EQ(volume->mountPoint, mountPoint());
  EXPECT_TRUE(volume->device.starts_with("/dev/loop")) << volume->device;
  EXPECT_GT(volume->totalBytes, std::uint64_t{200} << 20);
  EXPECT_GT(volume->freeBytes, 0U);
  EXPECT_FALSE(volume->readOnly);
}

TEST_P(MountedVolume, IsInTheListOnce) {
  int found = 0;
  for (const Volume& volume : mountedVolumes()) {
    if (volume.mountPoint == mountPoint()) ++found;
  }
  EXPECT_EQ(found, 1);
}

TEST_P(MountedVolume, ShowsThatItIsReadOnly) {
  ASSERT_EQ(::mount("none", mountPoint().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const auto volume = volumeOf(mountPoint());
  ASSERT_TRUE(volume);
  EXPECT_TRUE(volume->readOnly);
}

INSTANTIATE_TEST_SUITE_P(FileSystems, MountedVolume, testing::Values("ext4", "btrfs", "xfs"),
                         [](const auto& type) { return std::string(type.param); });

TEST(FolderIdentifier, IsAUuidThatDependsOnEveryPart) {
  const std::string plain = folderIdentifier(0xEF53, 7, 12, 1000, 5);
  EXPECT_EQ(plain, folderIdentifier(0xEF53, 7, 12, 1000, 5));
  EXPECT_EQ(plain.size(), 36U);
  EXPECT_EQ(plain[14], '5');
  EXPECT_NE(plain, folderIdentifier(0x9123683E, 7, 12, 1000, 5));
  EXPECT_NE(plain, folderIdentifier(0xEF53, 8, 12, 1000, 5));
  EXPECT_NE(plain, folderIdentifier(0xEF53, 7, 13, 1000, 5));
  EXPECT_NE(plain, folderIdentifier(0xEF53, 7, 12, 1001, 5));
  EXPECT_NE(plain, folderIdentifier(0xEF53, 7, 12, 1000, 6));
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/mount_table.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <functional>

#include "host/volumes/volume.h"
#include "support/forked.h"
#include "support/mounted_volume.h"
#include "support/mounts.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

Mount mountAt(const std::string& mountPoint) {
  for (const Mount& mount : mounts().value_or(std::vector<Mount>())) {
    if (mount.mountPoint == mountPoint) return mount;
  }
  return {};
}

TEST(Mounts, HaveTheNumbersOfWhatLiesThere) {
  const Scratch scratch;
  const auto memory = test::TestMount::memory(scratch / "memory", "size=64k");
  if (!memory.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  const Mount mount = mountAt(scratch / "memory");
  const auto status = mountStatusOf(scratch.write("memory/file"));
  ASSERT_TRUE(status);
  EXPECT_EQ(mount.identifier, status->stx_mnt_id);
  EXPECT_EQ(mount.number, makedev(status->stx_dev_major, status->stx_dev_minor));
  EXPECT_EQ(mount.type, "tmpfs");
  EXPECT_EQ(mount.root, "/");
  EXPECT_TRUE(mount.isPseudo);
  EXPECT_FALSE(mount.isNetwork);
}

TEST(Mounts, TellWhichFolderOfAVolumeIsMounted) {
  const Scratch scratch;
  const auto memory = test::TestMount::memory(scratch / "memory", "size=64k");
  (void)scratch.makeFolder("memory/part");
  const auto part = test::TestMount::bind(scratch / "again", scratch / "memory/part");
  if (!part.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  EXPECT_EQ(mountAt(scratch / "again").root, "/part");
}

TEST(Mounts, TellOneThatIsReadOnlyOfAVolumeThatIsNot) {
  const Scratch scratch;
  const auto memory = test::TestMount::memory(scratch / "memory", "size=64k");
  const auto again = test::TestMount::bind(scratch / "again", scratch / "memory");
  if (!again.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  ASSERT_EQ(::mount(nullptr, (scratch / "again").c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY,
                    nullptr),
            0);
  EXPECT_TRUE(mountAt(scratch / "again").isReadOnly);
  EXPECT_FALSE(mountAt(scratch / "memory").isReadOnly);
}

TEST(Mounts, AreNotKnownWithoutTheKernelsTable) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([] {
              if (!test::enterPrivateMounts()) return 1;
              if (::mount("none", "/proc", "tmpfs", 0, nullptr) != 0) return 2;
              if (mounts() || !writableLocalVolumes().empty()) return 3;
              const auto volumes = mountedVolumes();
              return volumes.size() == 1 && volumes[0].mountPoint == "/" ? 0 : 4;
            }),
            0);
}

bool holds(const std::vector<std::string>& paths, const std::string& path) {
  return std::ranges::find(paths, path) != paths.end();
}

TEST(WritableLocalVolumes, AreThoseOnDevicesThatCanBeWritten) {
  const Scratch scratch;
  const test::MountedVolume disk(scratch, "ext4", 16);
  if (!disk.reason().empty()) GTEST_SKIP() << disk.reason();
  EXPECT_TRUE(holds(writableLocalVolumes(), disk.path()));
  ASSERT_TRUE(disk.remount(true));
  EXPECT_FALSE(holds(writableLocalVolumes(), disk.path()));
}

TEST(WritableLocalVolumes, LeaveOutWhatLiesInMemory) {
  const Scratch scratch;
  const auto memory = test::TestMount::memory(scratch / "memory", "size=64k");
  if (!memory.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  EXPECT_FALSE(holds(writableLocalVolumes(), scratch / "memory"));
}

/// Of a process that sees this text as /etc/fstab.
bool holdWithFstab(const Scratch& scratch, const std::string& text,
                   const std::function<bool(const std::vector<ListedMount>& rows)>& hold) {
  const std::string table = scratch.write("fstab", text);
  return test::exitStatusOf([&] {
           if (!test::enterPrivateMounts()) return 1;
           if (::mount(table.c_str(), kFstab, nullptr, MS_BIND, nullptr) != 0) return 2;
           return hold(listedMounts()) ? 0 : 3;
         }) == 0;
}

TEST(ListedMounts, AreTheRowsOfFstab) {
  if (!test::canMountPrivately() || !Scratch::stands(kFstab)) GTEST_SKIP() << "no fstab to cover";
  const Scratch scratch;
  EXPECT_TRUE(holdWithFstab(scratch,
                            "# comment\n"
                            "UUID=0815 /srv//my\\040data/./ ext4 defaults,noauto 0 2\n"
                            "LABEL=x none swap sw\n"
                            "/dev/sdb1 /data auto\n",
                            [](const std::vector<ListedMount>& rows) {
                              return rows.size() == 3 && rows[0].source == "UUID=0815" &&
                                     rows[0].mountPoint == "/srv/my data" &&
                                     rows[0].type == "ext4" && !rows[0].isAutomatic &&
                                     rows[1].mountPoint == "none" && rows[1].type == "swap" &&
                                     rows[2].mountPoint == "/data" && rows[2].isAutomatic;
                            }));
}

TEST(ListedMountPoints, AreThoseOnTheWayToThePath) {
  if (!test::canMountPrivately() || !Scratch::stands(kFstab)) GTEST_SKIP() << "no fstab to cover";
  const Scratch scratch;
  EXPECT_TRUE(holdWithFstab(scratch,
                            "a / ext4 defaults\n"
                            "b /srv/data/inner ext4 defaults\n"
                            "c /srv/ ext4 defaults\n"
                            "d /srv/data2 ext4 defaults\n"
                            "e none swap sw\n",
                            [](const std::vector<ListedMount>&) {
                              return listedMountPoints("/srv/data/../data//inner/deep/") ==
                                         std::vector<std::string>{"/srv", "/srv/data/inner"} &&
                                     listedMountPoints("/srv2").empty() &&
                                     listedMountPoints("/").empty();
                            }));
}

}  // namespace
}  // namespace halyard::host

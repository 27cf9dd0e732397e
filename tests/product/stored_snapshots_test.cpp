// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/stored_snapshots.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/forked.h"
#include "support/loop_volume.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::LoopVolume;
using test::Scratch;

constexpr const char* kName = "2026-03-01-120000";

std::string preferences(const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>AutoBackup</key><integer>1</integer>" +
         value + "</dict></plist>\n";
}

/// A repository with one snapshot of one host.
class StoredSnapshots : public testing::Test {
 protected:
  StoredSnapshots() {
    (void)scratch_.write("volume/Archives.snapdb/host/2026-03-01-120000/System/etc/hosts", "x");
  }

  std::string snapshot() const { return repository_ + "/host/" + kName; }

  Scratch scratch_;
  std::string volume_ = scratch_.makeFolder("volume");
  std::string repository_ = volume_ + "/Archives.snapdb";
  BackupSession session_{volume_};
};

using DefaultBackupSession = StoredSnapshots;

TEST_F(DefaultBackupSession, TakesTheAliasAsTextOrData) {
  const std::string text = scratch_.write(
      "text.plist", preferences("<key>BackupAlias</key><string>" + volume_ + "</string>"));
  const std::string encoded = test::outputOf("printf '%s' '" + volume_ + "' | base64 -w0");
  const std::string data = scratch_.write(
      "data.plist", preferences("<key>BackupAlias</key><data>" + encoded + "</data>"));

  ASSERT_TRUE(defaultBackupSession(text));
  EXPECT_EQ(defaultBackupSession(text)->destination, volume_);
  ASSERT_TRUE(defaultBackupSession(data));
  EXPECT_EQ(defaultBackupSession(data)->destination, volume_);
}

TEST_F(DefaultBackupSession, IsAbsentWithoutAnAliasThatResolves) {
  EXPECT_FALSE(defaultBackupSession(scratch_ / "missing.plist"));
  EXPECT_FALSE(defaultBackupSession(scratch_.write("empty.plist")));
  EXPECT_FALSE(defaultBackupSession(scratch_.write("none.plist", preferences(""))));
  EXPECT_FALSE(defaultBackupSession(
      scratch_.write("kind.plist", preferences("<key>BackupAlias</key><integer>1</integer>"))));
  EXPECT_FALSE(defaultBackupSession(scratch_.write(
      "gone.plist", preferences("<key>BackupAlias</key><string>/no/such/volume</string>"))));
}

using IsSnapshot = StoredSnapshots;

TEST_F(IsSnapshot, AFolderTwoLevelsBelowTheRepositoryIsOne) {
  EXPECT_TRUE(isSnapshot(session_, snapshot()));
  EXPECT_TRUE(isSnapshot(session_, snapshot() + "/"));
  EXPECT_TRUE(isSnapshot(session_, repository_ + "/host/../host/" + kName));
}

TEST_F(IsSnapshot, AnythingElseIsNone) {
  (void)scratch_.write("volume/Archives.snapdb/host/file");
  (void)scratch_.makeFolder("volume/Other/host/name");
  (void)scratch_.makeFolder("volume/Archives.snapdb.old/host/name");
  for (const std::string& path :
       {std::string(), volume_, repository_, repository_ + "/host", snapshot() + "/System",
        repository_ + "/host/file", repository_ + "/host/missing", volume_ + "/Other/host/name",
        volume_ + "/Archives.snapdb.old/host/name", snapshot() + "/..", std::string("/")}) {
    EXPECT_FALSE(isSnapshot(session_, path)) << path;
  }
}

TEST_F(IsSnapshot, ALinkToASnapshotIsNone) {
  const std::string link = repository_ + "/host/Latest";
  ASSERT_EQ(::symlink(kName, link.c_str()), 0);
  EXPECT_FALSE(isSnapshot(session_, link));
  EXPECT_FALSE(isSnapshot(session_, link + "/"));
  EXPECT_FALSE(isSnapshot(session_, link + "/."));
}

TEST_F(IsSnapshot, LinksOnTheWayToTheVolumeAreFollowed) {
  const std::string link = scratch_ / "link";
  ASSERT_EQ(::symlink("volume", link.c_str()), 0);
  EXPECT_TRUE(isSnapshot({link}, snapshot()));
  EXPECT_TRUE(isSnapshot(session_, link + "/Archives.snapdb/host/" + kName));
}

TEST_F(IsSnapshot, ARepositoryThatIsALinkHoldsNone) {
  const std::string other = scratch_.makeFolder("other");
  ASSERT_EQ(::symlink(repository_.c_str(), (other + "/Archives.snapdb").c_str()), 0);
  EXPECT_FALSE(isSnapshot({other}, other + "/Archives.snapdb/host/" + kName));
  EXPECT_FALSE(isSnapshot({other}, snapshot()));
}

TEST_F(IsSnapshot, AnotherVolumesSnapshotIsNone) {
  EXPECT_FALSE(isSnapshot({scratch_.makeFolder("other")}, snapshot()));
  EXPECT_FALSE(isSnapshot({scratch_ / "missing"}, snapshot()));
}

using DeleteSnapshotTest = StoredSnapshots;

TEST_F(DeleteSnapshotTest, TheWholeTreeGoesAndNothingElse) {
  (void)scratch_.write("volume/Archives.snapdb/host/other/System/file", "kept");
  ASSERT_EQ(::symlink((repository_ + "/host/other").c_str(), (snapshot() + "/link").c_str()), 0);

  EXPECT_EQ(DeleteSnapshot(session_, snapshot()), 0);

  EXPECT_FALSE(Scratch::stands(snapshot()));
  EXPECT_EQ(Scratch::contents(repository_ + "/host/other/System/file"), "kept");
}

TEST_F(DeleteSnapshotTest, WhatIsNoSnapshotStays) {
  EXPECT_EQ(DeleteSnapshot(session_, repository_ + "/host"), kNotASnapshot);
  EXPECT_EQ(DeleteSnapshot(session_, snapshot() + "/System"), kNotASnapshot);
  EXPECT_EQ(DeleteSnapshot(session_, volume_), kNotASnapshot);
  EXPECT_EQ(DeleteSnapshot(session_, ""), kNotASnapshot);
  EXPECT_TRUE(Scratch::stands(snapshot() + "/System/etc/hosts"));
}

TEST_F(DeleteSnapshotTest, AMountInsideIsAnErrorAndStays) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(
      test::exitStatusOf([&] {
        const std::string inner = snapshot() + "/System/etc";
        if (!test::enterPrivateMounts()) return 1;
        if (::mount("none", inner.c_str(), "tmpfs", 0, nullptr) != 0) return 2;
        (void)scratch_.write("volume/Archives.snapdb/host/2026-03-01-120000/System/etc/other");
        if (DeleteSnapshot(session_, snapshot()) != EBUSY) return 3;
        return Scratch::stands(inner + "/other") ? 0 : 4;
      }),
      0);
}

TEST_F(DeleteSnapshotTest, AReadOnlyVolumeAnswersItsErrorNumber) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts()) return 1;
              const char* volume = volume_.c_str();
              if (::mount(volume, volume, nullptr, MS_BIND, nullptr) != 0) return 2;
              if (::mount(nullptr, volume, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
                return 3;
              return DeleteSnapshot(session_, snapshot()) == EROFS ? 0 : 4;
            }),
            0);
  EXPECT_TRUE(Scratch::stands(snapshot()));
}

/// The repository on btrfs; the shell lines lay the snapshot out, in the repository's folder.
class DeleteSnapshotOnBtrfs : public StoredSnapshots {
 protected:
  /// 0, or the number of the step that went wrong.
  int layOutAndDelete(const LoopVolume& volume, const std::string& lines) const {
    return test::exitStatusOf([&] {
      if (!test::enterPrivateMounts() || !volume.mountAt(volume_)) return 1;
      const std::string host = repository_ + "/host";
      const std::string script =
          "{ mkdir -p '" + host + "' && cd '" + host + "' && " + lines + "; } >/dev/null";
      if (std::system(script.c_str()) != 0) return 2;
      if (!isSnapshot(session_, snapshot())) return 3;
      if (const int error = DeleteSnapshot(session_, snapshot())) return 10 + error;
      return Scratch::stands(snapshot()) ? 4 : 0;
    });
  }
};

#define REQUIRE_BTRFS(volume)                                   \
  const LoopVolume volume(scratch_, "btrfs", "halyard-engine"); \
  if (!test::canMountPrivately() || !(volume).isReady() ||      \
      test::outputOf("btrfs --version").empty())                \
  GTEST_SKIP() << "no loop device or no btrfs tools"

TEST_F(DeleteSnapshotOnBtrfs, ASubvolumeGoes) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "btrfs subvolume create 2026-03-01-120000 && "
                            "mkdir -p 2026-03-01-120000/System/etc && "
                            "echo x >2026-03-01-120000/System/etc/hosts"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, AReadOnlySubvolumeGoes) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "btrfs subvolume create work && echo x >work/file && "
                            "btrfs subvolume snapshot -r work 2026-03-01-120000"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, AFolderWithReadOnlySubvolumesInItGoes) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "btrfs subvolume create work && echo x >work/file && "
                            "mkdir 2026-03-01-120000 && echo x >2026-03-01-120000/plain && "
                            "btrfs subvolume snapshot -r work 2026-03-01-120000/System && "
                            "btrfs subvolume snapshot -r work 2026-03-01-120000/Data"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, AReadOnlySubvolumeWithOneInItGoes) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "btrfs subvolume create 2026-03-01-120000 && "
                            "btrfs subvolume create 2026-03-01-120000/System && "
                            "echo x >2026-03-01-120000/System/file && "
                            "btrfs property set -ts 2026-03-01-120000/System ro true && "
                            "btrfs property set -ts 2026-03-01-120000 ro true"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, SubvolumesDeepInsideGoToo) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "mkdir 2026-03-01-120000 && "
                            "btrfs subvolume create 2026-03-01-120000/System && "
                            "mkdir 2026-03-01-120000/System/srv && "
                            "btrfs subvolume create 2026-03-01-120000/System/srv/web && "
                            "echo x >2026-03-01-120000/System/srv/web/file && "
                            "btrfs property set -ts 2026-03-01-120000/System ro true"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, ASubvolumeGoesAtOnceHoweverMuchItHolds) {
  REQUIRE_BTRFS(volume);
  // An immutable file stops removal item by item: that the snapshot goes shows the short way.
  EXPECT_EQ(layOutAndDelete(volume,
                            "btrfs subvolume create work && echo x >work/file && "
                            "chattr +i work/file && "
                            "btrfs subvolume snapshot -r work 2026-03-01-120000"),
            0);
}

TEST_F(DeleteSnapshotOnBtrfs, APlainFolderGoesItemByItem) {
  REQUIRE_BTRFS(volume);
  EXPECT_EQ(layOutAndDelete(volume,
                            "mkdir -p 2026-03-01-120000/System/etc && "
                            "echo x >2026-03-01-120000/System/etc/hosts"),
            0);
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Inode flags: what chattr(1) set comes back with a restore.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "host/files/files.h"
#include "host/tree/inode_flags.h"
#include "host/volumes/subvolume.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/restore_snapshot.h"
#include "snapwheel/take_snapshot.h"
#include "support/forked.h"
#include "support/inode_flags.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::snapwheel {
namespace {

using test::flagsOf;
using test::listFlags;
using test::listTree;
using test::Scratch;
using test::setFlags;
using testing::IsEmpty;

/// Source, repository and target on one file system.
class Flags : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    volume_ = std::make_unique<test::MountedVolume>(scratch_, GetParam(), 320);
    if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
    for (const char* folder : {"source", "source/etc", "source/etc/deep", "destination"}) {
      ASSERT_EQ(::mkdir(at(folder).c_str(), 0755), 0);
    }
    for (const char* name : {"etc/plain", "etc/resolv.conf", "etc/log", "etc/deep/file"}) {
      ASSERT_TRUE(host::writeFile(at("source/") + name, std::string("of ") + name));
    }
    ASSERT_EQ(::link(at("source/etc/log").c_str(), at("source/etc/deep/other").c_str()), 0);
    repository_ = std::make_unique<Repository>(at("destination"), "files1");
    unlocked_ = std::make_unique<test::UnlockedAtTheEnd>(volume_->path());
  }

  std::string at(const std::string& path) const { return volume_->path() + "/" + path; }

  /// The one file system has flags that the other lacks.
  void giveFlags() {
    ASSERT_TRUE(setFlags(at("source/etc/plain"), FS_NODUMP_FL | FS_NOATIME_FL));
    ASSERT_TRUE(setFlags(at("source/etc/resolv.conf"), FS_IMMUTABLE_FL));
    ASSERT_TRUE(setFlags(at("source/etc/log"), FS_APPEND_FL | FS_SYNC_FL));
    (void)setFlags(at("source/etc/deep/file"), FS_JOURNAL_DATA_FL);
    ASSERT_TRUE(setFlags(at("source/etc/deep"), FS_IMMUTABLE_FL | FS_NOATIME_FL));
    ASSERT_TRUE(setFlags(at("source/etc"), FS_APPEND_FL));
    ASSERT_TRUE(setFlags(at("source"), FS_NODUMP_FL));
  }

  SnapshotOutcome take() {
    SnapshotRequest request;
    request.source = at("source");
    request.exclusions = Exclusions::parse("");
    request.machineLock = scratch_ / "lock";
    return takeSnapshot(*repository_, request);
  }
  RestoreOutcome restore(const SnapshotOutcome& snapshot, const std::string& target,
                         bool force = false) {
    RestoreRequest request;
    request.snapshotPath = repository_->path(snapshot.name);
    request.target = target;
    request.force = force;
    return restoreSnapshot(request);
  }
  void makeWritable(const SnapshotOutcome& snapshot) {
    const host::Descriptor folder = repository_->open();
    if (!host::isSubvolume(folder.get(), snapshot.name)) return;
    ASSERT_TRUE(host::setSubvolumeReadOnly(folder.get(), snapshot.name, false));
  }
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

  Scratch scratch_;
  std::unique_ptr<test::MountedVolume> volume_;
  std::unique_ptr<Repository> repository_;
  std::unique_ptr<test::UnlockedAtTheEnd> unlocked_;
};
INSTANTIATE_TEST_SUITE_P(On, Flags, testing::Values("ext4", "btrfs", "xfs"),
                         [](const auto& given) { return std::string(given.param); });

TEST_P(Flags, ComeBackWithARestore) {
  giveFlags();
  const SnapshotOutcome snapshot = take();
  const RestoreOutcome outcome = restore(snapshot, at("target"));
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_EQ(outcome.flags.lacking, 0U);
  EXPECT_EQ(outcome.flags.unknown, 0U);
  EXPECT_EQ(listFlags(at("target")), listFlags(at("source")));
  EXPECT_EQ(listTree(at("target")), listTree(at("source")));
  EXPECT_EQ(flagsOf(at("target/etc/resolv.conf")), host::InodeFlags{FS_IMMUTABLE_FL});
}

TEST_P(Flags, AreNotOnTheCopiesOfTheRepositorySoThatTheyCanBeRemoved) {
  giveFlags();
  const SnapshotOutcome first = take();
  EXPECT_THAT(listFlags(repository_->path(first.name) + "/System"), IsEmpty());
  (void)take();
  removeSnapshots(*repository_, {first.name});
  EXPECT_FALSE(Scratch::stands(repository_->path(first.name)));
}

TEST_P(Flags, OfUnchangedItemsAreCarriedOn) {
  giveFlags();
  settle();
  (void)take();
  const SnapshotOutcome second = take();
  EXPECT_EQ(second.manifest.copied, 0U);
  (void)restore(second, at("target"));
  EXPECT_EQ(listFlags(at("target")), listFlags(at("source")));
}

TEST_P(Flags, ThatChangedAloneAreInTheNextSnapshot) {
  settle();
  const SnapshotOutcome before = take();
  giveFlags();
  const SnapshotOutcome after = take();
  // In an update a file of two names is made anew, with the same blocks.
  EXPECT_LE(after.manifest.copied, host::isOnBtrfs(repository_->open().get()) ? 1U : 0U);
  (void)restore(after, at("target"));
  EXPECT_EQ(listFlags(at("target")), listFlags(at("source")));
  (void)restore(before, at("older"));
  EXPECT_THAT(listFlags(at("older")), IsEmpty());
}

TEST_P(Flags, OfALiveTargetAreNoObstacleAndBecomeThoseOfTheSnapshot) {
  giveFlags();
  const SnapshotOutcome snapshot = take();
  for (const char* folder : {"live", "live/etc", "live/etc/deep", "live/etc/plain"}) {
    ASSERT_EQ(::mkdir(at(folder).c_str(), 0755), 0);
  }
  for (const char* name : {"etc/resolv.conf", "etc/deep/file", "etc/plain/inside", "etc/more"}) {
    ASSERT_TRUE(host::writeFile(at("live/") + name, "damaged"));
    ASSERT_TRUE(setFlags(at("live/") + name, FS_IMMUTABLE_FL));
  }
  ASSERT_TRUE(setFlags(at("live/etc/plain"), FS_IMMUTABLE_FL));
  ASSERT_TRUE(setFlags(at("live/etc/deep"), FS_APPEND_FL | FS_NODUMP_FL));
  ASSERT_TRUE(setFlags(at("live/etc"), FS_IMMUTABLE_FL));
  const RestoreOutcome outcome = restore(snapshot, at("live"), true);
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_EQ(Scratch::contents(at("live/etc/plain")), "of etc/plain");
  EXPECT_EQ(Scratch::contents(at("live/etc/resolv.conf")), "of etc/resolv.conf");
  EXPECT_EQ(Scratch::contents(at("live/etc/more")), "damaged") << "is not in the snapshot";
  auto expected = listFlags(at("source"));
  expected.push_back("etc/more " + std::to_string(FS_IMMUTABLE_FL));
  EXPECT_THAT(listFlags(at("live")), testing::UnorderedElementsAreArray(expected));
}

TEST_P(Flags, ThatAFolderOfTheTargetHandsDownAreNotTaken) {
  const SnapshotOutcome snapshot = take();
  ASSERT_EQ(::mkdir(at("live").c_str(), 0755), 0);
  if (!setFlags(at("live"), FS_NODUMP_FL | FS_SYNC_FL)) GTEST_SKIP() << "no such flags";
  (void)restore(snapshot, at("live"), true);
  EXPECT_THAT(listFlags(at("live")), IsEmpty());
}

TEST_P(Flags, OfAFolderStayWhenTheSnapshotKnowsNone) {
  const SnapshotOutcome snapshot = take();
  makeWritable(snapshot);
  ASSERT_EQ(::unlink((repository_->path(snapshot.name) + "/.snapwheel/index").c_str()), 0);
  ASSERT_EQ(::mkdir(at("live").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(at("live/etc").c_str(), 0755), 0);
  ASSERT_TRUE(setFlags(at("live/etc"), FS_IMMUTABLE_FL | FS_NODUMP_FL));
  const RestoreOutcome outcome = restore(snapshot, at("live"), true);
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_EQ(flagsOf(at("live/etc")), host::InodeFlags{FS_IMMUTABLE_FL | FS_NODUMP_FL});
  EXPECT_EQ(Scratch::contents(at("live/etc/plain")), "of etc/plain");
}

TEST_P(Flags, ThatOnlyAnEmptyFileTakesComeBackToo) {
  const std::string file = at("source/etc/database");
  ASSERT_TRUE(host::writeFile(file, ""));
  if (!setFlags(file, FS_NOCOW_FL)) GTEST_SKIP() << "such a file cannot be had here";
  ASSERT_EQ(::truncate(file.c_str(), 0), 0);
  std::FILE* stream = std::fopen(file.c_str(), "r+");
  ASSERT_NE(stream, nullptr);
  EXPECT_GE(std::fputs(std::string(300000, 'x').c_str(), stream), 0);
  std::fclose(stream);
  (void)restore(take(), at("target"));
  EXPECT_EQ(flagsOf(at("target/etc/database")), host::InodeFlags{FS_NOCOW_FL});
  EXPECT_EQ(Scratch::contents(at("target/etc/database")), std::string(300000, 'x'));
}

TEST_P(Flags, AreReadAfterAnUpgradeAlthoughNothingChanged) {
  giveFlags();
  settle();
  const SnapshotOutcome first = take();
  // An index without flags, as it was written before.
  const std::string path = repository_->path(first.name) + "/.snapwheel/index";
  makeWritable(first);
  std::string bytes = Scratch::contents(path);
  ASSERT_EQ(bytes.substr(0, 8), "SWINDEX4");
  bytes[7] = '2';
  ASSERT_TRUE(host::writeFile(path, bytes));
  const RestoreOutcome outcome = restore(first, at("older"));
  EXPECT_GT(outcome.flags.unknown, 0U);
  const SnapshotOutcome second = take();
  EXPECT_EQ(second.manifest.copied, 0U);
  (void)restore(second, at("target"));
  EXPECT_EQ(listFlags(at("target")), listFlags(at("source")));
}

TEST_P(Flags, ThatTheTargetCannotHoldAreTold) {
  giveFlags();
  const SnapshotOutcome snapshot = take();
  ASSERT_EQ(::mkdir(at("mounted").c_str(), 0755), 0);
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts()) return 8;
              // It has neither flags nor anything else that the files of this test need.
              if (::mount("none", at("mounted").c_str(), "ramfs", 0, nullptr) != 0) return 9;
              const RestoreOutcome outcome = restore(snapshot, at("mounted"));
              if (outcome.failed != 0) return 1;
              if (listTree(at("mounted")) != listTree(at("source"))) return 2;
              return outcome.flags.lacking >= 5 ? 0 : 3;
            }),
            0);
}

}  // namespace
}  // namespace halyard::snapwheel

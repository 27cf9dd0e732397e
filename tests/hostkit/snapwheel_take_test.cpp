// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Snapshots of real trees on real file systems: what they hold and what they share.
#include <gmock/gmock.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/remove_snapshots.h"
#include "support/items.h"
#include "support/mounts.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::ElementsAre;

/// Where two files of one file system share their data, whichever way the engine does it.
bool isShared(const std::string& left, const std::string& right) {
  struct stat one {};
  struct stat other {};
  EXPECT_EQ(::stat(left.c_str(), &one), 0) << left;
  EXPECT_EQ(::stat(right.c_str(), &other), 0) << right;
  return one.st_ino == other.st_ino;  // Inode numbers stay in a btrfs snapshot, too.
}

using TakeSnapshot = SnapshotTest;
INSTANTIATE_TEST_SUITE_P(On, TakeSnapshot, fileSystems(), fileSystemName);

TEST_P(TakeSnapshot, HoldsEverythingThatWasNotLeftOut) {
  const SnapshotOutcome outcome = take();
  EXPECT_EQ(listTree(volumeOf(outcome)), expected());
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_TRUE(host::isDirectory(volumeOf(outcome) + "/.Halyards/depotHost"));
  EXPECT_TRUE(host::isDirectory(volumeOf(outcome) + "/proc"));
}

TEST_P(TakeSnapshot, LeavesOnlyTheSnapshotAndTheLatestLink) {
  const SnapshotOutcome outcome = take();
  EXPECT_THAT(host::listDirectory(repository_->hostFolder()),
              ElementsAre(".lock", outcome.name, "Latest"));
  EXPECT_EQ(repository_->latest(), outcome.name);
}

TEST_P(TakeSnapshot, RecordsWhatItDid) {
  const SnapshotOutcome outcome = take();
  const auto manifest = readManifest(repository_->path(outcome.name));
  ASSERT_TRUE(manifest.has_value());
  EXPECT_EQ(manifest->computer, "files1");
  EXPECT_EQ(manifest->volume, "System");
  EXPECT_EQ(manifest->source, source_);
  EXPECT_EQ(manifest->started, outcome.name);
  EXPECT_FALSE(manifest->finished.empty());
  EXPECT_EQ(manifest->reference, "");
  EXPECT_EQ(manifest->items, expected().size());
  EXPECT_EQ(manifest->copied, 7U);
}

TEST_P(TakeSnapshot, RecordsTheNamesOfOwners) {
  const auto names = readOwnerNames(repository_->path(take().name));
  ASSERT_TRUE(names.has_value());
  EXPECT_THAT(names->users, ElementsAre(std::pair(0U, "root"), std::pair(1815U, "ada")));
  EXPECT_THAT(names->groups, ElementsAre(std::pair(0U, "root"), std::pair(1816U, "engine")));
}

TEST_P(TakeSnapshot, AnUnchangedSourceIsSharedWithThePreviousSnapshot) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(second.manifest.reference, first.name);
  EXPECT_EQ(second.manifest.copied, 0U);
  EXPECT_EQ(second.manifest.items, first.manifest.items);
  EXPECT_TRUE(isShared(volumeOf(first) + "/etc/hosts", volumeOf(second) + "/etc/hosts"));
  EXPECT_TRUE(
      isShared(volumeOf(first) + "/srv/deep/er/two", volumeOf(second) + "/srv/deep/er/two"));
}

TEST_P(TakeSnapshot, ANewSnapshotHasWhatChangedAndTheOldOneKeepsWhatWas) {
  const SnapshotOutcome first = take();
  const auto before = listTree(volumeOf(first));
  put("etc/hosts", "127.0.0.1 localhost\n::1 localhost\n");
  put("srv/new/file", "new");
  ASSERT_EQ(::chmod(at("srv/deep/er/two").c_str(), 0600), 0);
  ASSERT_EQ(::unlink(at("srv/dangling").c_str()), 0);
  ASSERT_EQ(::symlink("elsewhere", at("srv/dangling").c_str()), 0);
  ASSERT_EQ(::unlink(at("srv/fifo").c_str()), 0);
  ASSERT_EQ(::mkdir(at("srv/fifo").c_str(), 0711), 0);
  ASSERT_TRUE(host::removeItem(at(".Halyards")));

  const SnapshotOutcome second = take();

  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(listTree(volumeOf(first)), before);
  EXPECT_EQ(second.manifest.copied, 3U);
}

/// Who may make a file may make one that would take hours to read, and on XFS years.
TEST_P(TakeSnapshot, AFileOfOneHugeHoleHoldsNothingUp) {
  put("srv/huge", "x");
  const off_t size = off_t{1} << 41;  // What an ext4 of small blocks takes.
  ASSERT_EQ(::truncate(at("srv/huge").c_str(), size), 0);
  settle();
  const SnapshotOutcome first = take();
  EXPECT_EQ(test::statusOf(volumeOf(first) + "/srv/huge").st_size, size);
  // Without an index its contents are compared.
  makeWritable(first);
  ASSERT_EQ(::unlink((repository_->path(first.name) + "/.snapwheel/index").c_str()), 0);
  const SnapshotOutcome second = take();
  EXPECT_LT(second.manifest.copiedBytes, 1000U);
  EXPECT_TRUE(checkRepository(*repository_, CheckDepth::contents).damaged.empty());
}

TEST_P(TakeSnapshot, AFolderThatBecameAFileIsReplaced) {
  take();
  ASSERT_TRUE(host::removeItem(at("srv/deep")));
  put("srv/deep", "a file now");
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, SeesAChangedAttribute) {
  const SnapshotOutcome first = take();
  ASSERT_EQ(::lsetxattr(at("etc/passwd").c_str(), "user.note", "new", 3, 0), 0);
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_FALSE(isShared(volumeOf(first) + "/etc/passwd", volumeOf(second) + "/etc/passwd") &&
               !isOnBtrfs());
}

TEST_P(TakeSnapshot, FollowsHardLinksThatAreMadeAndUndone) {
  take();
  ASSERT_EQ(::unlink(at("srv/deep/other-name").c_str()), 0);
  put("srv/deep/other-name", "the same");
  ASSERT_EQ(::link(at("etc/hosts").c_str(), at("etc/hosts2").c_str()), 0);
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  ASSERT_EQ(::rename(at("srv/deep").c_str(), at("srv/moved").c_str()), 0);
  ASSERT_EQ(::unlink(at("etc/hosts").c_str()), 0);
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, WorksWithoutTheRecordOfThePreviousOne) {
  const SnapshotOutcome first = take();
  const std::string records = repository_->path(first.name) + "/.snapwheel";
  makeWritable(first);
  ASSERT_TRUE(host::removeItem(records));
  put("etc/hosts", "changed");
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(second.manifest.copied, isOnBtrfs() ? second.manifest.copied : 1U);
}

// As a unit with ProtectSystem= sees its host.
TEST_P(TakeSnapshot, HoldsWhatAMountHides) {
  const auto all = expected();
  const auto onItself = test::TestMount::bind(at("etc"), at("etc"));
  const auto onAnother = test::TestMount::bind(at("srv/deep"), at("proc"));
  if (!onItself.isMounted() || !onAnother.isMounted()) GTEST_SKIP() << "cannot mount here";
  const SnapshotOutcome outcome = take();
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_EQ(listTree(volumeOf(outcome)), all);
}

TEST_P(TakeSnapshot, LeavesOutWhatIsNewlyExcluded) {
  take();
  SnapshotRequest without = request();
  without.exclusions.add("/srv/deep");
  const SnapshotOutcome second = takeSnapshot(*repository_, without);
  EXPECT_FALSE(Scratch::stands(volumeOf(second) + "/srv/deep"));
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, RemovalLeavesTheOtherSnapshotsWhole) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  removeSnapshots(*repository_, {first.name});
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(repository_->latest(), second.name);
  removeSnapshots(*repository_, {second.name});
  EXPECT_EQ(repository_->latest(), std::nullopt);
  EXPECT_THAT(host::listDirectory(repository_->hostFolder()), ElementsAre(".lock"));
}

TEST_P(TakeSnapshot, RemovalOfTheLatestMovesTheLink) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  removeSnapshots(*repository_, {second.name});
  EXPECT_EQ(repository_->latest(), first.name);
}

TEST_P(TakeSnapshot, OnBtrfsIsAReadOnlySubvolume) {
  const SnapshotOutcome outcome = take();
  const std::string path = repository_->path(outcome.name);
  EXPECT_EQ(isSubvolume(outcome), std::string(GetParam()) == "btrfs");
  if (!isSubvolume(outcome)) return;
  EXPECT_FALSE(host::writeFile(path + "/System/etc/hosts", "x"));
}

}  // namespace
}  // namespace halyard::snapwheel

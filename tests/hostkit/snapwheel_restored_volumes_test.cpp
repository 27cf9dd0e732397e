// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Several volumes come back from a snapshot, each to its place, or it is told that one does not.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "further_volumes.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "snapwheel/failure.h"
#include "snapwheel/restore_snapshot.h"
#include "support/items.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::ElementsAre;
using testing::IsEmpty;

class RestoredVolumes : public FurtherVolumes {
 protected:
  RestoreRequest restoreOf(const SnapshotOutcome& outcome) const {
    RestoreRequest restore;
    restore.snapshotPath = repository_->path(outcome.name);
    restore.target = scratch_ / "target";
    return restore;
  }
};

INSTANTIATE_TEST_SUITE_P(On, RestoredVolumes, fileSystems(), fileSystemName);

TEST_P(RestoredVolumes, AreAllRestoredToTheirPlaces) {
  RestoreRequest restore = restoreOf(takeAll());
  // The way to a volume of its own may stand already.
  scratch_.makeFolder("target/vol/data/lost+found");
  const RestoreOutcome outcome = restoreSnapshot(restore);
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_EQ(listTree(scratch_ / "target"), expected());

  RestoreRequest one = restore;
  one.volume = "vol-data";
  one.target = scratch_ / "one";
  EXPECT_EQ(restoreSnapshot(one).failed, 0U);
  EXPECT_EQ(listTree(scratch_ / "one"), listTree(at("vol/data")));
}

TEST_P(RestoredVolumes, AreRestoredThroughNoLink) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  const std::string elsewhere = scratch_.makeFolder("elsewhere");
  ASSERT_TRUE(host::removeItem(volumeOf(first) + "/vol/data"));
  ASSERT_EQ(::symlink(elsewhere.c_str(), (volumeOf(first) + "/vol/data").c_str()), 0);
  RestoreRequest restore = restoreOf(first);
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  EXPECT_THAT(host::listDirectory(elsewhere), IsEmpty());
}

TEST_P(RestoredVolumes, AreNotCalledRestoredWhenOneIsGone) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  ASSERT_TRUE(host::removeItem(further(first)));
  RestoreRequest restore = restoreOf(first);
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  EXPECT_FALSE(Scratch::stands(scratch_ / "target"));
  for (const char* name : {"vol-data", "..", ".snapwheel", "System/etc"}) {
    restore.volume = name;
    EXPECT_THROW(restoreSnapshot(restore), Failure) << name;
  }
  restore.volume = "System";
  EXPECT_EQ(restoreSnapshot(restore).failed, 0U);
}

TEST_P(RestoredVolumes, TheOneOfTheRootIsNotTakenForAnotherWhenItIsGone) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  ASSERT_TRUE(host::removeItem(volumeOf(first)));
  EXPECT_THAT(findings(CheckDepth::structure),
              ElementsAre(first.name + "/System is gone, or no folder: the snapshot does not " +
                          "hold what was at / any more"));
  RestoreRequest restore = restoreOf(first);
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  EXPECT_FALSE(Scratch::stands(scratch_ / "target"));
  restore.volume = "vol-data";
  EXPECT_EQ(restoreSnapshot(restore).failed, 0U);
}

TEST_P(RestoredVolumes, OneThatIsGoneIsMissedWithoutTheManifest) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  ASSERT_TRUE(host::writeFile(repository_->path(first.name) + "/.snapwheel/manifest.json", "{"));
  ASSERT_TRUE(host::removeItem(further(first)));
  RestoreRequest restore = restoreOf(first);
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  EXPECT_FALSE(Scratch::stands(scratch_ / "target"));
}

TEST_P(RestoredVolumes, OneThatCouldNotBeReadIsNotCalledRestored) {
  further_->unmount();
  RestoreRequest restore = restoreOf(takeAll());
  const RestoreOutcome all = restoreSnapshot(restore);
  ASSERT_EQ(all.notHeld.size(), 1U);
  EXPECT_EQ(all.notHeld.front().path, "/vol/data");
  EXPECT_EQ(all.lack.missing, 0U) << "it is told once";

  restore.target = scratch_ / "chosen";
  restore.paths = {"/vol/data"};
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  restore.paths = {"/vol/data/one"};
  EXPECT_THROW(restoreSnapshot(restore), Failure);
  EXPECT_FALSE(Scratch::stands(restore.target));
  restore.paths = {"/vol", "/etc"};
  const RestoreOutcome outcome = restoreSnapshot(restore);
  ASSERT_EQ(outcome.notHeld.size(), 1U);
  EXPECT_EQ(outcome.notHeld.front().path, "/vol/data");
  EXPECT_EQ(outcome.notHeld.front().why, "is a volume that the snapshot does not hold");

  restore.target = scratch_ / "one";
  restore.paths.clear();
  restore.volume = "System";
  EXPECT_THAT(restoreSnapshot(restore).notHeld, IsEmpty());
}

TEST_P(RestoredVolumes, TheFoldersAboveAFileOfOneComeBackAsTheyWere) {
  ASSERT_EQ(::chown(at("vol").c_str(), 1815, 1816), 0);
  ASSERT_EQ(::chmod(at("vol").c_str(), 0750), 0);
  ASSERT_EQ(::chown(at("vol/data").c_str(), 1816, 1815), 0);
  ASSERT_EQ(::chmod(at("vol/data").c_str(), 0700), 0);
  RestoreRequest restore = restoreOf(takeAll());
  restore.paths = {"/vol/data/deep/two"};
  EXPECT_EQ(restoreSnapshot(restore).failed, 0U);
  for (const char* folder : {"/vol", "/vol/data", "/vol/data/deep"}) {
    const struct stat was = test::statusOf(source_ + folder);
    const struct stat is = test::statusOf(restore.target + folder);
    EXPECT_EQ(is.st_mode, was.st_mode) << folder;
    EXPECT_EQ(is.st_uid, was.st_uid) << folder;
    EXPECT_EQ(is.st_gid, was.st_gid) << folder;
    EXPECT_EQ(is.st_mtim.tv_nsec, was.st_mtim.tv_nsec) << folder;
  }
  EXPECT_THAT(host::listDirectory(restore.target), ElementsAre("vol"));
  EXPECT_THAT(host::listDirectory(restore.target + "/vol"), ElementsAre("data"));
  EXPECT_THAT(host::listDirectory(restore.target + "/vol/data"), ElementsAre("deep"));

  // Those that are there keep their own.
  ASSERT_EQ(::chmod((restore.target + "/vol").c_str(), 0711), 0);
  ASSERT_EQ(::chmod((restore.target + "/vol/data").c_str(), 0711), 0);
  restore.force = true;
  EXPECT_EQ(restoreSnapshot(restore).failed, 0U);
  EXPECT_EQ(test::statusOf(restore.target + "/vol").st_mode & 07777U, 0711U);
  EXPECT_EQ(test::statusOf(restore.target + "/vol/data").st_mode & 07777U, 0711U);
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A source on btrfs, which stands still while it is copied.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "host/files/files.h"
#include "host/volumes/subvolume.h"
#include "snapwheel/source_instant.h"
#include "snapwheel/take_snapshot.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::HasSubstr;

class BtrfsSource : public testing::Test {
 protected:
  void SetUp() override {
    volume_ = std::make_unique<test::MountedVolume>(scratch_, "btrfs", 320, "source");
    if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
    repository_ = std::make_unique<Repository>(scratch_.makeFolder("destination"), "files1");
    folder_ = host::Descriptor(::open(volume_->path().c_str(), O_RDONLY | O_DIRECTORY));
    scratch_.write("source/etc/hosts", "127.0.0.1 localhost\n");
    scratch_.write("source/srv/data", std::string(100000, 'x'));
    // A time that nobody takes for one of now.
    const struct timespec times[] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, volume_->path().c_str(), times, 0), 0);
    settle();
  }
  /// Until change times are old enough to prove something.
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

  SnapshotOutcome take(const std::string& exclusions = "") {
    SnapshotRequest request;
    request.source = volume_->path();
    request.exclusions = Exclusions::parse(exclusions);
    request.machineLock = scratch_ / "lock";
    testing::internal::CaptureStderr();
    SnapshotOutcome outcome = takeSnapshot(*repository_, request);
    told_ = testing::internal::GetCapturedStderr();
    return outcome;
  }
  std::string volumeOf(const SnapshotOutcome& outcome) const {
    return repository_->path(outcome.name) + "/System";
  }
  static bool isStill(const SnapshotOutcome& outcome) {
    return outcome.manifest.volumes.front().ofOneInstant;
  }
  std::string at(const std::string& path) const { return volume_->path() + "/" + path; }
  void makeSubvolume(const std::string& folder, const std::string& name) const {
    const host::Descriptor above(::open(at(folder).c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_TRUE(host::createSubvolume(above.get(), name));
  }

  Scratch scratch_;
  std::unique_ptr<test::MountedVolume> volume_;
  std::unique_ptr<Repository> repository_;
  host::Descriptor folder_;
  std::string told_;
};

TEST_F(BtrfsSource, IsCopiedAsItIs) {
  const auto before = listTree(volume_->path());
  const SnapshotOutcome outcome = take();
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_TRUE(isStill(outcome));
  EXPECT_EQ(told_, "");
  EXPECT_EQ(listTree(volumeOf(outcome)), before);
  EXPECT_EQ(listTree(volume_->path()), before) << "times of the root included";
  EXPECT_FALSE(Scratch::stands(at(kInstantFolder)));
}

TEST_F(BtrfsSource, StandsStillWhereNewFoldersGetTheGroupOfTheRoot) {
  ASSERT_EQ(::chown(volume_->path().c_str(), 0, 1816), 0);
  ASSERT_EQ(::chmod(volume_->path().c_str(), 02775), 0);
  EXPECT_TRUE(isStill(take())) << told_;
  EXPECT_FALSE(host::exists(at(kInstantFolder)));
}

TEST_F(BtrfsSource, SharesWithASnapshotOfTheLivingVolume) {
  const SnapshotOutcome first = take();
  // The index says that it is the same, so that nobody looks at what the snapshot has.
  const std::string copy = volumeOf(first) + "/srv/data";
  struct stat status {};
  ASSERT_EQ(::stat(copy.c_str(), &status), 0);
  {
    const host::Descriptor opened(::open(copy.c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(opened.get(), "X", 1, 0), 1);
    const struct timespec times[] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(::futimens(opened.get(), times), 0);
  }
  ASSERT_TRUE(volume_->remount(true));
  const SnapshotOutcome second = take();
  EXPECT_FALSE(isStill(second));
  EXPECT_THAT(told_, HasSubstr("it cannot be held still, and is copied as it changes"));
  EXPECT_EQ(second.manifest.copied, 0U);
  ASSERT_TRUE(volume_->remount(false));
  const SnapshotOutcome third = take();
  EXPECT_TRUE(isStill(third));
  EXPECT_EQ(third.manifest.copied, 0U);
  scratch_.write("source/srv/data", std::string(100000, 'y'));
  const SnapshotOutcome fourth = take();
  EXPECT_EQ(fourth.manifest.copied, 1U);
  EXPECT_EQ(listTree(volumeOf(fourth)), listTree(volume_->path()));
}

TEST_F(BtrfsSource, HoldsTwoFilesAsTheyWereAtOneMoment) {
  // Written in turn, each with its data on the disk before the other one's.
  std::atomic<bool> isDone = false;
  std::atomic<int> rounds = 0;
  scratch_.write("source/a-first", "000000");
  for (int count = 0; count < 400; ++count) {
    scratch_.write("source/between/" + std::to_string(count), std::string(20000, 'x'));
  }
  scratch_.write("source/last/z-second", "000000");
  std::thread writer([&] {
    const host::Descriptor first(::open(at("a-first").c_str(), O_WRONLY));
    const host::Descriptor second(::open(at("last/z-second").c_str(), O_WRONLY));
    while (!isDone) {
      char text[8];
      (void)std::snprintf(text, sizeof text, "%06d", ++rounds);
      for (const auto* file : {&first, &second}) {
        (void)!::pwrite(file->get(), text, 6, 0);
        (void)::fdatasync(file->get());
      }
    }
  });
  for (int run = 0; run < 4; ++run) {
    const int before = rounds;
    const SnapshotOutcome outcome = take();
    EXPECT_TRUE(outcome.manifest.complete);
    const int first = std::stoi(Scratch::contents(volumeOf(outcome) + "/a-first"));
    const int second = std::stoi(Scratch::contents(volumeOf(outcome) + "/last/z-second"));
    EXPECT_TRUE(first == second || first == second + 1) << first << " " << second;
    EXPECT_GE(first, before - 1);
    EXPECT_GT(rounds.load(), before) << "nothing was written meanwhile";
  }
  isDone = true;
  writer.join();
}

TEST_F(BtrfsSource, WhatAKilledRunHasLeftIsRemoved) {
  makeSubvolume("srv", "deep");
  makeSubvolume("srv/deep", "deeper");
  scratch_.write("source/srv/deep/deeper/x", "x");
  settle();
  const auto before = listTree(volume_->path());
  const pid_t child = ::fork();
  if (child == 0) {
    const SourceInstant instant(host::Descriptor(::dup(folder_.get())),
                                [](std::string_view) { return false; });
    ::_exit(instant.isStill() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_TRUE(Scratch::stands(at(".snapwheel-source/instant/srv/deep/deeper/x")));
  struct stat place {};
  ASSERT_EQ(::stat(at(kInstantFolder).c_str(), &place), 0);
  EXPECT_EQ(place.st_mode & 07777, 0700U) << "nobody else looks into it";
  const SnapshotOutcome outcome = take();
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_EQ(told_, "");
  EXPECT_EQ(listTree(volumeOf(outcome)), before);
  EXPECT_EQ(listTree(volume_->path()), before);
}

TEST_F(BtrfsSource, WhatOthersHavePutInThePlaceIsLeftAloneAndCopied) {
  const std::string elsewhere = scratch_.makeFolder("elsewhere");
  scratch_.write("elsewhere/instant/x", "x");
  const std::string place = at(kInstantFolder);
  const auto refuses = [&](const std::string& what) {
    const auto before = listTree(volume_->path());
    const SnapshotOutcome outcome = take();
    EXPECT_FALSE(isStill(outcome)) << what;
    EXPECT_TRUE(outcome.manifest.complete) << what;
    EXPECT_THAT(told_, HasSubstr("it cannot be held still")) << what;
    EXPECT_EQ(listTree(volumeOf(outcome)), before) << what;
    EXPECT_EQ(listTree(volume_->path()), before) << what;
    EXPECT_TRUE(Scratch::stands(elsewhere + "/instant/x")) << what;
  };
  ASSERT_EQ(::symlink(elsewhere.c_str(), place.c_str()), 0);
  refuses("a link");
  ASSERT_EQ(::unlink(place.c_str()), 0);
  scratch_.write("source/.snapwheel-source/instant/file", "of a user");
  ASSERT_EQ(::chmod(place.c_str(), 0755), 0);
  refuses("a folder that others can enter");
  ASSERT_EQ(::chmod(place.c_str(), 0700), 0);
  ASSERT_EQ(::chown(place.c_str(), 1815, 1816), 0);
  refuses("a folder of somebody else");
}

TEST_F(BtrfsSource, SubvolumesInItAreCopiedWithIt) {
  makeSubvolume("", "machines");
  makeSubvolume("srv", "nested");
  makeSubvolume("srv/nested", "deeper");
  makeSubvolume("srv", "cache");
  scratch_.write("source/srv/nested/one", "1");
  scratch_.write("source/srv/nested/deeper/two", "2");
  scratch_.write("source/srv/cache/three", "3");
  ASSERT_EQ(::chmod(at("machines").c_str(), 0700), 0);
  settle();
  auto expected = listTree(volume_->path());
  std::erase_if(expected, [](const std::string& line) { return line.starts_with("/srv/cache"); });
  const SnapshotOutcome first = take("/srv/cache\n");
  EXPECT_TRUE(first.manifest.complete);
  EXPECT_EQ(told_, "");
  EXPECT_FALSE(isStill(first)) << "each is as of a moment of its own";
  EXPECT_EQ(listTree(volumeOf(first)), expected);
  EXPECT_FALSE(Scratch::stands(at(kInstantFolder)));
  const SnapshotOutcome second = take("/srv/cache\n");
  EXPECT_EQ(second.manifest.copied, 0U);

  ASSERT_TRUE(volume_->remount(true));
  const SnapshotOutcome live = take("/srv/cache\n");
  EXPECT_TRUE(live.manifest.complete);
  EXPECT_EQ(listTree(volumeOf(live)), expected);
}

TEST_F(BtrfsSource, AFolderInASubvolumeIsCopiedAsItChanges) {
  SnapshotRequest request;
  request.source = at("srv");
  request.exclusions = Exclusions::parse("");
  request.machineLock = scratch_ / "lock";
  const SnapshotOutcome outcome = takeSnapshot(*repository_, request);
  EXPECT_FALSE(isStill(outcome));
  EXPECT_EQ(listTree(volumeOf(outcome)), listTree(at("srv")));
}

}  // namespace
}  // namespace halyard::snapwheel

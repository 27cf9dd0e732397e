// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Snapshots that are interrupted, in each other's way, or refused by the destination.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "snapshot_test.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::HasSubstr;
using testing::IsEmpty;

class SnapshotTrouble : public SnapshotTest {
 protected:
  /// In a child: takes two snapshots as a machine of its own would.
  int actAsHost(int host) const {
    try {
      const Repository own(destination_, "host" + std::to_string(host));
      SnapshotRequest ownRequest = request();
      ownRequest.machineLock = scratch_ / ("lock" + std::to_string(host));
      takeSnapshot(own, ownRequest);
      takeSnapshot(own, ownRequest);
      return 0;
    } catch (const Failure&) {
      return 1;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(On, SnapshotTrouble, fileSystems(), fileSystemName);

TEST_P(SnapshotTrouble, TakesOverWhatAnInterruptedRunLeft) {
  const SnapshotOutcome first = take();
  SnapshotOutcome second = take();
  // As a run that was ended half way: an earlier name, its own manifest, some files missing, one
  // half written.
  const std::string folder = repository_->path(second.name);
  makeWritable(second);
  second.manifest.finished = "";
  ASSERT_TRUE(writeManifest(folder, second.manifest));
  ASSERT_TRUE(host::removeItem(folder + "/System/etc/hosts"));
  ASSERT_TRUE(host::removeItem(folder + "/System/srv/one"));
  ASSERT_TRUE(host::writeFile(folder + "/System/srv/one", "the"));
  ASSERT_TRUE(host::writeFile(folder + "/System/srv/stray", "of another time"));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);
  put("etc/passwd", "root:x:0:0::/root:/bin/sh\n");

  testing::internal::CaptureStderr();
  const SnapshotOutcome third = take();

  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("an interrupted snapshot is taken over: " + second.name + ".inProgress"));
  EXPECT_EQ(listTree(volumeOf(third)), expected());
  EXPECT_THAT(repository_->list().inProgress, IsEmpty());
  EXPECT_EQ(Scratch::contents(volumeOf(first) + "/srv/one"), "the same");
}

TEST_P(SnapshotTrouble, RemovesWhatWasInterruptedBeforeTheHostStartedAnew) {
  SnapshotOutcome first = take();
  const std::string folder = repository_->path(first.name);
  makeWritable(first);
  first.manifest.boot = "another start";
  ASSERT_TRUE(writeManifest(folder, first.manifest));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);

  testing::internal::CaptureStderr();
  const SnapshotOutcome second = take();

  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("an interrupted snapshot is removed: " + first.name + ".inProgress"));
  EXPECT_EQ(second.manifest.copied, 7U);
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{second.name});
}

TEST_P(SnapshotTrouble, ASecondOneAtTheSameTimeIsRefused) {
  repository_->create();
  const SnapshotLock lock(*repository_, scratch_ / "lock");
  try {
    take();
    FAIL() << "two at a time";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), hostkit::kBusy);
    EXPECT_THAT(failure.what(), HasSubstr("process " + std::to_string(::getpid())));
  }
}

TEST_P(SnapshotTrouble, SeveralHostsShareARepository) {
  constexpr int kHosts = 4;
  std::vector<pid_t> hosts;
  for (int host = 0; host < kHosts; ++host) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(actAsHost(host));
    hosts.push_back(child);
  }
  for (const pid_t host : hosts) {
    int status = -1;
    ASSERT_EQ(::waitpid(host, &status, 0), host);
    EXPECT_EQ(status, 0);
  }
  for (int host = 0; host < kHosts; ++host) {
    const Repository own(destination_, "host" + std::to_string(host));
    const std::vector<std::string> snapshots = own.list().snapshots;
    ASSERT_EQ(snapshots.size(), 2U);
    EXPECT_EQ(own.latest(), snapshots.back());
    EXPECT_THAT(own.list().inProgress, IsEmpty());
    EXPECT_EQ(listTree(own.path(snapshots.back()) + "/System"), expected());
  }
}

TEST_P(SnapshotTrouble, TheRepositoryNeverCopiesItself) {
  SnapshotRequest around = request();
  around.source = scratch_.path();
  around.exclusions.addPath(std::string(GetParam()) + ".img");
  takeSnapshot(*repository_, around);
  const SnapshotOutcome second = takeSnapshot(*repository_, around);
  EXPECT_TRUE(Scratch::stands(volumeOf(second) + "/source/etc/hosts"));
  EXPECT_FALSE(Scratch::stands(volumeOf(second) + "/destination/Archives.snapdb"));
}

TEST_P(SnapshotTrouble, RefusesASourceInTheRepository) {
  SnapshotRequest inside = request();
  inside.source = repository_->folder();
  repository_->create();
  EXPECT_THROW(takeSnapshot(*repository_, inside), Failure);
}

TEST_P(SnapshotTrouble, AFullDestinationIsToldAndLeavesTheOthersUntouched) {
  if (volume_ == nullptr) GTEST_SKIP() << "needs a file system of its own";
  const SnapshotOutcome first = take();
  const auto before = listTree(volumeOf(first));
  const std::string piece(std::size_t{8} << 20, 'y');
  for (int number = 0; number < 48; ++number) {
    put("big/" + std::to_string(number), std::to_string(number) + piece);
  }
  try {
    take();
    FAIL() << "384 MB on 320 MB";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), hostkit::kFailure);
    EXPECT_THAT(failure.what(), HasSubstr("No space left on device"));
    EXPECT_THAT(failure.what(), HasSubstr("the earlier snapshots are untouched"));
  }
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{first.name});
  EXPECT_THAT(repository_->list().inProgress, IsEmpty());
  EXPECT_EQ(listTree(volumeOf(first)), before);
  ASSERT_TRUE(host::removeItem(at("big")));
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(SnapshotTrouble, AReadOnlyDestinationIsTold) {
  if (volume_ == nullptr) GTEST_SKIP() << "needs a file system of its own";
  const SnapshotOutcome first = take();
  ASSERT_TRUE(volume_->remount(true));
  try {
    take();
    FAIL() << "written to a read-only file system";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("Read-only file system"));
  }
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{first.name});
}

}  // namespace
}  // namespace halyard::snapwheel

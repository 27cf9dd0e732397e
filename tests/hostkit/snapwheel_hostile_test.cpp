// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A repository on a disk that was in other hands: nothing in it leads anywhere else.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "snapshot_test.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/source_index.h"
#include "support/mounts.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Hostile : public SnapshotTest {
 protected:
  void SetUp() override {
    SnapshotTest::SetUp();
    if (IsSkipped()) return;
    scratch_.write("precious/kept", "of the host\n");
    scratch_.write("precious/etc/hosts", "of the host, too\n");
    precious_ = listTree(scratch_ / "precious");
  }
  /// Makes a finished snapshot one that was interrupted.
  std::string interrupt(const SnapshotOutcome& outcome) const {
    makeWritable(outcome);
    const std::string leftover = repository_->path(outcome.name) + ".inProgress";
    EXPECT_EQ(::rename(repository_->path(outcome.name).c_str(), leftover.c_str()), 0);
    (void)::unlink(repository_->path("Latest").c_str());
    return leftover;
  }
  void expectUntouched() const { EXPECT_EQ(listTree(scratch_ / "precious"), precious_); }
  void expectWhole(const SnapshotOutcome& outcome) const {
    EXPECT_EQ(listTree(volumeOf(outcome)), expected());
    expectUntouched();
  }

  std::vector<std::string> precious_;
};
INSTANTIATE_TEST_SUITE_P(On, Hostile, fileSystems(), fileSystemName);

TEST_P(Hostile, ALeftoverWhoseVolumeIsALinkLeadsNowhere) {
  const std::string leftover = interrupt(take());
  ASSERT_EQ(::rename((leftover + "/System").c_str(), (leftover + "/.moved").c_str()), 0);
  ASSERT_EQ(::symlink((scratch_ / "precious").c_str(), (leftover + "/System").c_str()), 0);
  expectWhole(take());
}

TEST_P(Hostile, ALeftoverWhoseRecordFolderIsALinkLeadsNowhere) {
  const std::string leftover = interrupt(take());
  const std::string records = leftover + "/.snapwheel";
  Scratch elsewhere;
  elsewhere.write("records/manifest.json", Scratch::contents(records + "/manifest.json"));
  elsewhere.write("records/index", "of the host");
  ASSERT_EQ(::rename(records.c_str(), (leftover + "/.moved").c_str()), 0);
  ASSERT_EQ(::symlink((elsewhere / "records").c_str(), records.c_str()), 0);
  const auto before = listTree(elsewhere / "records");
  expectWhole(take());
  EXPECT_EQ(listTree(elsewhere / "records"), before);
}

TEST_P(Hostile, ASnapshotWhoseRecordFolderIsALinkLeadsNowhere) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  const std::string records = repository_->path(first.name) + "/.snapwheel";
  ASSERT_EQ(::rename(records.c_str(), (repository_->path(first.name) + "/.moved").c_str()), 0);
  ASSERT_EQ(::symlink((scratch_ / "precious").c_str(), records.c_str()), 0);
  expectWhole(take());
}

TEST_P(Hostile, RecordsThatAreOtherNamesOfFilesAreNotWrittenInto) {
  const std::string leftover = interrupt(take());
  const std::string outside = destination_ + "/outside";
  std::ofstream(outside) << "kept";
  for (const char* name : {"index", "owners.json", "probe", "damaged"}) {
    const std::string record = leftover + "/.snapwheel/" + name;
    (void)::unlink(record.c_str());
    // On btrfs a subvolume has no names of files of another one.
    if (::link(outside.c_str(), record.c_str()) != 0) {
      ASSERT_EQ(::symlink(outside.c_str(), record.c_str()), 0);
    }
  }
  expectWhole(take());
  EXPECT_EQ(Scratch::contents(outside), "kept");
}

TEST_P(Hostile, WhatALeftoverHandsDownIsNotOfTheSource) {
  const std::string leftover = interrupt(take());
  const std::string list(
      "\2\0\0\0\1\0\7\0\377\377\377\377\2\0\7\0\x17\7\0\0\4\0\5\0\377\377\377\377"
      "\x10\0\7\0\377\377\377\377\x20\0\5\0\377\377\377\377",
      44);
  const std::string folder = leftover + "/System/srv";
  ASSERT_EQ(::lsetxattr(folder.c_str(), "system.posix_acl_default", list.data(), list.size(), 0),
            0);
  ASSERT_EQ(::unlink((folder + "/fifo").c_str()), 0);
  ASSERT_EQ(::unlink((folder + "/null").c_str()), 0);
  expectWhole(take());
}

TEST_P(Hostile, AHostFolderThatIsALinkIsRefused) {
  ASSERT_TRUE(host::createDirectory(destination_ + "/Archives.snapdb"));
  ASSERT_EQ(::symlink((scratch_ / "precious").c_str(), repository_->hostFolder().c_str()), 0);
  EXPECT_THROW(take(), Failure);
  EXPECT_THROW((void)repository_->list(), Failure);
  expectUntouched();
}

TEST_P(Hostile, AFolderThatOthersCanChangeIsRefused) {
  take();
  ASSERT_EQ(::chmod(repository_->hostFolder().c_str(), 0777), 0);
  try {
    take();
    FAIL() << "it was taken";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("can be changed by others than root"));
  }
  ASSERT_EQ(::chmod(repository_->hostFolder().c_str(), 0750), 0);
  ASSERT_EQ(::chown(repository_->hostFolder().c_str(), 1815, 0), 0);
  EXPECT_THROW(take(), Failure);
}

TEST_P(Hostile, AFolderThatCannotBeListedIsNoEmptyOne) {
  ASSERT_TRUE(host::createDirectory(destination_ + "/Archives.snapdb"));
  std::ofstream(repository_->hostFolder()) << "no folder";
  EXPECT_THROW((void)repository_->list(), Failure);
}

TEST_P(Hostile, ANameAtTheEndOfTimeHidesNoLaterSnapshot) {
  const SnapshotOutcome first = take();
  for (const char* name : {"9999-12-31-235959", "1969-12-31-235959"}) {
    ASSERT_TRUE(host::createDirectory(repository_->path(name)));
  }
  const SnapshotOutcome second = take();
  EXPECT_THAT(repository_->list().snapshots, ElementsAre(first.name, second.name));
  EXPECT_THAT(repository_->list().foreign, ElementsAre("1969-12-31-235959", "9999-12-31-235959"));
  ASSERT_TRUE(host::createDirectory(repository_->path("9998-12-31-235959")));
  EXPECT_THROW(take(), Failure) << "no later name is left";
}

TEST_P(Hostile, RecordsThatNeverEndAreNone) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  const std::string path = repository_->path(first.name);
  for (const char* name : {"/.snapwheel/manifest.json", "/.snapwheel/owners.json"}) {
    std::ofstream(path + name) << std::string(1 << 20, '[');
  }
  EXPECT_FALSE(readManifest(path).has_value());
  EXPECT_FALSE(readOwnerNames(path).has_value());
  ASSERT_EQ(::truncate((path + "/.snapwheel/index").c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(SourceIndex::open(path + "/.snapwheel/index"), nullptr);
  expectWhole(take());
}

}  // namespace
}  // namespace halyard::snapwheel

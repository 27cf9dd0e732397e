// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "common/exclusions.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "snapwheel/failure.h"
#include "snapwheel/map_owners.h"
#include "snapwheel/restore_snapshot.h"
#include "snapwheel/take_snapshot.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

/// One snapshot of a small tree in a repository.
class RestoreSnapshot : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "owners need root";
    scratch_.write("source/etc/hosts", "127.0.0.1 localhost\n");
    scratch_.write("source/etc/one", "one");
    ASSERT_EQ(::link((scratch_ / "source/etc/one").c_str(), (scratch_ / "source/other").c_str()),
              0);
    ASSERT_EQ(::symlink("etc/one", (scratch_ / "source/link").c_str()), 0);
    ASSERT_EQ(::chown((scratch_ / "source/etc/hosts").c_str(), 1815, 1816), 0);
    ASSERT_EQ(::chmod((scratch_ / "source/etc/hosts").c_str(), 04755), 0);
    const Repository repository(scratch_.makeFolder("destination"), "files1");
    SnapshotRequest request;
    request.source = scratch_ / "source";
    request.exclusions = Exclusions::parse("");
    request.machineLock = scratch_ / "lock";
    request_.snapshotPath = repository.path(takeSnapshot(repository, request).name);
    request_.target = scratch_ / "target";
  }

  std::string refusal() const {
    try {
      restoreSnapshot(request_);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "not refused";
  }

  Scratch scratch_;
  RestoreRequest request_;
};

TEST_F(RestoreSnapshot, BringsBackEverything) {
  const RestoreOutcome outcome = restoreSnapshot(request_);
  EXPECT_EQ(listTree(scratch_ / "target"), listTree(scratch_ / "source"));
  EXPECT_EQ(outcome.volume, "System");
  EXPECT_EQ(outcome.items, 6U);
  EXPECT_EQ(outcome.failed, 0U);
}

TEST_F(RestoreSnapshot, TakesAVolumeThatHasOnlyItsLostFolder) {
  scratch_.makeFolder("target/lost+found");
  restoreSnapshot(request_);
  EXPECT_EQ(Scratch::contents(scratch_ / "target/etc/one"), "one");
}

TEST_F(RestoreSnapshot, RefusesAFolderThatIsNotEmpty) {
  scratch_.write("target/precious", "kept");
  EXPECT_THAT(refusal(), HasSubstr("is not empty; --force"));
  EXPECT_FALSE(Scratch::stands(scratch_ / "target/etc"));
}

TEST_F(RestoreSnapshot, ReplacesWhatItHoldsAndKeepsTheRestWhenForced) {
  scratch_.write("target/precious", "kept");
  scratch_.write("target/etc/hosts", "damaged");
  scratch_.write("target/link/file", "a folder where a link was");
  request_.force = true;
  restoreSnapshot(request_);
  EXPECT_EQ(Scratch::contents(scratch_ / "target/precious"), "kept");
  EXPECT_EQ(Scratch::contents(scratch_ / "target/etc/hosts"), "127.0.0.1 localhost\n");
  EXPECT_EQ(Scratch::contents(scratch_ / "target/link"), "one");
}

TEST_F(RestoreSnapshot, RefusesTheRunningSystem) {
  request_.target = "/";
  EXPECT_THAT(refusal(), HasSubstr("the root of the running system"));
  request_.target = "/../.";
  EXPECT_THAT(refusal(), HasSubstr("the root of the running system"));
}

TEST_F(RestoreSnapshot, RefusesTheRepositoryEvenWhenForced) {
  request_.target = request_.snapshotPath + "/System/etc/new";
  request_.force = true;
  EXPECT_THAT(refusal(), HasSubstr("lies in the repository"));
}

TEST_F(RestoreSnapshot, RefusesATargetWithoutAFolderAbove) {
  request_.target = scratch_ / "missing/target";
  EXPECT_THAT(refusal(), HasSubstr("No such file or directory"));
}

TEST_F(RestoreSnapshot, RefusesAFile) {
  request_.target = scratch_.write("file");
  EXPECT_THAT(refusal(), HasSubstr("is no folder"));
}

TEST_F(RestoreSnapshot, FollowsOnlyLinksThatNobodyButRootCanHavePlanted) {
  scratch_.makeFolder("real");
  ASSERT_EQ(::chmod((scratch_ / "real").c_str(), 0755), 0);
  const std::string link = scratch_ / "real/link";
  ASSERT_EQ(::symlink(scratch_.makeFolder("elsewhere").c_str(), link.c_str()), 0);
  request_.target = link;
  EXPECT_EQ(refusal(), "not refused");
  EXPECT_EQ(listTree(scratch_ / "elsewhere"), listTree(scratch_ / "source"));
  ASSERT_EQ(::lchown(link.c_str(), 1815, 1816), 0);
  request_.force = true;
  const auto before = listTree(scratch_ / "elsewhere");
  EXPECT_THAT(refusal(), HasSubstr("there is a link that others than root may have made"));
  request_.target = link + "/etc";
  EXPECT_THAT(refusal(), HasSubstr("there is a link that others than root may have made"));
  EXPECT_EQ(listTree(scratch_ / "elsewhere"), before);
}

TEST_F(RestoreSnapshot, RefusesAVolumeThatIsNotThere) {
  request_.volume = "Data";
  EXPECT_THAT(refusal(), HasSubstr("holds no volume \"Data\""));
}

TEST_F(RestoreSnapshot, FindsTheVolumeWithoutTheManifest) {
  ASSERT_TRUE(host::removeItem(request_.snapshotPath + "/.snapwheel"));
  EXPECT_EQ(restoreSnapshot(request_).volume, "System");
}

TEST_F(RestoreSnapshot, MapsNoOwnersWithoutTheirNames) {
  ASSERT_TRUE(host::removeItem(request_.snapshotPath + "/.snapwheel/owners.json"));
  request_.mapOwners = true;
  EXPECT_THAT(refusal(), HasSubstr("has no record of its owners' names"));
}

TEST_F(RestoreSnapshot, GivesOwnersTheNumbersOfThisHost) {
  // The snapshot says that 1815 is "root" and group 1816 is "root", too.
  ASSERT_TRUE(host::writeFile(request_.snapshotPath + "/.snapwheel/owners.json",
                              R"({"users":{"1815":"root"},"groups":{"1816":"root"}})"));
  request_.mapOwners = true;
  restoreSnapshot(request_);
  struct stat status {};
  ASSERT_EQ(::stat((scratch_ / "target/etc/hosts").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 0U);
  EXPECT_EQ(status.st_mode & 07777U, 04755U);
}

TEST_F(RestoreSnapshot, GivesOwnersInListsAndOfLinksAndFoldersTheNumbersOfThisHost) {
  const std::string volume = request_.snapshotPath + "/System";
  ASSERT_EQ(::mkdir((volume + "/etc/folder").c_str(), 0750), 0);
  ASSERT_EQ(::symlink("nowhere", (volume + "/etc/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((volume + "/etc/fifo").c_str(), 0640), 0);
  const auto list = [](char user) {
    return std::string("\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0", 16) + user +
           std::string(
               "\7\0\0\4\0\4\0\377\377\377\377\x10\0\4\0\377\377\377\377\x20\0\0\0\377\377\377"
               "\377",
               27);
  };
  const std::string before = list('\x17');  // For the user 0x0717, which is 1815.
  const std::string fifo = volume + "/etc/fifo";
  ASSERT_EQ(::setxattr(fifo.c_str(), "system.posix_acl_access", before.data(), before.size(), 0),
            0);
  for (const char* name : {"folder", "link", "fifo"}) {
    ASSERT_EQ(::lchown((volume + "/etc/" + name).c_str(), 1815, 1816), 0);
  }
  ASSERT_TRUE(host::writeFile(request_.snapshotPath + "/.snapwheel/owners.json",
                              R"({"users":{"1815":"root"},"groups":{"1816":"root"}})"));
  request_.mapOwners = true;
  restoreSnapshot(request_);
  for (const char* name : {"folder", "link", "fifo"}) {
    struct stat status {};
    ASSERT_EQ(::lstat((scratch_ / "target/etc/" + name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_uid, 0U) << name;
    EXPECT_EQ(status.st_gid, 0U) << name;
  }
  std::string after(100, '\0');
  const ssize_t length = ::getxattr((scratch_ / "target/etc/fifo").c_str(),
                                    "system.posix_acl_access", after.data(), after.size());
  ASSERT_GT(length, 0);
  after.resize(static_cast<std::size_t>(length));
  EXPECT_EQ(after.substr(16, 4), std::string(4, '\0')) << "the user is root now";
}

TEST_F(RestoreSnapshot, TellsAFileThatDoesNotHoldWhatWasPutThere) {
  const std::string file = request_.snapshotPath + "/System/etc/hosts";
  struct stat before {};
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  ASSERT_TRUE(host::writeFile(file, "127.0.0.1 localhosT\n"));
  const timespec times[] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(restoreSnapshot(request_).failed, 1U);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("/target/etc/hosts: does not hold what was put into the snapshot"));
}

TEST_F(RestoreSnapshot, TellsWhatIsMissingInTheSnapshot) {
  ASSERT_TRUE(host::removeItem(request_.snapshotPath + "/System/etc"));
  ASSERT_TRUE(host::removeItem(request_.snapshotPath + "/System/link"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(restoreSnapshot(request_).failed, 2U);
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_THAT(told, HasSubstr("/target/etc: is missing in the snapshot"));
  EXPECT_THAT(told, HasSubstr("/target/link: is missing in the snapshot"));
}

TEST_F(RestoreSnapshot, SaysWhenNothingCanBeProven) {
  ASSERT_TRUE(host::removeItem(request_.snapshotPath + "/.snapwheel/index"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(restoreSnapshot(request_).failed, 0U);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("no digests are known of"));
}

TEST(OwnerMap, HoldsOnlyNamesThatHaveAnotherNumberHere) {
  const OwnerMap map =
      ownerMapFor({{{0, "root"}, {77, "root"}, {78, "no such account"}}, {{79, "root"}}});
  EXPECT_THAT(map.users, ElementsAre(Pair(77U, 0U)));
  EXPECT_THAT(map.groups, ElementsAre(Pair(79U, 0U)));
}

TEST(MapAcl, ChangesTheNamedUsersAndGroupsOnly) {
  const OwnerMap map{{{0x0102, 0x0304}}, {{0x0506, 0x0708}}};
  const std::string owner("\x01\0\7\0\x02\x01\0\0", 8);  // An owner's entry has no id of its own.
  const std::string before = std::string("\2\0\0\0", 4) + owner +
                             std::string("\x02\0\7\0\x02\x01\0\0", 8) +
                             std::string("\x08\0\7\0\x06\x05\0\0", 8);
  const std::string after = std::string("\2\0\0\0", 4) + owner +
                            std::string("\x02\0\7\0\x04\x03\0\0", 8) +
                            std::string("\x08\0\7\0\x08\x07\0\0", 8);
  EXPECT_EQ(mapAcl(before, map), after);
}

TEST(MapAcl, LeavesWhatIsNoListAsItIs) {
  const OwnerMap map{{{0, 1}}, {}};
  for (const std::string& value : {std::string(), std::string("abc"), std::string(11, '\2')}) {
    EXPECT_EQ(mapAcl(value, map), value);
  }
}

}  // namespace
}  // namespace halyard::snapwheel

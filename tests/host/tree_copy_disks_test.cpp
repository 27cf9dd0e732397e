// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "host/tree/tree_copy.h"
#include "host/volumes/mounting.h"
#include "support/items.h"
#include "support/mounts.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::host {
namespace {

using test::accessList;
using test::capability;
using test::listTree;
using test::Scratch;
using test::setAttribute;
using test::setTimes;
using test::statusOf;
using test::TestMount;
using ::testing::ElementsAre;

TEST(CopyItem, AFullDiskLeavesNothing) {
  const Scratch scratch;
  scratch.write("tree/a", std::string(40000, 'x'));
  scratch.write("tree/b", std::string(40000, 'x'));
  scratch.write("large", std::string(500000, 'x'));
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_FALSE(copyItem(scratch / "large", scratch / "disk/copy"));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, NoInodesLeftLeavesNothing) {
  const Scratch scratch;
  for (int i = 0; i < 10; ++i) scratch.write("tree/a/" + std::to_string(i));
  const TestMount disk = TestMount::memory(scratch / "disk", "nr_inodes=8");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, AReadOnlyDiskLeavesNothing) {
  const Scratch scratch;
  scratch.write("file", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  disk.makeReadOnly();
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "disk/copy"));
  EXPECT_FALSE(createDirectory(scratch / "disk/folder"));
  EXPECT_FALSE(writeFile(scratch / "disk/file", "text"));
  EXPECT_FALSE(createOrEmptyFile(scratch / "disk/file", 0770));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, FailsIntoTheSourceThroughAnotherMount) {
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const TestMount again = TestMount::bind(scratch / "again", scratch / "tree/inner");
  if (!again.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "again/copy"));
  EXPECT_THAT(listDirectory(scratch / "again"), ElementsAre("file"));
}

TEST(MoveItem, CopiesAndRemovesAcrossFileSystems) {
  NEEDS_ROOT();
  const Scratch scratch;
  const TestMount disk = TestMount::memory(scratch / "disk", "size=1m");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/a/file", "text");
  ASSERT_EQ(::symlink("nothing", (scratch / "tree/link").c_str()), 0);
  ASSERT_EQ(::chown((scratch / "tree/a/file").c_str(), 1234, 2345), 0);
  setTimes(scratch / "tree/a", 1000000000, 1100000000);
  const auto before = listTree(scratch / "tree");
  ASSERT_TRUE(moveItem(scratch / "tree", scratch / "disk/moved"));
  EXPECT_EQ(listTree(scratch / "disk/moved"), before);
  EXPECT_FALSE(Scratch::stands(scratch / "tree"));
}

TEST(MoveItem, KeepsTheOriginalWhenTheOtherFileSystemIsFull) {
  const Scratch scratch;
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/file", std::string(200000, 'x'));
  scratch.write("disk/there", "old");
  const auto before = listTree(scratch / "tree");
  EXPECT_FALSE(moveItem(scratch / "tree", scratch / "disk/moved"));
  EXPECT_FALSE(moveItem(scratch / "tree", scratch / "disk/there"));
  EXPECT_EQ(listTree(scratch / "tree"), before);
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre("there"));
}

TEST(CopyTree, EndsOnAFullDiskEvenWhenItIsToGoOn) {
  const Scratch scratch;
  scratch.write("tree/a", std::string(500000, 'x'));
  scratch.write("tree/b/c", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  int failures = 0;
  TreeCopyOptions options;
  options.failed = [&](std::string_view, int) {
    ++failures;
    return true;
  };
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "disk/copy", options);
  EXPECT_EQ(report.error, ENOSPC);
  EXPECT_FALSE(report.complete);
  EXPECT_EQ(failures, 0);
  EXPECT_FALSE(Scratch::stands(scratch / "disk/copy/a"));
}

TEST(CopyTree, StaysOnOneFileSystemWhenTold) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const TestMount inner = TestMount::memory(scratch / "tree/mounted", "size=1m");
  const TestMount again = TestMount::bind(scratch / "tree/again", scratch / "tree/mounted");
  if (!inner.isMounted() || !again.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/mounted/inner", "text");
  TreeCopyOptions options;
  options.oneFileSystem = true;
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre("again", "file", "mounted"));
  EXPECT_THAT(listDirectory(scratch / "copy/mounted"), ElementsAre());
  EXPECT_THAT(listDirectory(scratch / "copy/again"), ElementsAre());
  EXPECT_TRUE(copyItem(scratch / "tree", scratch / "whole"));
  EXPECT_THAT(listDirectory(scratch / "whole/mounted"), ElementsAre("inner"));
}

TEST(CopyTree, TellsWhatItsOwnFileSystemHidesUnderAMount) {
  const Scratch scratch;
  scratch.write("tree/etc/file", "text");
  const TestMount hidden = TestMount::bind(scratch / "tree/etc", scratch / "tree/etc");
  if (!hidden.isMounted()) GTEST_SKIP() << "cannot mount here";
  TreeCopyOptions options;
  options.oneFileSystem = true;
  std::vector<std::string> failures;
  options.failed = [&](std::string_view path, int error) {
    failures.push_back(std::string(path) + " " + std::to_string(error));
    return true;
  };
  EXPECT_FALSE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_THAT(failures, ElementsAre("etc " + std::to_string(EXDEV)));
  const auto bare = openWithoutMounts(scratch / "tree");
  ASSERT_TRUE(bare);
  const Location source{Descriptor(::dup(bare->get())), "."};
  EXPECT_TRUE(copyTree(source, scratch / "whole", options).complete);
  EXPECT_THAT(listDirectory(scratch / "whole/etc"), ElementsAre("file"));
}

TEST(CopyTree, CopiesAfreshWhereTheReferenceIsOnAnotherFileSystem) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=1m");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "disk/first").complete);
  TreeCopyOptions options;
  options.reference = scratch / "disk/first";
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "second", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.linked, 0U);
  EXPECT_EQ(report.copied, 1U);
}

/// A tree with something of everything.
void makeRichTree(const Scratch& scratch) {
  const std::string file = scratch.write("tree/a/file", "text");
  scratch.write("tree/a/large", std::string(300000, 'x'));
  ASSERT_EQ(::truncate(scratch.write("tree/a/sparse", "start").c_str(), 2 << 20), 0);
  ASSERT_EQ(::link(file.c_str(), (scratch / "tree/again").c_str()), 0);
  ASSERT_EQ(::symlink("nothing", (scratch / "tree/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0622), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 2345), 0);
  ASSERT_EQ(::chmod(file.c_str(), 04755), 0);
  setAttribute(file, "user.note", "text");
  setAttribute(file, "security.capability", capability());
  setAttribute(scratch / "tree/a", "system.posix_acl_default", accessList(7));
  for (const char* name : {"tree/link", "tree/a", "tree"}) {
    setTimes(scratch / name, 1000000000, 1100000000);
  }
}

class BetweenFileSystems : public ::testing::TestWithParam<const char*> {};

TEST_P(BetweenFileSystems, EverythingIsKeptThereAndBack) {
  NEEDS_ROOT();
  const Scratch scratch;
  makeRichTree(scratch);
  const TestMount disk = TestMount::image(scratch / "disk", GetParam(), 320);
  if (!disk.isMounted()) GTEST_SKIP() << "no " << GetParam() << " here";
  const auto before = listTree(scratch / "tree");
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_EQ(listTree(scratch / "disk/copy"), before);
  EXPECT_LT(statusOf(scratch / "disk/copy/a/sparse").st_blocks, 1024);
  ASSERT_TRUE(copyItem(scratch / "disk/copy", scratch / "disk/second"));
  EXPECT_EQ(listTree(scratch / "disk/second"), before);
  ASSERT_TRUE(moveItem(scratch / "disk/second", scratch / "back"));
  EXPECT_EQ(listTree(scratch / "back"), before);
  EXPECT_LT(statusOf(scratch / "back/a/sparse").st_blocks, 1024);
  EXPECT_TRUE(removeItem(scratch / "disk/copy"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, BetweenFileSystems, ::testing::Values("ext4", "btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace halyard::host

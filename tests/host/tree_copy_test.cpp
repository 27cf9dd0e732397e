// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/tree_copy.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/files/umask.h"
#include "host/tree/move_item.h"
#include "support/items.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::host {
namespace {

using test::accessList;
using test::attribute;
using test::capability;
using test::listTree;
using test::makeSocket;
using test::Scratch;
using test::setAttribute;
using test::setTimes;
using test::statusOf;
using ::testing::ElementsAre;

TEST(CopyItem, CopiesAFileWithModeAndTimes) {
  const Scratch scratch;
  const std::string file = scratch.write("file", "some text");
  ASSERT_EQ(::chmod(file.c_str(), 0604), 0);
  setTimes(file, 1000000000, 1100000000);
  const ScopedUmask mask(077);
  ASSERT_TRUE(copyItem(file, scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy").st_atim.tv_sec, 1000000000);
  EXPECT_EQ(statusOf(scratch / "copy").st_atim.tv_nsec, 123456789);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(file));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("copy", "file"));
}

TEST(CopyItem, LeavesTheUmaskAndTheWorkingFolderAsTheyWere) {
  const Scratch scratch;
  const ScopedUmask mask(026);
  char before[4096];
  char after[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::symlink("target", (scratch / "link").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "link", scratch / "copy"));
  ASSERT_NE(::getcwd(after, sizeof after), nullptr);
  EXPECT_STREQ(before, after);
  EXPECT_EQ(::umask(026), 026U);
}

TEST(CopyItem, CopiesATreeWithTheTimesOfItsFolders) {
  const Scratch scratch;
  for (const char* name : {"tree/a/b/file", "tree/a/other", "tree/top"}) scratch.write(name, name);
  scratch.makeFolder("tree/empty");
  ASSERT_EQ(::chmod((scratch / "tree/a").c_str(), 01711), 0);
  for (const char* name : {"tree/a/b", "tree/a", "tree/empty", "tree"}) {
    setTimes(scratch / name, 1200000000, 1300000000);
  }
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, ClosedFoldersAndFilesAreCopiedAsTheyAre) {
  NEEDS_ROOT();
  const Scratch scratch;
  const std::string file = scratch.write("tree/closed/file", "text");
  ASSERT_EQ(::chmod(file.c_str(), 0), 0);
  ASSERT_EQ(::chmod((scratch / "tree/closed").c_str(), 0555), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, KeepsOwnersAndSetIdBits) {
  NEEDS_ROOT();
  const Scratch scratch;
  for (const char* name : {"tree/program", "tree/second"}) {
    const std::string path = scratch.write(name, "code");
    ASSERT_EQ(::chown(path.c_str(), 1234, 2345), 0);
    ASSERT_EQ(::chmod(path.c_str(), 06755), 0);
  }
  ASSERT_EQ(::chown((scratch / "tree").c_str(), 0, 2345), 0);
  ASSERT_EQ(::chmod((scratch / "tree").c_str(), 02775), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "copy/second").st_mode & 07777, 06755U);
}

TEST(CopyItem, KeepsTheGroupInAFolderThatHandsDownItsOwn) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const std::string shared = scratch.makeFolder("shared");
  ASSERT_EQ(::chown(shared.c_str(), 0, 2345), 0);
  ASSERT_EQ(::chmod(shared.c_str(), 02775), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", shared + "/copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/file", shared + "/file"));
  EXPECT_EQ(listTree(shared + "/copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(shared + "/file"), listTree(scratch / "tree/file"));
}

TEST(CopyItem, KeepsExtendedAttributesOfFilesAndFolders) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  setAttribute(scratch / "tree/file", "user.note", std::string("a\0b", 3));
  setAttribute(scratch / "tree/file", "user.long", std::string(2000, 'x'));
  setAttribute(scratch / "tree", "user.folder", "note");
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(attribute(scratch / "copy/file", "user.note"), std::string("a\0b", 3));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, KeepsAccessControlListsAndCapabilities) {
  NEEDS_ROOT();
  const Scratch scratch;
  const std::string file = scratch.write("tree/file", "text");
  ASSERT_EQ(::chown(file.c_str(), 1234, 1234), 0);
  setAttribute(file, "system.posix_acl_access", accessList(5));
  setAttribute(file, "security.capability", capability());
  setAttribute(scratch / "tree", "system.posix_acl_default", accessList(7));
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(attribute(scratch / "copy/file", "security.capability"), capability());
  EXPECT_EQ(attribute(scratch / "copy/file", "system.posix_acl_access"), accessList(5));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, TakesNoAccessControlListFromTheFolderItStandsIn) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const std::string shared = scratch.makeFolder("shared");
  setAttribute(shared, "system.posix_acl_default", accessList(7));
  ASSERT_TRUE(copyItem(scratch / "tree", shared + "/copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/inner/file", shared + "/file"));
  EXPECT_EQ(listTree(shared + "/copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(shared + "/file"), listTree(scratch / "tree/inner/file"));
}

TEST(CopyItem, CopiesLinksAsLinks) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.makeFolder("tree");
  ASSERT_EQ(::symlink("nothing/here", (scratch / "tree/dangling").c_str()), 0);
  ASSERT_EQ(::symlink("/", (scratch / "tree/up").c_str()), 0);
  ASSERT_EQ(::symlink(std::string(4000, 'x').c_str(), (scratch / "tree/long").c_str()), 0);
  ASSERT_EQ(::lchown((scratch / "tree/dangling").c_str(), 1234, 2345), 0);
  setAttribute(scratch / "tree/dangling", "trusted.note", "of the link");
  setTimes(scratch / "tree/dangling", 1000000000, 1100000000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/dangling", scratch / "single"));
  EXPECT_EQ(attribute(scratch / "copy/dangling", "trusted.note"), "of the link");
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(scratch / "single"), listTree(scratch / "tree/dangling"));
}

TEST(CopyItem, KeepsHardLinksWithinTheItem) {
  const Scratch scratch;
  scratch.write("tree/first", "text");
  scratch.write("outside", "other");
  scratch.makeFolder("tree/a/deep");
  for (const char* name : {"tree/second", "tree/a/third", "tree/a/deep/fourth"}) {
    ASSERT_EQ(::link((scratch / "tree/first").c_str(), (scratch / name).c_str()), 0);
  }
  ASSERT_EQ(::link((scratch / "outside").c_str(), (scratch / "tree/shared").c_str()), 0);
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0600), 0);
  ASSERT_EQ(::link((scratch / "tree/fifo").c_str(), (scratch / "tree/a/fifo").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "copy/first").st_nlink, 4U);
  EXPECT_EQ(statusOf(scratch / "copy/shared").st_nlink, 1U);
}

TEST(CopyItem, KeepsHolesAndTheBytesBetweenThem) {
  const Scratch scratch;
  for (const off_t size : {70000, 64 << 20}) {
    const std::string path = scratch.write("sparse", "start");
    const int file = ::open(path.c_str(), O_WRONLY);
    ASSERT_EQ(::pwrite(file, "middle", 6, size / 2), 6);
    ASSERT_EQ(::ftruncate(file, size), 0);
    ::close(file);
    ASSERT_TRUE(copyItem(path, scratch / "copy"));
    EXPECT_EQ(statusOf(scratch / "copy").st_size, size);
    EXPECT_LE(statusOf(scratch / "copy").st_blocks, statusOf(path).st_blocks);
    EXPECT_EQ(std::system(("cmp '" + path + "' '" + (scratch / "copy") + "'").c_str()), 0);
    ASSERT_TRUE(removeItem(scratch / "copy"));
  }
}

TEST(CopyItem, CopiesAFileThatIsOneHole) {
  const Scratch scratch;
  const std::string path = scratch.write("hole");
  ASSERT_EQ(::truncate(path.c_str(), 10 << 20), 0);
  ASSERT_TRUE(copyItem(path, scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy").st_size, 10 << 20);
  EXPECT_EQ(statusOf(scratch / "copy").st_blocks, 0);
}

TEST(CopyItem, CopiesLargeFilesInFull) {
  const Scratch scratch;
  std::string bytes;
  while (bytes.size() < (3U << 20) + 17) bytes += std::to_string(bytes.size()) + "\n";
  const std::string path = scratch.write("large", bytes);
  ASSERT_TRUE(copyItem(path, scratch / "copy"));
  EXPECT_TRUE(Scratch::contents(scratch / "copy") == bytes);
}

TEST(CopyItem, ReadsFilesOfTheKernelToTheirEnd) {
  if (!exists("/proc/cpuinfo")) GTEST_SKIP() << "no /proc here";
  const Scratch scratch;
  ASSERT_TRUE(copyItem("/proc/version", scratch / "copy"));
  EXPECT_EQ(Scratch::contents(scratch / "copy"), Scratch::contents("/proc/version"));
  if (!exists("/sys/kernel/mm")) return;
  ASSERT_TRUE(copyItem("/sys/kernel/mm/transparent_hugepage/enabled", scratch / "enabled"));
  EXPECT_EQ(Scratch::contents(scratch / "enabled"),
            Scratch::contents("/sys/kernel/mm/transparent_hugepage/enabled"));
}

TEST(CopyItem, CopiesFifosSocketsAndDevicesWithoutOpeningThem) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.makeFolder("tree");
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0640), 0);
  makeSocket(scratch / "tree/socket");
  const std::string device = scratch / "tree/null";
  if (::mknod(device.c_str(), S_IFCHR | 0620, ::makedev(1, 3)) != 0) {
    GTEST_SKIP() << "devices cannot be made here";
  }
  ASSERT_EQ(::mknod((scratch / "tree/disk").c_str(), S_IFBLK | 0600, ::makedev(7, 200)), 0);
  ASSERT_EQ(::chown(device.c_str(), 1234, 5), 0);
  ASSERT_EQ(::chmod((scratch / "tree/fifo").c_str(), 04640), 0);
  setTimes(device, 1000000000, 1100000000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  ASSERT_TRUE(copyItem(device, scratch / "single"));
  EXPECT_EQ(listTree(scratch / "single"), listTree(device));
}

TEST(CopyItem, FailsWhenAnythingStandsAtTheDestination) {
  const Scratch scratch;
  scratch.write("file", "new");
  scratch.write("there", "old");
  scratch.makeFolder("empty");
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "there"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "empty"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "dangling"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "file"));
  EXPECT_EQ(Scratch::contents(scratch / "there"), "old");
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("dangling", "empty", "file", "there"));
}

TEST(CopyItem, FailsWithoutASourceOrAFolderForTheCopy) {
  const Scratch scratch;
  scratch.write("file", "text");
  EXPECT_FALSE(copyItem(scratch / "missing", scratch / "copy"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "missing/copy"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "file/copy"));
  EXPECT_FALSE(copyItem("", scratch / "copy"));
  EXPECT_FALSE(copyItem(scratch / "file", ""));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("file"));
}

TEST(CopyItem, FailsIntoTheSourceItself) {
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const auto before = listTree(scratch / "tree");
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "tree/copy"));
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "tree/inner/copy"));
  EXPECT_FALSE(copyItem(scratch / "tree/", scratch / "tree/inner/../copy"));
  EXPECT_EQ(listTree(scratch / "tree"), before);
}

TEST(CopyItem, FailsForTheRootFolder) {
  const Scratch scratch;
  EXPECT_FALSE(copyItem("/", scratch / "copy"));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre());
}

TEST(StagedCopy, StandsBesideItsDestinationUntilItIsPublished) {
  const Scratch scratch;
  scratch.write("tree/file", "new");
  scratch.write("there", "old");
  auto copy = StagedCopy::stage(scratch / "tree", scratch / "there");
  ASSERT_TRUE(copy.has_value());
  EXPECT_EQ(listTree(copy->path()), listTree(scratch / "tree"));
  EXPECT_FALSE(copy->publish());
  EXPECT_EQ(Scratch::contents(scratch / "there"), "old");

  ASSERT_TRUE(moveItem(scratch / "there", scratch / "aside"));
  EXPECT_TRUE(copy->publish());
  EXPECT_EQ(copy->path(), scratch / "there");
  EXPECT_FALSE(copy->publish());
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("aside", "there", "tree"));
}

TEST(StagedCopy, GoesAwayUnlessPublished) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  {
    auto copy = StagedCopy::stage(scratch / "tree", scratch / "copy");
    ASSERT_TRUE(copy.has_value());
    auto other = StagedCopy::stage(scratch / "tree/file", scratch / "copy");
    ASSERT_TRUE(other.has_value());
    *copy = std::move(*other);
    EXPECT_EQ(Scratch::contents(copy->path()), "text");
  }
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("tree"));
}

TEST(StagedCopy, IsClosedToOthers) {
  const Scratch scratch;
  const std::string file = scratch.write("file", "text");
  const auto copy = StagedCopy::stage(file, scratch / "copy");
  ASSERT_TRUE(copy.has_value());
  const std::string folder = copy->path().substr(0, copy->path().rfind('/'));
  EXPECT_EQ(statusOf(folder).st_mode & 07777, 0700U);
}

}  // namespace
}  // namespace halyard::host

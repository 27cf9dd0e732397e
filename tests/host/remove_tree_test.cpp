// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/remove_tree.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "support/mounts.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;
using test::TestMount;
using ::testing::ElementsAre;

TEST(RemoveTree, RemovesEveryKindOfItem) {
  const Scratch scratch;
  scratch.write("tree/a/b/file", "text");
  scratch.makeFolder("tree/empty");
  ASSERT_EQ(::symlink("nothing", (scratch / "tree/dangling").c_str()), 0);
  ASSERT_EQ(::mkfifo((scratch / "tree/a/fifo").c_str(), 0600), 0);
  EXPECT_TRUE(removeTree(scratch / "tree"));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre());
}

TEST(RemoveTree, RemovesASingleItem) {
  const Scratch scratch;
  scratch.write("file");
  EXPECT_TRUE(removeTree(scratch / "file"));
  EXPECT_FALSE(Scratch::stands(scratch / "file"));
}

TEST(RemoveTree, FollowsNoLink) {
  const Scratch scratch;
  scratch.write("victim/file", "kept");
  scratch.makeFolder("tree");
  ASSERT_EQ(::symlink("../victim", (scratch / "tree/link").c_str()), 0);
  ASSERT_EQ(::symlink("victim", (scratch / "link").c_str()), 0);
  EXPECT_TRUE(removeTree(scratch / "tree"));
  EXPECT_TRUE(removeTree(scratch / "link/"));
  EXPECT_EQ(Scratch::contents(scratch / "victim/file"), "kept");
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("victim"));
}

TEST(RemoveTree, TellsWhenNothingIsThere) {
  const Scratch scratch;
  EXPECT_EQ(removeTree(scratch / "missing").error().code, ENOENT);
  EXPECT_EQ(removeTree(scratch / "missing/item").error().code, ENOENT);
  EXPECT_EQ(removeTree("").error().code, ENOENT);
}

TEST(RemoveTree, RefusesTheRootFolderAndTheTwoDots) {
  const Scratch scratch;
  scratch.write("tree/file", "kept");
  EXPECT_EQ(removeTree("/").error().code, EINVAL);
  EXPECT_EQ(removeTree("//").error().code, EINVAL);
  EXPECT_EQ(removeTree(scratch / "tree/.").error().code, EINVAL);
  EXPECT_EQ(removeTree(scratch / "tree/..").error().code, EINVAL);
  EXPECT_EQ(Scratch::contents(scratch / "tree/file"), "kept");
}

TEST(RemoveTree, RemovesReadOnlyFolders) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const Scratch scratch;
  scratch.write("tree/a/file");
  ASSERT_EQ(::chmod((scratch / "tree/a").c_str(), 0), 0);
  ASSERT_EQ(::chmod((scratch / "tree").c_str(), 0555), 0);
  EXPECT_TRUE(removeTree(scratch / "tree"));
}

TEST(RemoveTree, EntersNoOtherMountAndRemovesTheRest) {
  const Scratch scratch;
  scratch.write("tree/a/file");
  const TestMount inner = TestMount::memory(scratch / "tree/mounted", "size=1m");
  if (!inner.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/mounted/file", "kept");
  EXPECT_EQ(removeTree(scratch / "tree").error().code, EBUSY);
  EXPECT_EQ(Scratch::contents(scratch / "tree/mounted/file"), "kept");
  EXPECT_THAT(listDirectory(scratch / "tree"), ElementsAre("mounted"));
  EXPECT_EQ(removeTree(scratch / "tree/mounted").error().code, EBUSY);
  EXPECT_EQ(Scratch::contents(scratch / "tree/mounted/file"), "kept");
}

TEST(RemoveTree, EntersNoBindMountOfTheSameFileSystem) {
  const Scratch scratch;
  scratch.write("original/file", "kept");
  const TestMount inner = TestMount::bind(scratch / "tree/again", scratch / "original");
  if (!inner.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_EQ(removeTree(scratch / "tree").error().code, EBUSY);
  EXPECT_EQ(Scratch::contents(scratch / "original/file"), "kept");
}

TEST(RemoveTree, FailsOnAReadOnlyFileSystem) {
  const Scratch scratch;
  const TestMount disk = TestMount::memory(scratch / "disk", "size=1m");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("disk/tree/file", "kept");
  disk.makeReadOnly();
  EXPECT_EQ(removeTree(scratch / "disk/tree").error().code, EROFS);
  EXPECT_FALSE(removeItem(scratch / "disk/tree"));
  EXPECT_EQ(Scratch::contents(scratch / "disk/tree/file"), "kept");
}

TEST(RemoveTree, GoesOnPastWhatCannotBeRemoved) {
  const Scratch scratch;
  const std::string fixed = scratch.write("tree/a/fixed", "kept");
  scratch.write("tree/a/file");
  scratch.write("tree/b/file");
  const int file = ::open(fixed.c_str(), O_RDONLY | O_CLOEXEC);
  int flags = FS_IMMUTABLE_FL;
  const bool isFixed = ::ioctl(file, FS_IOC_SETFLAGS, &flags) == 0;
  const int outcome = isFixed ? removeTree(scratch / "tree").error().code : 0;
  flags = 0;
  if (isFixed) ::ioctl(file, FS_IOC_SETFLAGS, &flags);
  ::close(file);
  if (!isFixed) GTEST_SKIP() << "files cannot be made immutable here";
  EXPECT_EQ(outcome, EPERM);
  EXPECT_THAT(listDirectory(scratch / "tree"), ElementsAre("a"));
  EXPECT_THAT(listDirectory(scratch / "tree/a"), ElementsAre("fixed"));
}

TEST(RemoveTree, RemovesAWideFolder) {
  const Scratch scratch;
  scratch.makeFolder("tree");
  for (int i = 0; i < 12000; ++i) {
    const std::string name = (scratch / "tree/") + std::string(40, 'n') + std::to_string(i);
    if (i % 4 == 0) {
      ASSERT_EQ(::mkdir(name.c_str(), 0755), 0);
    } else {
      ASSERT_EQ(::mknod(name.c_str(), S_IFREG | 0644, 0), 0);
    }
  }
  EXPECT_TRUE(removeTree(scratch / "tree"));
  EXPECT_FALSE(Scratch::stands(scratch / "tree"));
}

TEST(RemoveTree, RemovesATreeThatOthersKeepFilling) {
  const Scratch scratch;
  for (int i = 0; i < 200; ++i) scratch.write("tree/a/b/" + std::to_string(i));
  std::atomic<bool> stop = false;
  const std::string folder = scratch / "tree/a/b";
  std::thread filler([&] {
    // For a while only: somebody who never stops cannot be outrun.
    for (int i = 0; i < 300 && !stop; ++i) {
      ::mknod((folder + "/new" + std::to_string(i)).c_str(), S_IFREG | 0644, 0);
    }
  });
  const int outcome = removeTree(scratch / "tree").error().code;
  stop = true;
  filler.join();
  // Either all is gone, or what was added last is in the way; never anything else.
  EXPECT_TRUE(outcome == 0 || outcome == ENOTEMPTY) << outcome;
  EXPECT_EQ(Scratch::stands(scratch / "tree"), outcome != 0);
}

TEST(RemoveItem, IsTrueWhenNothingIsLeft) {
  const Scratch scratch;
  scratch.write("tree/file");
  EXPECT_TRUE(removeItem(scratch / "tree"));
  EXPECT_TRUE(removeItem(scratch / "tree"));
  EXPECT_FALSE(removeItem(""));
  EXPECT_FALSE(removeItem("/"));
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/tree_size.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/tree/remove_tree.h"
#include "support/deep_tree.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using test::Scratch;

TEST(TreeBytes, AddsUpTheFilesAtEveryDepth) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.write("tree/deep/er/two", "123");
  EXPECT_EQ(treeBytes(scratch / "tree"), 8U);
  EXPECT_EQ(treeBytes(scratch / "tree/one"), 5U);
}

TEST(TreeBytes, CountsAFileWithTwoNamesOnce) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.makeFolder("tree/deep");
  ASSERT_EQ(::link((scratch / "tree/one").c_str(), (scratch / "tree/deep/other").c_str()), 0);
  EXPECT_EQ(treeBytes(scratch / "tree"), 5U);
  EXPECT_EQ(treeBytes(scratch / "tree"), 5U);
}

TEST(TreeBytes, FollowsNoLink) {
  const Scratch scratch;
  scratch.write("outside", "12345");
  scratch.makeFolder("tree");
  ASSERT_EQ(::symlink((scratch / "outside").c_str(), (scratch / "tree/link").c_str()), 0);
  EXPECT_EQ(treeBytes(scratch / "tree"), 0U);
  EXPECT_EQ(treeBytes(scratch / "none"), 0U);
}

TEST(TreeCount, ReachesWhatNoPathDoes) {
  const Scratch scratch;
  const test::DeepTree tree(scratch, 3000);
  const TreeCount count = treeCount(scratch / "tree");
  EXPECT_EQ(count.items, 3003U);
  EXPECT_EQ(count.bytes, 4U);
  EXPECT_TRUE(host::removeTree(scratch / "tree"));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "host/tree/tree_copy.h"
#include "support/deep_tree.h"
#include "support/items.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::DeepTree;
using test::Scratch;
using test::statusOf;

TEST(CopyItem, CopiesAFolderWithManyEntries) {
  const Scratch scratch;
  scratch.makeFolder("tree");
  for (int i = 0; i < 12000; ++i) {
    const std::string path = (scratch / "tree/") + std::string(40, 'n') + std::to_string(i);
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(file, 0);
    ::close(file);
  }
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listDirectory(scratch / "copy"), listDirectory(scratch / "tree"));
}

TEST(CopyItem, CopiesFiveThousandLevels) {
  const Scratch scratch;
  const DeepTree tree(scratch, 5000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(DeepTree::depth(scratch / "copy"), 5000);
  EXPECT_TRUE(removeItem(scratch / "copy"));
  EXPECT_FALSE(Scratch::stands(scratch / "copy"));
}

TEST(CopyItem, FindsHardLinksFarAbove) {
  const Scratch scratch;
  const DeepTree tree(scratch, 300);
  std::string folder = scratch / "tree";
  for (int level = 0; level < 100; ++level) folder += "/" + DeepTree::name();
  scratch.write("tree/top", "text");
  ASSERT_EQ(::link((scratch / "tree/top").c_str(), (folder + "/again").c_str()), 0);
  ASSERT_EQ(
      ::link((scratch / "tree/top").c_str(), (folder + "/" + DeepTree::name() + "/x").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy/top").st_nlink, 3U);
}

}  // namespace
}  // namespace halyard::host

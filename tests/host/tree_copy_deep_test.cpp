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
#include "support/items.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

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

class DeepTree {
 public:
  /// Folders of long names, so that the path is far longer than any call takes.
  DeepTree(const Scratch& scratch, int levels) {
    int folder = ::open(scratch.makeFolder("tree").c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < levels; ++level) {
      EXPECT_EQ(::mkdirat(folder, name().c_str(), 0750), 0);
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    const int file = ::openat(folder, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
    EXPECT_EQ(::write(file, "deep", 4), 4);
    EXPECT_EQ(::linkat(folder, "bottom", folder, "again", 0), 0);
    ::close(file);
    ::close(folder);
  }

  static std::string name() { return std::string(30, 'd'); }

  /// How many levels there are before "bottom"; -1 when it is not found.
  static int depth(const std::string& root) {
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; folder >= 0; ++level) {
      struct stat status = {};
      if (::fstatat(folder, "bottom", &status, 0) == 0) {
        ::close(folder);
        return status.st_size == 4 && status.st_nlink == 2 ? level : -1;
      }
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    return -1;
  }
};

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

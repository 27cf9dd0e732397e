// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A file and a folder that take each other's place in a live folder: nothing that stands there goes
// before what replaces it is whole.
#include "host/tree/replace_item.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/files/system_call.h"
#include "host/tree/tree_copy.h"
#include "support/forked.h"
#include "support/items.h"
#include "support/mounts.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::host {
namespace {

using test::listTree;
using test::Scratch;
using test::statusOf;
using testing::ElementsAre;

/// A folder in the source where the target has a file.
class ReplacedKind : public testing::Test {
 protected:
  void SetUp() override {
    scratch_.write("source/x/in/one", "1");
    scratch_.write("source/x/in/two", "2");
    scratch_.write("target/x", "live");
    options_.intoExisting = true;
  }
  TreeCopyReport copy() { return copyTree(scratch_ / "source", scratch_ / "target", options_); }

  Scratch scratch_;
  TreeCopyOptions options_;
};

TEST_F(ReplacedKind, AFileStandsUntilTheFolderInItsPlaceIsWhole) {
  std::string seen;
  options_.excluded = [&](std::string_view path) {
    if (path == "x/in/two") seen = Scratch::contents(scratch_ / "target/x");
    return false;
  };
  EXPECT_TRUE(copy().complete);
  EXPECT_EQ(seen, "live");
  EXPECT_EQ(listTree(scratch_ / "target"), listTree(scratch_ / "source"));
}

TEST_F(ReplacedKind, AFileStaysWhenTheCopyEndsBefore) {
  options_.excluded = [&](std::string_view path) {
    if (path.ends_with("two")) {
      EXPECT_EQ(::unlink((scratch_ / "source/x/in/two").c_str()), 0);
    }
    return false;
  };
  options_.failed = [](std::string_view, int) { return false; };
  EXPECT_TRUE(copy().ended);
  EXPECT_EQ(Scratch::contents(scratch_ / "target/x"), "live");
  EXPECT_THAT(listDirectory(scratch_ / "target"), ElementsAre("x"));
}

TEST_F(ReplacedKind, NamesOfOneFileStayTogether) {
  scratch_.makeFolder("source/x/other");
  scratch_.makeFolder("source/y");
  scratch_.write("target/y/live");
  const std::string one = scratch_ / "source/x/in/one";
  ASSERT_EQ(::link(one.c_str(), (scratch_ / "source/x/other/one").c_str()), 0);
  ASSERT_EQ(::link(one.c_str(), (scratch_ / "source/y/one").c_str()), 0);
  EXPECT_TRUE(copy().complete);
  EXPECT_EQ(statusOf(scratch_ / "target/x/in/one").st_nlink, 3U);
  EXPECT_EQ(statusOf(scratch_ / "target/y/one").st_ino,
            statusOf(scratch_ / "target/x/other/one").st_ino);
}

TEST_F(ReplacedKind, AFolderGivesItsPlaceToAFile) {
  scratch_.write("source/folder", "a file");
  scratch_.write("target/folder/live/deep", "x");
  EXPECT_TRUE(copy().complete);
  EXPECT_EQ(listTree(scratch_ / "target"), listTree(scratch_ / "source"));
}

TEST_F(ReplacedKind, AFolderWithAMountInItStaysWhole) {
  scratch_.write("source/folder", "a file");
  scratch_.write("target/folder/live", "x");
  scratch_.makeFolder("target/folder/mounted");
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts()) return 8;
              const std::string place = scratch_ / "target/folder/mounted";
              if (::mount("none", place.c_str(), "ramfs", 0, nullptr) != 0) return 9;
              int told = 0;
              options_.failed = [&](std::string_view path, int error) {
                if (path == "folder") told = error;
                return true;
              };
              (void)copy();
              if (told != EBUSY) return 1;
              return Scratch::contents(scratch_ / "target/folder/live") == "x" ? 0 : 2;
            }),
            0);
  EXPECT_THAT(listDirectory(scratch_ / "target"), ElementsAre("folder", "x"));
}

TEST_F(ReplacedKind, ItemsOfOneFolderChangePlaces) {
  const Descriptor folder(::open((scratch_ / "target").c_str(), kFolderFlags));
  scratch_.write("target/temporary/new", "n");
  EXPECT_EQ(changePlaces(folder.get(), "temporary", "x", Locks::respected), 0);
  EXPECT_THAT(listDirectory(scratch_ / "target"), ElementsAre("x"));
  EXPECT_EQ(Scratch::contents(scratch_ / "target/x/new"), "n");
}

}  // namespace
}  // namespace halyard::host

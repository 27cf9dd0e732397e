// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// When a file passes for the same as one of the reference: each difference alone has it copied.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/tree/tree_copy.h"
#include "support/items.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;
using test::statusOf;

class SameFile : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* tree : {"source", "reference"}) {
      scratch_.write(std::string(tree) + "/file", "content");
      setTime(tree, 200, 7);
    }
  }

  std::string file(const std::string& tree) const { return scratch_ / (tree + "/file"); }

  void setTime(const std::string& tree, time_t seconds, long nanoseconds) const {
    const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file(tree).c_str(), times, 0), 0);
  }

  // Whether the copy is a link to the reference.
  bool isShared() const {
    TreeCopyOptions options;
    options.reference = scratch_ / "reference";
    EXPECT_TRUE(copyTree(scratch_ / "source", scratch_ / "copy", options).complete);
    return statusOf(file("copy")).st_ino == statusOf(file("reference")).st_ino;
  }

  Scratch scratch_;
};

TEST_F(SameFile, IsSharedWhenAllIsTheSame) { EXPECT_TRUE(isShared()); }

TEST_F(SameFile, IsAnotherByItsSizeAlone) {
  scratch_.write("source/file", "content that grew");
  setTime("source", 200, 7);
  EXPECT_FALSE(isShared());
  EXPECT_EQ(Scratch::contents(file("copy")), "content that grew");
}

TEST_F(SameFile, IsAnotherByANanosecondAlone) {
  setTime("source", 200, 8);
  EXPECT_FALSE(isShared());
}

TEST_F(SameFile, IsAnotherByASecondAlone) {
  setTime("source", 201, 7);
  EXPECT_FALSE(isShared());
}

TEST_F(SameFile, IsAnotherByItsModeAlone) {
  ASSERT_EQ(::chmod(file("source").c_str(), 0600), 0);
  EXPECT_FALSE(isShared());
}

TEST_F(SameFile, IsAnotherByItsOwnerAlone) {
  if (::chown(file("source").c_str(), 12, 0) != 0) GTEST_SKIP() << "changing an owner needs root";
  EXPECT_FALSE(isShared());
}

}  // namespace
}  // namespace halyard::host

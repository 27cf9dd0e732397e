// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether something stands at a path, and whether that is known.
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/files/files.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

TEST(Exists, FollowsLinks) {
  const Scratch scratch;
  scratch.write("file");
  ASSERT_EQ(::symlink("file", (scratch / "link").c_str()), 0);
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  EXPECT_TRUE(exists(scratch / "file"));
  EXPECT_TRUE(exists(scratch / "link"));
  EXPECT_FALSE(exists(scratch / "dangling"));
  EXPECT_FALSE(exists(scratch / "missing"));
}

TEST(IsAbsent, WhatCannotBeLookedAtIsNot) {
  const Scratch scratch;
  scratch.write("file");
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  ASSERT_EQ(::symlink("around", (scratch / "around").c_str()), 0);
  EXPECT_FALSE(isAbsent(scratch / "file"));
  EXPECT_TRUE(isAbsent(scratch / "nothing"));
  EXPECT_TRUE(isAbsent(scratch / "file/below"));
  EXPECT_TRUE(isAbsent(scratch / "dangling"));
  EXPECT_FALSE(isAbsent(scratch / "around"));
  EXPECT_FALSE(exists(scratch / "around"));
}

TEST(Exists, AnEmptyPathIsNothing) {
  EXPECT_FALSE(exists(""));
  EXPECT_FALSE(isDirectory(""));
  EXPECT_FALSE(isExecutableFile(""));
  EXPECT_FALSE(readAttributes("").has_value());
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/metadata_folder.h"

#include <gmock/gmock.h>

#include "frontend/run/run_state.h"
#include "support/scoped_run_state.h"
#include "support/scratch.h"

namespace halyard {
namespace {

using test::Scratch;

class PrepPaths : public testing::Test {
 protected:
  PrepPaths() : copy_(scratch_.makeFolder("copy")) {}

  // The folders above the scratch folder in the copy, so that what is tested starts below them.
  std::string prepare(const std::string& name) { return prepPaths(scratch_ / name, copy_); }

  test::ScopedRunState state_;
  Scratch scratch_;
  std::string copy_;
};

TEST_F(PrepPaths, AFolderIsMirroredAndThenClearedItself) {
  scratch_.makeFolder("a/b");
  EXPECT_EQ(prepare("a/b"), copy_ + (scratch_ / "a/b/"));
  EXPECT_TRUE(Scratch::stands(copy_ + (scratch_ / "a")));
  EXPECT_FALSE(Scratch::stands(copy_ + (scratch_ / "a/b")));
}

TEST_F(PrepPaths, WhatAnEarlierCopyLeftIsCleared) {
  scratch_.makeFolder("a");
  scratch_.write("copy/" + (scratch_ / "a/old/file").substr(1));
  scratch_.write("copy/" + (scratch_ / "beside").substr(1));
  prepare("a");
  EXPECT_FALSE(Scratch::stands(copy_ + (scratch_ / "a")));
  EXPECT_TRUE(Scratch::stands(copy_ + (scratch_ / "beside")));
}

TEST_F(PrepPaths, OfAFileOnlyTheParentsAreMirrored) {
  scratch_.write("a/file", "x");
  EXPECT_EQ(prepare("a/file"), copy_ + (scratch_ / "a/file/"));
  EXPECT_TRUE(Scratch::stands(copy_ + (scratch_ / "a")));
  EXPECT_FALSE(Scratch::stands(copy_ + (scratch_ / "a/file")));
  EXPECT_EQ(Scratch::contents(scratch_ / "a/file"), "x");
}

TEST_F(PrepPaths, OneTrailingSlashOfTheDestinationIsDropped) {
  scratch_.makeFolder("a");
  EXPECT_EQ(prepPaths(scratch_ / "a", copy_ + "/"), copy_ + (scratch_ / "a/"));
  EXPECT_EQ(prepPaths(scratch_ / "a", copy_ + "//"), copy_ + "/" + (scratch_ / "a/"));
}

TEST_F(PrepPaths, MissingLevelsAreNotMirrored) {
  EXPECT_EQ(prepare("gone/deeper"), copy_ + (scratch_ / "gone/deeper/"));
  EXPECT_FALSE(Scratch::stands(copy_ + (scratch_ / "gone")));
}

TEST_F(PrepPaths, WithoutComponentsTheDestinationItselfIsCleared) {
  scratch_.write("copy/file");
  EXPECT_EQ(prepPaths("/", copy_), copy_ + "/");
  EXPECT_FALSE(Scratch::stands(copy_ + "/file"));
}

TEST_F(PrepPaths, DebugShowsEachStep) {
  scratch_.makeFolder("a");
  prepare("a");  // The folders above are there now.
  runState().debug = true;
  testing::internal::CaptureStdout();
  prepare("a");
  const std::string output = testing::internal::GetCapturedStdout();
  const std::string folder = copy_ + (scratch_ / "a");
  EXPECT_THAT(output, testing::StartsWith("src := " + (scratch_ / "a") + "\ndest := " + copy_ +
                                          "\ncreating folder := " + copy_ + "/"));
  EXPECT_THAT(output, testing::EndsWith("creating folder := " + folder +
                                        "\ndeleting folder := " + folder + "/\n"));
}

}  // namespace
}  // namespace halyard

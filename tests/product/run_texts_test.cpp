// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/run_texts.h"

#include <gtest/gtest.h>

#include "product/paths.h"

namespace halyard {
namespace {

TEST(RunTexts, FixedPartsLieBeforeBetweenAndAfterTheValues) {
  EXPECT_EQ(texts::fixedPart("copy %s to %s; %d\n", 0), "copy ");
  EXPECT_EQ(texts::fixedPart("copy %s to %s; %d\n", 1), " to ");
  EXPECT_EQ(texts::fixedPart("copy %s to %s; %d\n", 3), "\n");
  EXPECT_EQ(texts::fixedPart("Done.", 0), "Done.");
  EXPECT_EQ(texts::fixedPart("name %s", 1), "");
}

TEST(RunTexts, EveryWarningOfBrowseBeginsLikeOne) {
  for (const std::string_view warning :
       {texts::kNoBrowseFolder, texts::kNoBrowseData, texts::kNoListingData}) {
    EXPECT_TRUE(warning.starts_with(texts::kWarning)) << warning;
  }
}

TEST(Paths, TheNameInAPathIsItsLastComponent) {
  EXPECT_STREQ(paths::nameIn("/a/b.plist"), "b.plist");
  EXPECT_STREQ(paths::nameIn("plain"), "plain");
  EXPECT_STREQ(paths::kPreferenceFileName, "com.vantor.Halyard.plist");
  EXPECT_STREQ(paths::kMetadataFolderName, ".Halyards");
  EXPECT_STREQ(paths::kMasterBrowseName, "master.browse.plist");
  EXPECT_STREQ(paths::kSourceDiskInfoName, "ServerSourceDiskInfo.plist");
}

}  // namespace
}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/snapshot_metadata.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/scratch.h"

namespace halyard {
namespace {

using test::Scratch;

std::string found(const std::string& folder) { return findSnapshotMetadataFolder(folder); }

TEST(FindSnapshotMetadataFolder, IsOneLevelDown) {
  const Scratch scratch;
  scratch.makeFolder("HD/.Halyards");
  EXPECT_EQ(found(scratch.path()), scratch / "HD/.Halyards");
}

TEST(FindSnapshotMetadataFolder, TheLastEntryInByteOrderWins) {
  const Scratch scratch;
  for (const char* volume : {"Zulu", "alpha", "\xc3\xa4", ".hidden"}) {
    scratch.makeFolder(std::string(volume) + "/.Halyards");
  }
  EXPECT_EQ(found(scratch.path()), scratch / "\xc3\xa4/.Halyards");
}

TEST(FindSnapshotMetadataFolder, EntriesWithoutOneAreSkipped) {
  const Scratch scratch;
  scratch.makeFolder("A/.Halyards");
  scratch.makeFolder("B");
  scratch.write("C/.Halyards", "a file");
  scratch.write("D", "a file");
  EXPECT_EQ(found(scratch.path()), scratch / "A/.Halyards");
}

TEST(FindSnapshotMetadataFolder, NeitherHigherNorDeeperCounts) {
  const Scratch scratch;
  scratch.makeFolder(".Halyards");
  scratch.makeFolder("HD/deeper/.Halyards");
  EXPECT_EQ(found(scratch.path()), "");
}

TEST(FindSnapshotMetadataFolder, EachEntryIsShownBeforeItIsLookedAt) {
  const Scratch scratch;
  scratch.makeFolder("B/.Halyards");
  scratch.write("A", "a file");
  std::vector<std::string> seen;
  findSnapshotMetadataFolder(scratch.path(),
                             [&](const std::string& entry) { seen.push_back(entry); });
  EXPECT_EQ(seen, (std::vector<std::string>{"A", "B"}));
}

TEST(FindSnapshotMetadataFolder, LinksToFoldersAreFollowed) {
  const Scratch scratch;
  scratch.makeFolder("real/.Halyards");
  scratch.makeFolder("snapshot/HD");
  std::filesystem::create_symlink("../../real/.Halyards", scratch / "snapshot/HD/.Halyards");
  EXPECT_EQ(found(scratch / "snapshot"), scratch / "snapshot/HD/.Halyards");
}

TEST(FindSnapshotMetadataFolder, ThePathIsJoinedAsItStands) {
  const Scratch scratch;
  scratch.makeFolder("HD/.Halyards");
  EXPECT_EQ(found(scratch.path() + "/"), scratch.path() + "//HD/.Halyards");
}

TEST(FindSnapshotMetadataFolder, AMissingFolderAFileAndAnEmptyPathHaveNone) {
  const Scratch scratch;
  scratch.write("file");
  EXPECT_EQ(found(scratch / "missing"), "");
  EXPECT_EQ(found(scratch / "file"), "");
  std::filesystem::create_directories(scratch / "HD/.Halyards");
  const std::filesystem::path working = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());
  EXPECT_EQ(found(""), "");
  std::filesystem::current_path(working);
}

}  // namespace
}  // namespace halyard

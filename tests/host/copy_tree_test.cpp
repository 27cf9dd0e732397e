// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "host/tree/tree_copy.h"
#include "support/items.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::host {
namespace {

using test::accessList;
using test::listTree;
using test::Scratch;
using test::setAttribute;
using test::setTimes;
using test::statusOf;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

TEST(CopyTree, ReportsWhatItCopied) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.write("tree/a/two", "123");
  ASSERT_EQ(::symlink("one", (scratch / "tree/link").c_str()), 0);
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "copy");
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.error, 0);
  EXPECT_EQ(report.items, 5U);
  EXPECT_EQ(report.copied, 2U);
  EXPECT_EQ(report.copiedBytes, 8U);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyTree, FailsWhenTheDestinationExists) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.makeFolder("copy");
  EXPECT_EQ(copyTree(scratch / "tree", scratch / "copy").error, EEXIST);
  EXPECT_EQ(copyTree(scratch / "missing", scratch / "new").error, ENOENT);
  EXPECT_EQ(copyTree("", scratch / "new").error, ENOENT);
  EXPECT_EQ(copyTree(scratch / "tree", scratch / "no/new").error, ENOENT);
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre());
}

TEST(CopyTree, HasEndedBeforeItBeganWhenOneSideCannotBeReached) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "no/new").ended);
  EXPECT_TRUE(copyTree(scratch / "no/tree", scratch / "new").ended);
}

TEST(CopyTree, LinksUnchangedFilesToTheReference) {
  const Scratch scratch;
  for (const char* name : {"same", "size", "time", "mode", "note", "a/same"}) {
    scratch.write(std::string("tree/") + name, "text");
  }
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "first").complete);
  scratch.write("tree/size", "longer");
  setTimes(scratch / "tree/time", 1000000000, 1100000000);
  ASSERT_EQ(::chmod((scratch / "tree/mode").c_str(), 0600), 0);
  setAttribute(scratch / "tree/note", "user.note", "new");
  scratch.write("tree/b/new", "text");

  TreeCopyOptions options;
  options.reference = scratch / "first";
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "second", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.linked, 2U);
  EXPECT_EQ(report.linkedBytes, 8U);
  EXPECT_EQ(report.copied, 5U);
  EXPECT_EQ(listTree(scratch / "second"), listTree(scratch / "tree"));
  const auto inodeIn = [&](const char* tree, const char* name) {
    return statusOf(scratch / tree + "/" + name).st_ino;
  };
  EXPECT_EQ(inodeIn("second", "same"), inodeIn("first", "same"));
  EXPECT_EQ(inodeIn("second", "a/same"), inodeIn("first", "a/same"));
  for (const char* name : {"size", "time", "mode", "note"}) {
    EXPECT_NE(inodeIn("second", name), inodeIn("first", name)) << name;
  }
}

TEST(CopyTree, CopiesAfreshWhatTheReferenceHasAsAnotherKind) {
  const Scratch scratch;
  scratch.write("tree/folder/file", "text");
  scratch.write("tree/item", "text");
  scratch.write("reference/folder", "no folder here");
  ASSERT_EQ(::mkfifo((scratch / "reference/item").c_str(), 0644), 0);
  TreeCopyOptions options;
  options.reference = scratch / "reference";
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  options.reference = scratch / "missing";
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "other", options).complete);
  EXPECT_EQ(listTree(scratch / "other"), listTree(scratch / "tree"));
}

TEST(CopyTree, KeepsHardLinksOfFilesThatItLinksToTheReference) {
  const Scratch scratch;
  scratch.write("tree/one", "text");
  ASSERT_EQ(::link((scratch / "tree/one").c_str(), (scratch / "tree/two").c_str()), 0);
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "first").complete);
  TreeCopyOptions options;
  options.reference = scratch / "first";
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "second", options).complete);
  EXPECT_EQ(listTree(scratch / "second"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "second/one").st_nlink, 4U);
}

TEST(CopyTree, KeepsItemsApartThatWereOneInTheReference) {
  const Scratch scratch;
  for (const char* name : {"tree/one", "tree/two"}) {
    setTimes(scratch.write(name, "text"), 1000000000, 1100000000);
  }
  setTimes(scratch.write("first/one", "text"), 1000000000, 1100000000);
  ASSERT_EQ(::link((scratch / "first/one").c_str(), (scratch / "first/two").c_str()), 0);
  TreeCopyOptions options;
  options.reference = scratch / "first";
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "second", options);
  EXPECT_EQ(report.linked, 1U);
  EXPECT_EQ(report.copied, 1U);
  EXPECT_EQ(listTree(scratch / "second"), listTree(scratch / "tree"));
}

TEST(CopyTree, LeavesOutWhatIsExcluded) {
  const Scratch scratch;
  for (const char* name : {"tree/a/skip/x", "tree/a/keep", "tree/skip", "tree/b"}) {
    scratch.write(name, "text");
  }
  std::vector<std::string> asked;
  TreeCopyOptions options;
  options.excluded = [&](std::string_view path) {
    asked.emplace_back(path);
    return path == "a/skip" || path == "b";
  };
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_THAT(asked, UnorderedElementsAre("a", "b", "skip", "a/keep", "a/skip"));
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre("a", "skip"));
  EXPECT_THAT(listDirectory(scratch / "copy/a"), ElementsAre("keep"));
}

TEST(CopyTree, LeavesOutItsOwnDestination) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  scratch.makeFolder("tree/a/snapshots");
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "tree/a/snapshots/new");
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(Scratch::contents(scratch / "tree/a/snapshots/new/file"), "text");
  EXPECT_THAT(listDirectory(scratch / "tree/a/snapshots/new/a/snapshots"), ElementsAre());
}

TEST(CopyTree, MergesFoldersAndReplacesOtherItems) {
  const Scratch scratch;
  scratch.write("tree/a/file", "new");
  scratch.write("tree/a/was-folder", "new");
  scratch.write("tree/was-file/inner", "new");
  scratch.write("tree/was-link/inner", "new");
  ASSERT_EQ(::symlink("new", (scratch / "tree/link").c_str()), 0);
  scratch.write("there/a/file", "old");
  scratch.write("there/a/other", "kept");
  scratch.write("there/a/was-folder/inner", "old");
  scratch.write("there/was-file", "old");
  scratch.write("victim/inner", "kept");
  ASSERT_EQ(::symlink("../victim", (scratch / "there/was-link").c_str()), 0);
  scratch.write("there/link", "old");
  setAttribute(scratch / "there/a", "user.old", "gone");
  setTimes(scratch / "tree/a", 1000000000, 1100000000);
  ASSERT_EQ(::chmod((scratch / "tree/a").c_str(), 0711), 0);

  TreeCopyOptions options;
  options.intoExisting = true;
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "there", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(Scratch::contents(scratch / "there/a/other"), "kept");
  EXPECT_EQ(Scratch::contents(scratch / "victim/inner"), "kept");
  ASSERT_TRUE(removeItem(scratch / "there/a/other"));
  setTimes(scratch / "there/a", 1000000000, 1100000000);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, MergesHardLinksAsTheyAreInTheSource) {
  const Scratch scratch;
  scratch.write("tree/one", "text");
  ASSERT_EQ(::link((scratch / "tree/one").c_str(), (scratch / "tree/two").c_str()), 0);
  TreeCopyOptions options;
  options.intoExisting = true;
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, GivesMergedFoldersNoForeignAccessControlLists) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/a/b/file", "text");
  scratch.write("tree/a/file", "text");
  setAttribute(scratch.makeFolder("there/a"), "system.posix_acl_default", accessList(7));
  TreeCopyOptions options;
  options.intoExisting = true;
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, MergesThroughALinkAtTheRootOnly) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  scratch.makeFolder("real");
  ASSERT_EQ(::symlink("real", (scratch / "there").c_str()), 0);
  TreeCopyOptions options;
  options.intoExisting = true;
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(Scratch::contents(scratch / "real/file"), "text");
}

TEST(CopyTree, TellsOfWhatItCannotCopyAndGoesOn) {
  const Scratch scratch;
  scratch.write("tree/a/first", "text");
  scratch.write("tree/b/file", "text");
  // A folder of the destination that is the source's own folder cannot be merged.
  scratch.makeFolder("there");
  std::vector<std::string> failures;
  TreeCopyOptions options;
  options.intoExisting = true;
  options.failed = [&](std::string_view path, int error) {
    failures.push_back(std::string(path) + ":" + std::to_string(error));
    return true;
  };
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "tree", options);
  EXPECT_FALSE(report.complete);
  EXPECT_EQ(report.error, EINVAL);
  EXPECT_THAT(failures, ElementsAre(":" + std::to_string(EINVAL)));
}

}  // namespace
}  // namespace halyard::host

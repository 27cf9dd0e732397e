// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/sync.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

TEST(SyncFileSystem, KnowsFilesAndFolders) {
  const Scratch scratch;
  EXPECT_TRUE(syncFileSystem(scratch.path()));
  EXPECT_TRUE(syncFileSystem(scratch.write("file")));
}

TEST(SyncFileSystem, TellsWhatWasTriedAndWhyItFailed) {
  const Scratch scratch;
  const Status missing = syncFileSystem(scratch / "missing");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().code, ENOENT);
  EXPECT_EQ(missing.error().tried, scratch / "missing");
  EXPECT_FALSE(syncFileSystem(""));
}

TEST(SyncFileSystem, NeverWaitsAtAFifo) {
  const Scratch scratch;
  ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(syncFileSystem(scratch / "fifo").error().code, EINVAL);
}

TEST(SyncFileSystems, PassesOverWhatIsNotThere) {
  const Scratch scratch;
  EXPECT_TRUE(syncFileSystems({scratch / "missing", scratch.path(), "/"}));
}

TEST(SyncFolder, TellsAMissingFolder) {
  const Scratch scratch;
  EXPECT_TRUE(syncFolder(scratch.path()));
  EXPECT_EQ(syncFolder(scratch / "missing").error().code, ENOENT);
  EXPECT_EQ(syncFolder(scratch.write("file")).error().code, ENOTDIR);
}

TEST(SyncFolderOf, NeedsTheFolderAndNotTheItem) {
  const Scratch scratch;
  EXPECT_TRUE(syncFolderOf(scratch / "missing"));
  EXPECT_EQ(syncFolderOf(scratch / "missing/item").error().code, ENOENT);
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cstddef>

#include "snapwheel/source_index.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

struct stat item(ino_t inode, mode_t mode, time_t changed, off_t size = 0) {
  struct stat status {};
  status.st_ino = inode;
  status.st_mode = mode;
  status.st_ctim = {changed, 7};
  status.st_size = size;
  return status;
}

/// A root (inode 2) with the files b (12), a (11) and the folder d (20) with the file c (21).
std::string writeSample(const test::Scratch& scratch) {
  const std::string path = scratch / "index";
  SourceIndexWriter writer(path, "identity");
  writer.enter("", item(2, S_IFDIR | 0755, 100), true);
  writer.add("b", item(12, S_IFREG | 0644, 200, 5), true, kNoDigest);
  writer.add("a", item(11, S_IFREG | 0644, 300, 6), true, kNoDigest);
  writer.add("fresh", item(13, S_IFREG | 0644, 999), false, kNoDigest);
  writer.enter("d", item(20, S_IFDIR | 0755, 400), true);
  writer.add("c", item(21, S_IFLNK | 0777, 500), true, kNoDigest);
  writer.leave();
  writer.enter("young", item(30, S_IFDIR | 0755, 999), false);
  writer.leave();
  writer.leave();
  EXPECT_TRUE(writer.finish());
  return path;
}

TEST(SourceIndex, FindsAnItemByInodeAndName) {
  const test::Scratch scratch;
  const auto index = SourceIndex::open(writeSample(scratch), "identity");
  ASSERT_NE(index, nullptr);
  SourceIndex::Folder root = index->root();

  const IndexEntry* entry = root.find(12, "b");

  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->changeTime, 200'000'000'007);
  EXPECT_EQ(entry->size, 5U);
  EXPECT_EQ(entry->mode, mode_t{S_IFREG | 0644});
  EXPECT_EQ(root.find(12, "a"), nullptr);
  EXPECT_EQ(root.find(99, "b"), nullptr);
}

TEST(SourceIndex, FindsItemsInAnyOrder) {
  const test::Scratch scratch;
  const auto index = SourceIndex::open(writeSample(scratch), "identity");
  ASSERT_NE(index, nullptr);
  SourceIndex::Folder root = index->root();
  for (int round = 0; round < 2; ++round) {
    EXPECT_NE(root.find(20, "d"), nullptr);
    EXPECT_NE(root.find(11, "a"), nullptr);
    EXPECT_NE(root.find(12, "b"), nullptr);
  }
}

TEST(SourceIndex, GoesIntoFolders) {
  const test::Scratch scratch;
  const auto index = SourceIndex::open(writeSample(scratch), "identity");
  ASSERT_NE(index, nullptr);
  SourceIndex::Folder root = index->root();
  SourceIndex::Folder folder = index->below(*root.find(20, "d"));
  EXPECT_NE(folder.find(21, "c"), nullptr);
  SourceIndex::Folder none = index->below(*root.find(11, "a"));
  EXPECT_EQ(none.find(21, "c"), nullptr);
}

TEST(SourceIndex, KeepsWhatProvesNothingWithoutItsTime) {
  const test::Scratch scratch;
  const auto index = SourceIndex::open(writeSample(scratch), "identity");
  ASSERT_NE(index, nullptr);
  SourceIndex::Folder root = index->root();
  const IndexEntry* fresh = root.find(13, "fresh");
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(fresh->changeTime, kUntrusted);
  const IndexEntry* young = root.find(30, "young");
  ASSERT_NE(young, nullptr);
  EXPECT_EQ(young->changeTime, kUntrusted);
}

TEST(SourceIndex, TellsNamesOfOneInodeApart) {
  const test::Scratch scratch;
  const std::string path = scratch / "index";
  SourceIndexWriter writer(path, "");
  writer.enter("", item(2, S_IFDIR, 1), true);
  for (const char* name : {"one", "two", "three"}) {
    writer.add(name, item(5, S_IFREG, 1), true, kNoDigest);
  }
  writer.leave();
  ASSERT_TRUE(writer.finish());
  const auto index = SourceIndex::open(path, "");
  ASSERT_NE(index, nullptr);
  SourceIndex::Folder root = index->root();
  for (const char* name : {"three", "one", "two"}) EXPECT_NE(root.find(5, name), nullptr) << name;
  EXPECT_EQ(root.find(5, "four"), nullptr);
}

TEST(SourceIndex, IsRefusedForAnotherIdentity) {
  const test::Scratch scratch;
  EXPECT_EQ(SourceIndex::open(writeSample(scratch), "identitY"), nullptr);
}

TEST(SourceIndex, IsRefusedWhenItWasNotFinished) {
  const test::Scratch scratch;
  const std::string path = scratch / "index";
  {
    SourceIndexWriter writer(path, "identity");
    writer.enter("", item(2, S_IFDIR, 1), true);
    writer.leave();
  }
  EXPECT_EQ(SourceIndex::open(path, "identity"), nullptr);
  EXPECT_FALSE(test::Scratch::stands(path));
}

TEST(SourceIndex, EveryShorterFileIsRefused) {
  const test::Scratch scratch;
  const std::string bytes = test::Scratch::contents(writeSample(scratch));
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_EQ(SourceIndex::open(scratch.write("short", bytes.substr(0, length)), "identity"),
              nullptr)
        << length;
  }
}

TEST(SourceIndex, NoDamagedByteLeadsOutOfTheFile) {
  const test::Scratch scratch;
  const std::string bytes = test::Scratch::contents(writeSample(scratch));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const char value : {'\xff', '\x7f', '\x01'}) {
      std::string damaged = bytes;
      damaged[at] = value;
      const auto index = SourceIndex::open(scratch.write("damaged", damaged), "identity");
      if (index == nullptr) continue;
      // What it finds does not matter; the sanitizers watch where it looks.
      SourceIndex::Folder root = index->root();
      (void)root.find(11, "a");
      if (const IndexEntry* entry = root.find(20, "d")) (void)index->below(*entry).find(21, "c");
    }
  }
}

TEST(KeepsChangeTimes, IsFalseWhereNothingIsKnownOfTheFileSystem) {
  EXPECT_FALSE(keepsChangeTimes("/proc"));
  EXPECT_FALSE(keepsChangeTimes("/nonexistent"));
}

TEST(SourceIndex, AFileThatCannotBeMadeIsNoIndex) {
  SourceIndexWriter writer("/nonexistent/index", "identity");
  writer.enter("", item(2, S_IFDIR, 1), true);
  writer.leave();
  EXPECT_FALSE(writer.finish());
}

TEST(SourceIndex, OneThatTheDiskCannotReadIsNone) {
  const test::Scratch scratch;
  const test::MountedVolume volume(scratch, "btrfs", 320);
  if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
  const std::string path = volume.path() + "/index";
  SourceIndexWriter writer(path, "identity");
  writer.enter("", item(2, S_IFDIR | 0755, 100), true);
  for (ino_t inode = 10; inode < 1000; ++inode) {
    writer.add(("a rare name " + std::to_string(inode)).c_str(),
               item(inode, S_IFREG | 0644, 200, 5), true, kNoDigest);
  }
  writer.leave();
  ASSERT_TRUE(writer.finish());
  ASSERT_NE(SourceIndex::open(path, "identity"), nullptr);
  ASSERT_TRUE(volume.spoil("a rare name 500", path));
  EXPECT_EQ(SourceIndex::open(path, "identity"), nullptr);
}

TEST(SourceIndex, OneThatHoldsItselfNamesNoFile) {
  const test::Scratch scratch;
  // One block: fifty folders, each of them the block itself, and fifty files.
  struct Bytes {
    char magic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '2'};
    std::uint64_t length = sizeof(Bytes);
    std::uint64_t root = offsetof(Bytes, count);
    std::uint64_t identityLength = 0;
    host::ContentDigest digest;
    std::uint32_t count = 100;
    std::uint32_t nameBytes = 8;
    IndexEntry entries[100];
    char names[8] = "a";
  } bytes;
  for (int at = 0; at < 100; ++at) {
    bytes.entries[at].inode = 100 + static_cast<unsigned>(at);
    bytes.entries[at].mode = at < 50 ? S_IFDIR : S_IFREG;
    bytes.entries[at].size = bytes.root;
  }
  Digester digester;
  digester.add(&bytes.count, sizeof bytes - offsetof(Bytes, count));
  bytes.digest = digester.digest();
  scratch.write("index", std::string(reinterpret_cast<const char*>(&bytes), sizeof bytes));
  const auto index = SourceIndex::open(scratch / "index");
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(index->root().entries().size(), 100U);
  EXPECT_FALSE(index->findAnywhere(150));
}

}  // namespace
}  // namespace halyard::snapwheel

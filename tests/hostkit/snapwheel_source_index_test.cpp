// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string_view>

#include "host/files/descriptor.h"
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

TEST(SourceIndex, OfAFormerFormatDoesNotKnowLongFiles) {
  const test::Scratch scratch;
  const std::string path = scratch / "index";
  const host::ContentDigest digest = {1, 2};
  SourceIndexWriter writer(path, "identity");
  writer.enter("", item(2, S_IFDIR | 0755, 100), true);
  writer.add("long", item(11, S_IFREG | 0644, 200, off_t{1} << 20), true, digest);
  writer.enter("d", item(20, S_IFDIR | 0755, 400), true);
  writer.add("short", item(12, S_IFREG | 0644, 200, (off_t{1} << 20) - 1), true, digest);
  writer.leave();
  writer.leave();
  ASSERT_TRUE(writer.finish());
  for (const char format : {'4', '3', '2'}) {
    const host::Descriptor file(::open(path.c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), &format, 1, 7), 1);
    const auto index = SourceIndex::open(path, "identity");
    ASSERT_NE(index, nullptr) << format;
    SourceIndex::Folder root = index->root();
    SourceIndex::Folder inner = index->below(*root.find(20, "d"));
    EXPECT_EQ(inner.find(12, "short")->digest, digest) << format;
    EXPECT_EQ(root.find(11, "long")->digest == digest, format == '4') << format;
    EXPECT_EQ(root.find(11, "long")->changeTime != kUntrusted, format == '4') << format;
    EXPECT_FALSE(SourceIndex::isDamaged(path)) << format;
  }
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

/// A root with fifty folders, each at the same place, and a block there with fifty files.
struct SharedBlock {
  char magic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '2'};
  std::uint64_t length = sizeof(SharedBlock);
  std::uint64_t root = offsetof(SharedBlock, count);
  std::uint64_t identityLength = 0;
  host::ContentDigest digest = {};
  std::uint32_t count = 50;
  std::uint32_t nameBytes = 8;
  IndexEntry entries[50];
  char names[8] = "a";
  std::uint32_t countBelow = 50;
  std::uint32_t nameBytesBelow = 8;
  IndexEntry entriesBelow[50];
  char namesBelow[8] = "b";

  void write(const std::string& path, std::uint64_t place) {
    for (IndexEntry& entry : entries) {
      entry.mode = S_IFDIR;
      entry.size = place;
    }
    for (IndexEntry& entry : entriesBelow) entry.mode = S_IFREG;
    Digester digester;
    digester.add(&count, sizeof *this - offsetof(SharedBlock, count));
    digest = digester.digest();
    const host::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    ASSERT_EQ(::write(file.get(), this, sizeof *this), ssize_t{sizeof *this});
  }
};

TEST(SourceIndex, OneThatHoldsItselfIsRefused) {
  const test::Scratch scratch;
  SharedBlock block;
  block.write(scratch / "index", offsetof(SharedBlock, count));
  EXPECT_EQ(SourceIndex::open(scratch / "index"), nullptr);
  EXPECT_TRUE(SourceIndex::isDamaged(scratch / "index"));
}

TEST(SourceIndex, OneThatNamesABlockManyTimesIsRefused) {
  const test::Scratch scratch;
  SharedBlock block;
  block.write(scratch / "index", offsetof(SharedBlock, countBelow));
  EXPECT_EQ(SourceIndex::open(scratch / "index"), nullptr);
  block.write(scratch / "index", 0);  // Where no block stands.
  EXPECT_NE(SourceIndex::open(scratch / "index"), nullptr);
}

TEST(SourceIndex, OneThatNamesWhatIsInNoFolderIsRefused) {
  const test::Scratch scratch;
  SharedBlock block;
  for (const char* name : {"a", "..", ".", "", "a/b", "..."}) {
    std::strncpy(block.names, name, sizeof block.names - 1);
    block.write(scratch / "index", 0);
    const bool isName = name == std::string_view("a") || name == std::string_view("...");
    EXPECT_EQ(SourceIndex::open(scratch / "index") != nullptr, isName) << name;
  }
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// When an item is known to be as it was in the reference.
#include <gtest/gtest.h>

#include <memory>

#include "host/tree/change_time.h"
#include "snapwheel/walk_memory.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

constexpr ino_t kRoot = 2;
constexpr ino_t kFile = 12;

struct stat statusOf(ino_t inode, mode_t mode, off_t size = 0) {
  struct stat status {};
  status.st_ino = inode;
  status.st_mode = mode;
  status.st_ctim = {200, 7};
  status.st_size = size;
  return status;
}

// A walk that has just entered the root, with the index of an earlier one that had one file.
class KnownFile : public testing::Test {
 protected:
  void SetUp() override {
    SourceIndexWriter earlier(scratch_ / "before", "identity");
    earlier.enter("", statusOf(kRoot, S_IFDIR | 0755), true);
    earlier.add("file", file_, true, kNoDigest);
    earlier.leave();
    ASSERT_TRUE(earlier.finish());
    before_ = SourceIndex::open(scratch_ / "before", "identity");
    ASSERT_NE(before_, nullptr);
    writer_ = std::make_unique<SourceIndexWriter>(scratch_ / "now", "identity");
    memory_ = std::make_unique<WalkMemory>(*writer_, EarlierWalk{before_.get(), {}},
                                           host::timeOfChanges(), [](const std::string&) {});
    memory_->enter("", statusOf(kRoot, S_IFDIR | 0755));
  }
  bool isKnown() { return memory_->isUnchanged("file", file_); }
  /// What the next walk will know of the file.
  IndexEntry recorded() const {
    SourceIndexWriter writer(scratch_ / "next", "identity");
    WalkMemory walk(writer, {}, host::timeOfChanges(), [](const std::string&) {});
    walk.enter("", statusOf(kRoot, S_IFDIR | 0755));
    walk.took("file", file_);
    walk.leave();
    EXPECT_TRUE(writer.finish());
    const auto index = SourceIndex::open(scratch_ / "next", "identity");
    return index == nullptr ? IndexEntry{} : index->root().entries().front();
  }

  struct stat file_ = statusOf(kFile, S_IFREG | 0644, 5);

 private:
  test::Scratch scratch_;
  std::unique_ptr<SourceIndex> before_;
  std::unique_ptr<SourceIndexWriter> writer_;
  std::unique_ptr<WalkMemory> memory_;
};

TEST_F(KnownFile, IsUnchangedWhenNothingAboutItChanged) { EXPECT_TRUE(isKnown()); }

TEST_F(KnownFile, IsAnotherWithAnotherSize) {
  file_.st_size = 6;
  EXPECT_FALSE(isKnown());
}

TEST_F(KnownFile, IsAnotherWhenItChangedANanosecondLater) {
  file_.st_ctim.tv_nsec += 1;
  EXPECT_FALSE(isKnown());
}

TEST_F(KnownFile, IsAnotherWhenItChangedASecondLater) {
  file_.st_ctim.tv_sec += 1;
  EXPECT_FALSE(isKnown());
}

TEST_F(KnownFile, IsAnotherWithAnotherMode) {
  file_.st_mode = S_IFREG | 0600;
  EXPECT_FALSE(isKnown());
}

TEST_F(KnownFile, IsReadAgainWhenAWriteOfMuchMayHaveBeenUnderWay) {
  struct Case {
    off_t size;
    time_t age;
    bool isTrusted;
  };
  for (const Case& one :
       {Case{4096, 60, true}, Case{off_t{1} << 20, 60, false}, Case{off_t{1} << 20, 3600, true}}) {
    file_.st_size = one.size;
    file_.st_ctim = host::timeOfChanges();
    file_.st_ctim.tv_sec -= one.age;
    EXPECT_EQ(recorded().changeTime != kUntrusted, one.isTrusted) << one.size << " " << one.age;
  }
}

}  // namespace
}  // namespace halyard::snapwheel

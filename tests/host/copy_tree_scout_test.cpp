// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a scout saw of an item stands for a look at it as long as nothing changed.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "host/tree/tree_copy.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

/// Takes each file of a size for unchanged.
class KnownSize : public TreeMemory {
 public:
  explicit KnownSize(off_t size) : size_(size) {}

  bool enter(const char*, const struct stat&) override { return false; }
  void leave() override {}
  bool isUnchanged(const char*, const struct stat& status) override {
    return status.st_size == size_;
  }
  Earlier earlier(const char*, const struct stat&) override { return {}; }
  std::optional<Moved> movedFrom(const struct stat&) override { return std::nullopt; }
  void begin() override {}
  void read(const char*, std::size_t) override {}
  void readZeros(std::uint64_t) override {}
  void end() override {}
  ContentDigest digest() override { return {}; }
  void took(const char*, const struct stat& status) override { sizeTaken = status.st_size; }
  void tookTorn(const char*, const struct stat&) override { FAIL(); }

  off_t sizeTaken = -1;

 private:
  off_t size_;
};

/// Saw one file before it got what it holds now.
class Early : public TreeScout {
 public:
  Early(const std::string& file, off_t size, bool isAlike) : seen_{{}, isAlike} {
    EXPECT_EQ(::stat(file.c_str(), &seen_.status), 0);
    seen_.status.st_size = size;
  }
  const Item* find(std::string_view folder, const char* name, ino_t inode) override {
    EXPECT_EQ(folder, "folder");
    EXPECT_STREQ(name, "file");
    EXPECT_EQ(inode, seen_.status.st_ino);
    return &seen_;
  }

 private:
  Item seen_;
};

class Scouted : public testing::Test {
 protected:
  /// The source has a file of 7 bytes, the reference one of `referenceSize`. Gives the size that
  /// the memory was told.
  off_t copy(off_t sizeSeen, off_t sizeKnown, std::size_t referenceSize, bool isAlike) {
    scratch_.write("source/folder/file", "content");
    scratch_.write("reference/folder/file", std::string(referenceSize, 'r'));
    Early scout(scratch_ / "source/folder/file", sizeSeen, isAlike);
    KnownSize memory(sizeKnown);
    TreeCopyOptions options;
    options.reference = scratch_ / "reference";
    options.memory = &memory;
    options.scout = &scout;
    report_ = copyTree(scratch_ / "source", scratch_ / "copy", options);
    EXPECT_TRUE(report_.complete);
    return memory.sizeTaken;
  }
  Scratch scratch_;
  TreeCopyReport report_;
};

TEST_F(Scouted, AnUnchangedFileIsTakenFromTheReferenceAsItWasSeen) {
  EXPECT_EQ(copy(3, 3, 3, true), 3);
  EXPECT_EQ(report_.linked, 1U);
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/folder/file"), "rrr");
}

TEST_F(Scouted, AChangedFileIsRememberedAsItIsNow) {
  EXPECT_EQ(copy(3, 4, 3, true), 7);
  EXPECT_EQ(report_.copied, 1U);
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/folder/file"), "content");
}

TEST_F(Scouted, AFileThatTheReferenceSeemedToLackIsLookedForAgain) {
  EXPECT_EQ(copy(7, 7, 7, false), 7);
  EXPECT_EQ(report_.linked, 1U);
}

TEST_F(Scouted, AnUnchangedFileThatTheReferenceLacksIsRememberedAsItIsNow) {
  EXPECT_EQ(copy(3, 3, 5, false), 7);
  EXPECT_EQ(report_.copied, 1U);
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A file that changes while it is read is read again, and told when it never stands still.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "host/files/descriptor.h"
#include "host/tree/tree_copy.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

/// Knows nothing, and changes the file that is read under its first readings.
class Disturbance : public TreeMemory {
 public:
  Disturbance(std::string file, int changes) : file_(std::move(file)), left_(changes) {}

  bool enter(const char*, const struct stat&) override { return false; }
  void leave() override {}
  bool isUnchanged(const char*, const struct stat&) override { return false; }
  Earlier earlier(const char*, const struct stat&) override { return {}; }
  std::optional<Moved> movedFrom(const struct stat&) override { return std::nullopt; }
  void begin() override {
    ++readings;
    if (!live.empty()) {
      ASSERT_EQ(::access(live.c_str(), F_OK), 0);
    }
  }
  void read(const char*, std::size_t) override {
    if (left_ == 0) return;
    --left_;
    const Descriptor file(::open(file_.c_str(), O_WRONLY | O_APPEND));
    ASSERT_EQ(::write(file.get(), "x", 1), 1);
  }
  void readZeros(std::uint64_t) override {}
  void end() override {}
  ContentDigest digest() override { return {}; }
  void took(const char*, const struct stat&) override { ++taken; }
  void tookTorn(const char*, const struct stat&) override { ++torn; }

  std::string live;  ///< What must stand whenever a reading begins.
  int readings = 0;
  int taken = 0;
  int torn = 0;

 private:
  std::string file_;
  int left_;
};

class Torn : public testing::Test {
 protected:
  Disturbance copyDisturbed(int readings) const {
    Disturbance memory(scratch_ / "source/file", readings);
    TreeCopyOptions options;
    options.memory = &memory;
    const TreeCopyReport report = copyTree(scratch_ / "source", scratch_ / "copy", options);
    EXPECT_TRUE(report.complete);
    EXPECT_EQ(report.copied, 1U);
    return memory;
  }
  Scratch scratch_;
};

TEST_F(Torn, AFileThatStandsStillIsReadOnce) {
  scratch_.write("source/file", "content");
  const Disturbance memory = copyDisturbed(0);
  EXPECT_EQ(memory.readings, 1);
  EXPECT_EQ(memory.taken, 1);
}

TEST_F(Torn, AFileThatChangedWhileItWasReadIsReadAgain) {
  scratch_.write("source/file", "content");
  const Disturbance memory = copyDisturbed(2);
  EXPECT_EQ(memory.readings, 3);
  EXPECT_EQ(memory.taken, 1);
  EXPECT_EQ(memory.torn, 0);
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/file"), "contentxx");
}

TEST_F(Torn, AFileOfALiveFolderStandsWhileItsSuccessorIsReadAgain) {
  scratch_.write("source/file", "content");
  scratch_.write("copy/file", "live");
  Disturbance memory(scratch_ / "source/file", 2);
  memory.live = scratch_ / "copy/file";
  TreeCopyOptions options;
  options.memory = &memory;
  options.intoExisting = true;
  EXPECT_TRUE(copyTree(scratch_ / "source", scratch_ / "copy", options).complete);
  EXPECT_EQ(memory.readings, 3);
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/file"), "contentxx");
}

TEST_F(Torn, AFileThatNeverStandsStillIsToldAsTorn) {
  scratch_.write("source/file", "content");
  const Disturbance memory = copyDisturbed(3);
  EXPECT_EQ(memory.readings, 3);
  EXPECT_EQ(memory.taken, 0);
  EXPECT_EQ(memory.torn, 1);
}

TEST_F(Torn, AFileWithManyNamesThatIsWrittenAllTheTimeStaysOneFile) {
  scratch_.write("source/a", "content");
  for (const char* name : {"b", "c", "d", "e", "f"}) {
    ASSERT_EQ(::link((scratch_ / "source/a").c_str(), (scratch_ / "source/" + name).c_str()), 0);
  }
  std::atomic<bool> ends = false;
  std::thread writer([&] {
    const Descriptor file(::open((scratch_ / "source/a").c_str(), O_WRONLY));
    while (!ends) (void)!::pwrite(file.get(), "x", 1, 0);
  });
  Disturbance memory(scratch_ / "source/a", 0);
  TreeCopyOptions options;
  options.memory = &memory;
  const TreeCopyReport report = copyTree(scratch_ / "source", scratch_ / "copy", options);
  ends = true;
  writer.join();
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.copied, 1U);
  struct stat first = {};
  ASSERT_EQ(::stat((scratch_ / "copy/a").c_str(), &first), 0);
  EXPECT_EQ(first.st_nlink, 6U);
}

TEST_F(Torn, AFileWithTwoNamesIsReadAgainInAnUpdateToo) {
  scratch_.write("source/file", "before");
  ASSERT_EQ(::link((scratch_ / "source/file").c_str(), (scratch_ / "source/other").c_str()), 0);
  ASSERT_TRUE(copyTree(scratch_ / "source", scratch_ / "copy").complete);
  scratch_.write("source/file", "content");

  Disturbance memory(scratch_ / "source/file", 1);
  TreeCopyOptions options;
  options.memory = &memory;
  options.update = true;
  ASSERT_TRUE(copyTree(scratch_ / "source", scratch_ / "copy", options).complete);

  EXPECT_EQ(memory.readings, 2);
  EXPECT_EQ(memory.torn, 0);
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/file"), "contentx");
  EXPECT_EQ(Scratch::contents(scratch_ / "copy/other"), "contentx");
  struct stat file = {};
  struct stat other = {};
  ASSERT_EQ(::stat((scratch_ / "copy/file").c_str(), &file), 0);
  ASSERT_EQ(::stat((scratch_ / "copy/other").c_str(), &other), 0);
  EXPECT_EQ(file.st_ino, other.st_ino);
}

}  // namespace
}  // namespace halyard::host

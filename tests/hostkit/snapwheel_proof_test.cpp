// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A file shares its data with an earlier snapshot only when its contents are proven to be the same.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/statvfs.h>

#include <atomic>
#include <thread>

#include "host/files/descriptor.h"
#include "snapshot_test.h"
#include "snapwheel/damage.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::ElementsAre;

class Proof : public SnapshotTest {
 protected:
  struct stat statusAt(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(::lstat(at(path).c_str(), &status), 0) << path;
    return status;
  }
  /// Gives a file the times that another status tells.
  void setTimes(const std::string& path, const struct stat& status) const {
    const timespec times[] = {status.st_atim, status.st_mtim};
    EXPECT_EQ(::utimensat(AT_FDCWD, at(path).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
  }
  void expectWhole(const SnapshotOutcome& outcome) const {
    EXPECT_EQ(listTree(volumeOf(outcome)), expected());
    EXPECT_TRUE(outcome.manifest.complete);
  }
};
INSTANTIATE_TEST_SUITE_P(On, Proof, fileSystems(), fileSystemName);

TEST_P(Proof, AFileThatIsRewrittenInPlaceWithItsTimePutBackIsSaved) {
  take();
  const struct stat before = statusAt("etc/hosts");
  const host::Descriptor file(::open(at("etc/hosts").c_str(), O_WRONLY));
  ASSERT_EQ(::pwrite(file.get(), "X", 1, 3), 1);
  setTimes("etc/hosts", before);
  expectWhole(take());
}

TEST_P(Proof, AFileThatIsReplacedByOneOfItsSizeAndTimeIsSaved) {
  take();
  const struct stat before = statusAt("etc/passwd");
  put("etc/new", std::string(static_cast<std::size_t>(before.st_size), 'y'));
  setTimes("etc/new", before);
  ASSERT_EQ(::rename(at("etc/new").c_str(), at("etc/passwd").c_str()), 0);
  expectWhole(take());
}

TEST_P(Proof, TwoFilesOfOneSizeAndTimeThatChangePlacesAreSaved) {
  put("etc/a.conf", "listen 1\n");
  put("etc/b.conf", "listen 2\n");
  setTimes("etc/b.conf", statusAt("etc/a.conf"));
  settle();
  take();
  ASSERT_EQ(::renameat2(AT_FDCWD, at("etc/a.conf").c_str(), AT_FDCWD, at("etc/b.conf").c_str(),
                        RENAME_EXCHANGE),
            0);
  expectWhole(take());
  ASSERT_EQ(::rename(at("etc/b.conf").c_str(), at("etc/a.conf").c_str()), 0);
  expectWhole(take());
}

TEST_P(Proof, AFolderThatIsMadeAnewIsSaved) {
  const struct stat before = statusAt(".Halyards/depotHost/etc/x");
  take();
  ASSERT_EQ(::rename(at(".Halyards").c_str(), at("proc/old").c_str()), 0);
  put(".Halyards/.halyardSignature", "SIGNATURE");
  put(".Halyards/depotHost/etc/x", "y");
  setTimes(".Halyards/depotHost/etc/x", before);
  setTimes(".Halyards/.halyardSignature", before);
  expectWhole(take());
}

TEST_P(Proof, AFileThatIsOnlyTouchedIsNotCopiedWhenItsTimeIsPutBack) {
  take();
  const struct stat before = statusAt("srv/deep/er/two");
  setTimes("srv/deep/er/two", before);
  const SnapshotOutcome outcome = take();
  expectWhole(outcome);
  EXPECT_EQ(outcome.manifest.copied, 0U);
}

TEST_P(Proof, WhatIsWrittenThroughAMappingThatStaysOpenIsSaved) {
  put("srv/mapped", std::string(4096, 'a'));
  const host::Descriptor file(::open(at("srv/mapped").c_str(), O_RDWR));
  void* const mapped = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  ASSERT_NE(mapped, MAP_FAILED);
  auto* const bytes = static_cast<char*>(mapped);
  bytes[0] = 'b';
  settle();
  for (const char value : {'c', 'd'}) {
    expectWhole(take());
    bytes[1] = value;
    settle();
  }
  expectWhole(take());
  ::munmap(mapped, 4096);
}

TEST_P(Proof, AFileThatMovedIsSharedAndNotCopied) {
  const SnapshotOutcome first = take();
  ASSERT_EQ(::rename(at("srv/deep/er/two").c_str(), at("etc/moved").c_str()), 0);
  const SnapshotOutcome second = take();
  expectWhole(second);
  if (isOnBtrfs()) {
    EXPECT_EQ(second.manifest.linked, first.manifest.copied + first.manifest.linked - 1)
        << "its blocks are shared, the file is another one";
  } else {
    EXPECT_EQ(second.manifest.copied, 0U);
  }
}

TEST_P(Proof, AFolderThatMovedIsSharedAndNotCopied) {
  take();
  ASSERT_EQ(::rename(at("srv/deep").c_str(), at("etc/shallow").c_str()), 0);
  const SnapshotOutcome second = take();
  expectWhole(second);
  if (!isOnBtrfs()) {
    EXPECT_EQ(second.manifest.copied, 0U);
  }
}

TEST_P(Proof, AFileThatMovedAndItsCopyInItsPlaceAreTwoFiles) {
  put("srv/log", "a line\n");
  put("srv/deep/log", "another line\n");
  settle();
  take();
  for (const std::string path : {"srv/log", "srv/deep/log"}) {
    const struct stat before = statusAt(path);
    ASSERT_EQ(::rename(at(path).c_str(), at(path + ".1").c_str()), 0);
    put(path, Scratch::contents(at(path + ".1")));
    setTimes(path, before);
  }
  settle();
  expectWhole(take());
}

TEST_P(Proof, AFolderThatMovedAndItsCopyInItsPlaceAreTwoFolders) {
  put("var/spool/a", "a line\n");
  settle();
  take();
  const struct stat before = statusAt("var/spool/a");
  ASSERT_EQ(::rename(at("var/spool").c_str(), at("var/old").c_str()), 0);
  put("var/spool/a", "a line\n");
  setTimes("var/spool/a", before);
  settle();
  expectWhole(take());
}

TEST_P(Proof, AnotherFileWithTheInodeOfARemovedOneIsSaved) {
  put("srv/short", "12345");
  settle();
  take();
  const struct stat before = statusAt("srv/short");
  ASSERT_EQ(::unlink(at("srv/short").c_str()), 0);
  for (int number = 0; number < 50; ++number) {
    const std::string path = "srv/again" + std::to_string(number);
    put(path, "54321");
    setTimes(path, before);
  }
  settle();
  expectWhole(take());
}

TEST_P(Proof, AnIndexWithAWrongBitProvesNothing) {
  const SnapshotOutcome first = take();
  const std::string index = repository_->path(first.name) + "/.snapwheel/index";
  makeWritable(first);
  std::string bytes = Scratch::contents(index);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  ASSERT_EQ(SourceIndex::open(index) == nullptr, false);
  {
    const host::Descriptor file(::open(index.c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), bytes.data() + bytes.size() - 1, 1,
                       static_cast<off_t>(bytes.size() - 1)),
              1);
  }
  EXPECT_EQ(SourceIndex::open(index), nullptr);
  const struct stat before = statusAt("etc/hosts");
  const host::Descriptor file(::open(at("etc/hosts").c_str(), O_WRONLY));
  ASSERT_EQ(::pwrite(file.get(), "X", 1, 3), 1);
  setTimes("etc/hosts", before);
  const SnapshotOutcome second = take();
  expectWhole(second);
  // All else was compared and is shared; a file with two names is made anew in an update.
  EXPECT_EQ(second.manifest.copied, isOnBtrfs() ? 2U : 1U);
}

TEST_P(Proof, ADamagedFileIsCopiedAfresh) {
  const SnapshotOutcome first = take();
  const std::string path = repository_->path(first.name);
  makeWritable(first);
  const std::string rotten = volumeOf(first) + "/srv/deep/er/two";
  {
    const host::Descriptor file(::open(rotten.c_str(), O_WRONLY));
    struct stat before {};
    ASSERT_EQ(::fstat(file.get(), &before), 0);
    ASSERT_EQ(::pwrite(file.get(), "!", 1, 5000), 1);
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::futimens(file.get(), times), 0);
  }
  ASSERT_TRUE(writeDamage(path, {"srv/deep/er/two"}));
  const SnapshotOutcome second = take();
  expectWhole(second);
  EXPECT_EQ(second.manifest.copied, 1U);
  EXPECT_TRUE(readDamage(repository_->path(second.name)).isEmpty());
  const SnapshotOutcome third = take();
  expectWhole(third);
  EXPECT_EQ(third.manifest.copied, 0U);
}

TEST_P(Proof, WhatStandsInPlaceOfAFileOfTheSnapshotIsNotTakenOver) {
  const SnapshotOutcome first = take();
  const std::string path = repository_->path(first.name);
  makeWritable(first);
  const std::string file = volumeOf(first) + "/etc/passwd";
  ASSERT_EQ(::unlink(file.c_str()), 0);
  ASSERT_EQ(::mkfifo(file.c_str(), 0644), 0);
  expectWhole(take());
}

TEST_P(Proof, AFileThatIsWrittenAllTheTimeIsNamedAsTorn) {
  put("srv/busy", std::string(1 << 20, 'a'));
  std::atomic<bool> ends = false;
  std::thread writer([&] {
    const host::Descriptor file(::open(at("srv/busy").c_str(), O_WRONLY));
    for (char value = 'b'; !ends; value = value == 'z' ? 'a' : static_cast<char>(value + 1)) {
      const std::string bytes(1 << 14, value);
      for (off_t place = 0; place < (1 << 20); place += 1 << 14) {
        (void)::pwrite(file.get(), bytes.data(), bytes.size(), place);
      }
    }
  });
  // On a busy machine the writer may rest for as long as a reading takes.
  SnapshotOutcome torn = take();
  for (int attempt = 0; attempt < 50 && torn.manifest.complete; ++attempt) torn = take();
  ends = true;
  writer.join();
  EXPECT_FALSE(torn.manifest.complete);
  EXPECT_THAT(torn.manifest.torn, ElementsAre("srv/busy"));
  settle();
  expectWhole(take());
}

TEST_P(Proof, OfALargeFileOnlyTheChangedBlocksTakeRoom) {
  std::string bytes(64 << 20, 'x');
  for (std::size_t place = 0; place < bytes.size(); place += 97) {
    bytes[place] = static_cast<char>(place * 31 >> 7);
  }
  put("srv/large", bytes);
  settle();
  take();
  if (!isOnBtrfs()) GTEST_SKIP() << "blocks are shared on btrfs";
  const auto freeBlocks = [this] {
    struct statvfs status {};
    const host::Descriptor folder(::open(destination_.c_str(), O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(::syncfs(folder.get()), 0);
    EXPECT_EQ(::fstatvfs(folder.get(), &status), 0);
    return status.f_bfree * status.f_frsize;
  };
  const auto before = freeBlocks();
  const host::Descriptor file(::open(at("srv/large").c_str(), O_WRONLY));
  ASSERT_EQ(::pwrite(file.get(), "changed", 7, 30 << 20), 7);
  expectWhole(take());
  EXPECT_LT(before - freeBlocks(), std::uint64_t{4} << 20);
}

}  // namespace
}  // namespace halyard::snapwheel

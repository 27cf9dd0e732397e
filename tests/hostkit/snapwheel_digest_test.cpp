// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <xxhash.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "host/files/descriptor.h"
#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/digest.h"
#include "snapwheel/restore_snapshot.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {
namespace {

using test::Scratch;

std::string zeros(std::uint64_t count) { return std::string(count, '\0'); }

host::ContentDigest digestOf(const std::string& bytes, std::size_t step) {
  Digester digester;
  for (std::size_t at = 0; at < bytes.size(); at += step) {
    digester.add(bytes.data() + at, std::min(step, bytes.size() - at));
  }
  return digester.digest();
}

host::ContentDigest digestOf(const std::string& bytes) { return digestOf(bytes, bytes.size() + 1); }

TEST(Digester, TakesBytesAndShortRunsOfZerosAsTheyAre) {
  std::mt19937 random(1);
  std::string bytes = zeros(4096);
  for (int count = 3 << 20; count > 0; --count) bytes += static_cast<char>(random());
  bytes.replace(1 << 20, kLongZeros - 1, zeros(kLongZeros - 1));
  bytes += zeros(kLongZeros / 2);
  bytes[1 << 20 | 7] = 'x';
  const XXH128_hash_t hash = ::XXH3_128bits(bytes.data(), bytes.size());
  EXPECT_EQ(digestOf(bytes), (host::ContentDigest{hash.high64, hash.low64}));
}

TEST(Digester, TakesZerosAsBytesAndAsANumberForTheSame) {
  for (const std::uint64_t count : {kLongZeros - 1, kLongZeros, kLongZeros + 1, 5 * kLongZeros}) {
    const std::string bytes = zeros(count) + "one" + zeros(count) + "two" + zeros(count);
    Digester counting;
    counting.addZeros(count);
    counting.add("one", 3);
    counting.addZeros(count - 1);
    counting.add("\0t", 2);
    counting.add("wo\0\0", 4);
    counting.addZeros(count - 2);
    const host::ContentDigest counted = counting.digest();
    for (const std::size_t step : {std::size_t{999}, std::size_t{4096}, std::size_t{128} << 10,
                                   std::size_t{kLongZeros}, bytes.size()}) {
      EXPECT_EQ(digestOf(bytes, step), counted) << count << " in steps of " << step;
    }
  }
}

TEST(Digester, TellsWhereLongZerosStandAndHowMany) {
  const std::string run = zeros(kLongZeros);
  const std::vector<std::string> all = {"ab",
                                        run,
                                        run + "ab",
                                        "a" + run + "b",
                                        "ab" + run,
                                        run + run,
                                        run + zeros(1),
                                        "ab" + run + run,
                                        "a" + run + "b" + run,
                                        run + "a" + run + "b",
                                        "a" + zeros(1) + run + "b"};
  for (std::size_t one = 0; one < all.size(); ++one) {
    for (std::size_t other = 0; other < one; ++other) {
      EXPECT_NE(digestOf(all[one]), digestOf(all[other])) << one << " and " << other;
    }
  }
}

TEST(Digester, BeginsAnew) {
  Digester digester;
  digester.addZeros(kLongZeros);
  digester.add("one", 3);
  (void)digester.digest();
  digester.begin();
  digester.add("two", 3);
  EXPECT_EQ(digester.digest(), digestOf("two"));
}

/// A file that is larger than its disk: to read it would take hours.
class HugeFile : public SnapshotTest {
 protected:
  static constexpr off_t kSize = off_t{3} << 40;
  static constexpr off_t kMiddle = off_t{1} << 40;

  void SetUp() override {
    SnapshotTest::SetUp();
    if (IsSkipped()) return;
    put("srv/huge", "at the begin");
    if (::truncate(at("srv/huge").c_str(), kSize) != 0) GTEST_SKIP() << "no such size here";
    writeInTheMiddle("in the middle");
  }
  void writeInTheMiddle(const std::string& bytes) const {
    const host::Descriptor file(::open(at("srv/huge").c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), kMiddle),
              static_cast<ssize_t>(bytes.size()));
  }
  static void expectAt(const std::string& path, std::string_view middle) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, kSize);
    EXPECT_LT(status.st_blocks, 1000);
    const host::Descriptor file(::open(path.c_str(), O_RDONLY));
    std::array<char, 20> bytes{};
    ASSERT_EQ(::pread(file.get(), bytes.data(), middle.size(), kMiddle),
              static_cast<ssize_t>(middle.size()));
    EXPECT_EQ(std::string_view(bytes.data()), middle);
  }
};

INSTANTIATE_TEST_SUITE_P(On, HugeFile, fileSystems(), fileSystemName);

TEST_P(HugeFile, TakesTheTimeOfItsData) {
  const SnapshotOutcome first = take();
  expectAt(volumeOf(first) + "/srv/huge", "in the middle");
  writeInTheMiddle("another text!");
  const SnapshotOutcome second = take();
  expectAt(volumeOf(second) + "/srv/huge", "another text!");
  expectAt(volumeOf(first) + "/srv/huge", "in the middle");
  EXPECT_THAT(checkRepository(*repository_, CheckDepth::contents).findings, testing::IsEmpty());
  RestoreRequest request;
  request.snapshotPath = repository_->path(second.name);
  request.target = scratch_ / "target";
  EXPECT_EQ(restoreSnapshot(request).failed, 0U);
  expectAt(request.target + "/srv/huge", "another text!");
}

TEST_P(HugeFile, IsSharedWithoutADigestToo) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  ASSERT_EQ(::unlink((repository_->path(first.name) + "/.snapwheel/index").c_str()), 0);
  const SnapshotOutcome second = take();
  expectAt(volumeOf(second) + "/srv/huge", "in the middle");
  EXPECT_EQ(second.manifest.copied, isOnBtrfs() ? second.manifest.copied : 0U);
}

// As the digests of such files were others.
TEST_P(HugeFile, OfAnEarlierFormatIsNotCalledDamaged) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  const std::string path = repository_->path(first.name) + "/.snapwheel/index";
  for (const char format : {'3', '2'}) {
    {
      const host::Descriptor file(::open(path.c_str(), O_WRONLY));
      ASSERT_EQ(::pwrite(file.get(), &format, 1, 7), 1);
    }
    const auto index = SourceIndex::open(path);
    ASSERT_NE(index, nullptr);
    SourceIndex::Folder root = index->root();
    SourceIndex::Folder folder = index->below(*root.find("srv"));
    EXPECT_EQ(folder.find("huge")->digest, kNoDigest);
    EXPECT_NE(folder.find("one")->digest, kNoDigest);
  }
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Random changes of two volumes, mounts over a part of them among these, and a snapshot after each
// batch: each snapshot holds what the volumes held. HALYARD_BATCHES is the number of batches (12),
// HALYARD_SEED repeats a failure.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <random>

#include "host/files/descriptor.h"
#include "host/tree/remove_tree.h"
#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/restore_snapshot.h"
#include "support/environment_number.h"
#include "support/inode_flags.h"
#include "support/mounts.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::numberFrom;

using Lines = std::vector<std::string>;

constexpr char kFurther[] = "/vol/data";
constexpr unsigned kFolders = 3;  // On each volume.
constexpr unsigned kFiles = 5;    // In each of these.

/// The source has another file system of the same kind at /vol/data.
class RandomChanges : public SnapshotTest {
 protected:
  void SetUp() override {
    SnapshotTest::SetUp();
    if (IsSkipped()) return;
    const std::string kind = GetParam();
    further_ = std::make_unique<test::MountedVolume>(scratch_, kind == "here" ? "ext4" : kind, 320,
                                                     "source/vol/data");
    if (!further_->reason().empty()) GTEST_SKIP() << further_->reason();
    below_ = std::make_unique<Below>(scratch_ / "below-first", source_);
    belowFurther_ = std::make_unique<Below>(scratch_ / "below-further", source_ + kFurther);
    if (!below_->isThere() || !belowFurther_->isThere()) GTEST_SKIP() << "cannot mount here";
  }
  void TearDown() override {
    for (unsigned number = 0; number < 2 * kFolders; ++number) {
      const std::string folder = folderOf(number);
      while (takeOff(folder)) continue;
      for (unsigned one = 0; one < kFiles; ++one) {
        while (takeOff(fileOf(folder, one))) continue;
      }
    }
  }

  /// A volume as it is below all mounts.
  class Below {
   public:
    Below(const std::string& folder, const std::string& volume)
        : folder_(folder), mount_(test::TestMount::bind(folder, volume)) {
      // What is mounted upon the volume from here on must not show here, too.
      isThere_ =
          mount_.isMounted() && ::mount(nullptr, folder.c_str(), nullptr, MS_PRIVATE, nullptr) == 0;
    }
    bool isThere() const { return isThere_; }
    const std::string& path() const { return folder_; }

   private:
    std::string folder_;
    test::TestMount mount_;
    bool isThere_ = false;
  };

  void change() {
    switch (below(16)) {
      case 0:
        return write(file(), O_TRUNC);
      case 1:
        return write(file(), 0);
      case 2:
        return void(::truncate(file().c_str(), below(9000)));
      case 3:
        return void(::rename(file().c_str(), file().c_str()));
      case 4:
        return void(::rename(folder().c_str(), folder().c_str()));
      case 5:
        return exchange(file(), file());
      case 6:
        return exchange(folder(), folder());
      case 7:
        return void(::link(file().c_str(), file().c_str()));
      case 8:
        return void(::unlink(file().c_str()));
      case 9:
        return void(::chmod(file().c_str(), 0600 + below(64)));
      case 10:
        return setAttribute(file());
      case 11:
        return void(::symlink(std::to_string(below(5)).c_str(), file().c_str()));
      case 12:
        return void(host::removeTree(folder()));
      case 13:
        return changeFlags(below(2) == 0 ? file() : folder());
      case 14:
        return mountOver();
      default:
        return replaceKeepingTimes(file());
    }
  }
  unsigned below(unsigned most) {
    return std::uniform_int_distribution<unsigned>(0, most - 1)(random_);
  }

  /// Few names, so that they meet often.
  std::string folderOf(unsigned number) const {
    return at((number < kFolders ? "srv/d" : "vol/data/d") + std::to_string(number % kFolders));
  }
  static std::string fileOf(const std::string& folder, unsigned number) {
    return folder + "/f" + std::to_string(number);
  }
  std::string folder() {
    const std::string path = folderOf(below(2 * kFolders));
    (void)::mkdir(path.c_str(), 0755);
    return path;
  }
  std::string file() { return fileOf(folder(), below(kFiles)); }

  /// Few sizes, so that other contents often have the same one; the time is often put back.
  void write(const std::string& path, int flags) {
    struct stat before {};
    const bool wasThere = ::lstat(path.c_str(), &before) == 0 && S_ISREG(before.st_mode);
    const host::Descriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | flags, 0644));
    if (!file) return;
    const std::string bytes(below(2) == 0 ? 100 : 5000, static_cast<char>('a' + below(26)));
    ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
    if (wasThere && below(2) == 0) {
      const timespec times[] = {before.st_atim, before.st_mtim};
      (void)::futimens(file.get(), times);
    }
  }
  static void exchange(const std::string& left, const std::string& right) {
    (void)::renameat2(AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(), RENAME_EXCHANGE);
  }
  void setAttribute(const std::string& path) {
    const char value = static_cast<char>('a' + below(26));
    (void)::lsetxattr(path.c_str(), "user.note", &value, 1, 0);
  }
  void changeFlags(const std::string& path) {
    (void)test::setFlags(path, below(2) == 0 ? FS_NODUMP_FL : FS_NODUMP_FL | FS_NOATIME_FL);
  }
  /// Another file system, a folder of the same one, or another file; or what is mounted goes.
  void mountOver() {
    const bool isFile = below(3) == 0;
    const std::string path = isFile ? file() : folder();
    if (takeOff(path)) return;
    const bool isDone = below(2) == 0 && !isFile
                            ? ::mount("none", path.c_str(), "tmpfs", 0, "size=1m") == 0
                            : ::mount((isFile ? file() : folder()).c_str(), path.c_str(), nullptr,
                                      MS_BIND, nullptr) == 0;
    if (isDone) ++mounts_;
  }
  static bool takeOff(const std::string& path) {
    return ::umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0;
  }

  SnapshotOutcome takeAll() const {
    SnapshotRequest all = request();
    all.furtherVolumes = {kFurther};
    return takeSnapshot(*repository_, all);
  }
  /// But for what is left out, and for the further volume's place where that volume is looked at.
  static Lines without(Lines lines, std::string_view left) {
    std::erase_if(lines, [&](const std::string& line) { return line.starts_with(left); });
    return lines;
  }
  Lines expectedFirst() const { return without(listTree(below_->path()), "/proc/"); }
  Lines expectedFurther() const { return listTree(belowFurther_->path()); }

  /// Flags are in no copy of the repository.
  void expectToComeBack(const SnapshotOutcome& outcome) {
    RestoreRequest request;
    request.snapshotPath = repository_->path(outcome.name);
    request.target = scratch_ / "target";
    EXPECT_EQ(restoreSnapshot(request).failed, 0U);
    const std::string further = request.target + kFurther;
    EXPECT_EQ(without(listTree(request.target), kFurther), without(expectedFirst(), kFurther));
    EXPECT_EQ(listTree(further), expectedFurther());
    EXPECT_EQ(without(test::listFlags(request.target), kFurther + 1),
              without(test::listFlags(below_->path()), kFurther + 1));
    EXPECT_EQ(test::listFlags(further), test::listFlags(belowFurther_->path()));
    EXPECT_TRUE(host::removeTree(request.target));
  }
  /// Another file of the same size, mode and times under the same name.
  void replaceKeepingTimes(const std::string& path) {
    struct stat before {};
    if (::lstat(path.c_str(), &before) != 0 || !S_ISREG(before.st_mode)) return;
    const std::string fresh = path + ".fresh";
    {
      const host::Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
      const std::string bytes(static_cast<std::size_t>(before.st_size),
                              static_cast<char>('A' + below(26)));
      ASSERT_EQ(::write(file.get(), bytes.data(), bytes.size()),
                static_cast<ssize_t>(bytes.size()));
      ASSERT_EQ(::fchmod(file.get(), before.st_mode & 07777), 0);
      const timespec times[] = {before.st_atim, before.st_mtim};
      ASSERT_EQ(::futimens(file.get(), times), 0);
    }
    // What is mounted upon stays.
    if (::rename(fresh.c_str(), path.c_str()) != 0) {
      ASSERT_EQ(::unlink(fresh.c_str()), 0);
    }
  }

  std::mt19937 random_;
  std::unique_ptr<test::MountedVolume> further_;
  std::unique_ptr<Below> below_;
  std::unique_ptr<Below> belowFurther_;
  unsigned mounts_ = 0;
};
INSTANTIATE_TEST_SUITE_P(On, RandomChanges, fileSystems(), fileSystemName);

TEST_P(RandomChanges, AreAllInTheSnapshot) {
  const unsigned seed = numberFrom("HALYARD_SEED", std::random_device()());
  SCOPED_TRACE("HALYARD_SEED=" + std::to_string(seed));
  random_.seed(seed);
  const unsigned batches = numberFrom("HALYARD_BATCHES", 12);
  for (unsigned batch = 0; batch < batches; ++batch) {
    for (unsigned changes = 1 + below(12); changes > 0; --changes) change();
    if (below(3) == 0) settle();
    const SnapshotOutcome outcome = takeAll();
    ASSERT_EQ(listTree(volumeOf(outcome)), expectedFirst()) << "batch " << batch;
    ASSERT_EQ(listTree(repository_->path(outcome.name) + "/vol-data"), expectedFurther())
        << "batch " << batch;
    ASSERT_TRUE(outcome.manifest.complete);
    if (below(4) == 0) expectToComeBack(outcome);
    const std::vector<std::string> snapshots = repository_->list().snapshots;
    if (snapshots.size() > 4) removeSnapshots(*repository_, {snapshots[below(4)]});
  }
  EXPECT_THAT(checkRepository(*repository_, CheckDepth::contents).findings, testing::IsEmpty());
  RecordProperty("mounts", std::to_string(mounts_));
}

}  // namespace
}  // namespace halyard::snapwheel

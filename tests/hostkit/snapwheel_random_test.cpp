// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Random changes of a tree, a snapshot after each batch of them: each snapshot holds what the tree
// held. HALYARD_BATCHES is the number of batches (12), HALYARD_SEED repeats a failure.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <random>

#include "host/files/descriptor.h"
#include "host/tree/remove_tree.h"
#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/restore_snapshot.h"
#include "support/environment_number.h"
#include "support/inode_flags.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::numberFrom;

class RandomChanges : public SnapshotTest {
 protected:
  void change() {
    switch (below(15)) {
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
      default:
        return replaceKeepingTimes(file());
    }
  }
  unsigned below(unsigned most) {
    return std::uniform_int_distribution<unsigned>(0, most - 1)(random_);
  }

  /// Few names, so that they meet often.
  std::string folder() {
    const std::string path = at("srv/d" + std::to_string(below(3)));
    (void)::mkdir(path.c_str(), 0755);
    return path;
  }
  std::string file() { return folder() + "/f" + std::to_string(below(5)); }

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
  /// Flags are in no copy of the repository.
  void expectToComeBack(const SnapshotOutcome& outcome) {
    RestoreRequest request;
    request.snapshotPath = repository_->path(outcome.name);
    request.target = scratch_ / "target";
    EXPECT_EQ(restoreSnapshot(request).failed, 0U);
    EXPECT_EQ(listTree(request.target), expected());
    EXPECT_EQ(test::listFlags(request.target), test::listFlags(source_));
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
    ASSERT_EQ(::rename(fresh.c_str(), path.c_str()), 0);
  }

  std::mt19937 random_;
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
    const SnapshotOutcome outcome = take();
    ASSERT_EQ(listTree(volumeOf(outcome)), expected()) << "batch " << batch;
    ASSERT_TRUE(outcome.manifest.complete);
    if (below(4) == 0) expectToComeBack(outcome);
    const std::vector<std::string> snapshots = repository_->list().snapshots;
    if (snapshots.size() > 4) removeSnapshots(*repository_, {snapshots[below(4)]});
  }
  EXPECT_THAT(checkRepository(*repository_, CheckDepth::contents).findings, testing::IsEmpty());
}

}  // namespace
}  // namespace halyard::snapwheel

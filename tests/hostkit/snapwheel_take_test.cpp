// Snapshots of real trees on real file systems: what they hold, what they share, how they fail.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <thread>

#include "host/files.h"
#include "host/task.h"
#include "snapwheel/failure.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/subvolume.h"
#include "snapwheel/take_snapshot.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::MountedVolume;
using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Where two files of one file system share their data, whichever way the engine does it.
bool isShared(const std::string& left, const std::string& right) {
  struct stat one {};
  struct stat other {};
  EXPECT_EQ(::stat(left.c_str(), &one), 0) << left;
  EXPECT_EQ(::stat(right.c_str(), &other), 0) << right;
  return one.st_ino == other.st_ino;  // Inode numbers stay in a btrfs snapshot, too.
}

/// A source tree with one of everything, and a repository on the file system under test.
class TakeSnapshot : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string kind = GetParam();
    if (kind != "here") {
      volume_ = std::make_unique<MountedVolume>(scratch_, kind, 320);
      if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
      destination_ = volume_->path();
    } else {
      destination_ = scratch_.makeFolder("destination");
    }
    source_ = scratch_.makeFolder("source");
    repository_ = std::make_unique<Repository>(destination_, "files1");
    fillSource();
  }

  void fillSource() {
    put("etc/passwd", "root:x:0:0::/root:/bin/sh\nada:x:1815:1816::/:/bin/sh\n");
    put("etc/group", "root:x:0:\nengine:x:1816:\n");
    put("etc/hosts", "127.0.0.1 localhost\n");
    put("srv/one", "the same");
    put("srv/deep/er/two", std::string(100000, 'x'));
    put(".Halyards/.halyardSignature", "signature");
    put(".Halyards/depotHost/etc/x", "x");
    put("proc/1/status", "left out");
    ASSERT_EQ(::link(at("srv/one").c_str(), at("srv/deep/other-name").c_str()), 0);
    ASSERT_EQ(::symlink("../nowhere", at("srv/dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("srv/fifo").c_str(), 0620), 0);
    ASSERT_EQ(::mknod(at("srv/null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    ASSERT_EQ(::chown(at("srv/deep").c_str(), 1815, 1816), 0);
    ASSERT_EQ(::chown(at("etc/hosts").c_str(), 1815, 1816), 0);
    ASSERT_EQ(::chmod(at("etc/hosts").c_str(), 06755), 0);
    ASSERT_EQ(::chmod(at("srv/deep/er").c_str(), 01700), 0);
    ASSERT_EQ(::lsetxattr(at("srv/one").c_str(), "user.note", "kept", 4, 0), 0);
    // A list for one more user: version 2, then owner, user 1815, group, mask, others.
    const std::string list(
        "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\x17\7\0\0\4\0\4\0\377\377\377\377"
        "\x10\0\4\0\377\377\377\377\x20\0\0\0\377\377\377\377",
        44);
    ASSERT_EQ(::lsetxattr(at("srv/deep/er/two").c_str(), "system.posix_acl_access", list.data(),
                          list.size(), 0),
              0);
    settle();
  }

  /// Waits until what was changed is old enough for its change time to prove something.
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

  std::string at(const std::string& path) const { return source_ + "/" + path; }
  void put(const std::string& path, const std::string& bytes) const {
    scratch_.write("source/" + path, bytes);
  }

  SnapshotRequest request() const {
    SnapshotRequest request;
    request.source = source_;
    request.exclusions = Exclusions::parse("/proc/*\n");
    request.machineLock = scratch_ / "lock";
    return request;
  }
  SnapshotOutcome take() const { return takeSnapshot(*repository_, request()); }
  /// In a child: takes two snapshots as a machine of its own would.
  int actAsHost(int host) const {
    try {
      const Repository own(destination_, "host" + std::to_string(host));
      SnapshotRequest ownRequest = request();
      ownRequest.machineLock = scratch_ / ("lock" + std::to_string(host));
      takeSnapshot(own, ownRequest);
      takeSnapshot(own, ownRequest);
      return 0;
    } catch (const Failure&) {
      return 1;
    }
  }
  std::string volumeOf(const SnapshotOutcome& outcome) const {
    return repository_->path(outcome.name) + "/System";
  }
  /// The source as a snapshot of it must be.
  std::vector<std::string> expected() const {
    auto listing = listTree(source_);
    std::erase_if(listing, [](const std::string& line) { return line.starts_with("/proc/"); });
    return listing;
  }

  Scratch scratch_;
  std::unique_ptr<MountedVolume> volume_;
  std::string destination_;
  std::string source_;
  std::unique_ptr<Repository> repository_;
};

INSTANTIATE_TEST_SUITE_P(On, TakeSnapshot, testing::Values("here", "ext4", "btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_P(TakeSnapshot, HoldsEverythingThatWasNotLeftOut) {
  const SnapshotOutcome outcome = take();
  EXPECT_EQ(listTree(volumeOf(outcome)), expected());
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_TRUE(host::isDirectory(volumeOf(outcome) + "/.Halyards/depotHost"));
  EXPECT_TRUE(host::isDirectory(volumeOf(outcome) + "/proc"));
}

TEST_P(TakeSnapshot, LeavesOnlyTheSnapshotAndTheLatestLink) {
  const SnapshotOutcome outcome = take();
  EXPECT_THAT(host::listDirectory(repository_->hostFolder()),
              ElementsAre(".lock", outcome.name, "Latest"));
  EXPECT_EQ(repository_->latest(), outcome.name);
}

TEST_P(TakeSnapshot, RecordsWhatItDid) {
  const SnapshotOutcome outcome = take();
  const auto manifest = readManifest(repository_->path(outcome.name));
  ASSERT_TRUE(manifest.has_value());
  EXPECT_EQ(manifest->computer, "files1");
  EXPECT_EQ(manifest->volume, "System");
  EXPECT_EQ(manifest->source, source_);
  EXPECT_EQ(manifest->started, outcome.name);
  EXPECT_FALSE(manifest->finished.empty());
  EXPECT_EQ(manifest->reference, "");
  EXPECT_EQ(manifest->items, expected().size());
  EXPECT_EQ(manifest->copied, 7U);
}

TEST_P(TakeSnapshot, RecordsTheNamesOfOwners) {
  const auto names = readOwnerNames(repository_->path(take().name));
  ASSERT_TRUE(names.has_value());
  EXPECT_THAT(names->users, ElementsAre(std::pair(0U, "root"), std::pair(1815U, "ada")));
  EXPECT_THAT(names->groups, ElementsAre(std::pair(0U, "root"), std::pair(1816U, "engine")));
}

TEST_P(TakeSnapshot, AnUnchangedSourceIsSharedWithThePreviousSnapshot) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(second.manifest.reference, first.name);
  EXPECT_EQ(second.manifest.copied, 0U);
  EXPECT_EQ(second.manifest.items, first.manifest.items);
  EXPECT_TRUE(isShared(volumeOf(first) + "/etc/hosts", volumeOf(second) + "/etc/hosts"));
  EXPECT_TRUE(
      isShared(volumeOf(first) + "/srv/deep/er/two", volumeOf(second) + "/srv/deep/er/two"));
}

TEST_P(TakeSnapshot, ANewSnapshotHasWhatChangedAndTheOldOneKeepsWhatWas) {
  const SnapshotOutcome first = take();
  const auto before = listTree(volumeOf(first));
  put("etc/hosts", "127.0.0.1 localhost\n::1 localhost\n");
  put("srv/new/file", "new");
  ASSERT_EQ(::chmod(at("srv/deep/er/two").c_str(), 0600), 0);
  ASSERT_EQ(::unlink(at("srv/dangling").c_str()), 0);
  ASSERT_EQ(::symlink("elsewhere", at("srv/dangling").c_str()), 0);
  ASSERT_EQ(::unlink(at("srv/fifo").c_str()), 0);
  ASSERT_EQ(::mkdir(at("srv/fifo").c_str(), 0711), 0);
  ASSERT_TRUE(host::removeItem(at(".Halyards")));

  const SnapshotOutcome second = take();

  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(listTree(volumeOf(first)), before);
  EXPECT_EQ(second.manifest.copied, 3U);
}

TEST_P(TakeSnapshot, AFolderThatBecameAFileIsReplaced) {
  take();
  ASSERT_TRUE(host::removeItem(at("srv/deep")));
  put("srv/deep", "a file now");
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, SeesAChangedAttribute) {
  const SnapshotOutcome first = take();
  ASSERT_EQ(::lsetxattr(at("etc/passwd").c_str(), "user.note", "new", 3, 0), 0);
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_FALSE(isShared(volumeOf(first) + "/etc/passwd", volumeOf(second) + "/etc/passwd") &&
               !isOnBtrfs(destination_));
}

TEST_P(TakeSnapshot, FollowsHardLinksThatAreMadeAndUndone) {
  take();
  ASSERT_EQ(::unlink(at("srv/deep/other-name").c_str()), 0);
  put("srv/deep/other-name", "the same");
  ASSERT_EQ(::link(at("etc/hosts").c_str(), at("etc/hosts2").c_str()), 0);
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  ASSERT_EQ(::rename(at("srv/deep").c_str(), at("srv/moved").c_str()), 0);
  ASSERT_EQ(::unlink(at("etc/hosts").c_str()), 0);
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, WorksWithoutTheRecordOfThePreviousOne) {
  const SnapshotOutcome first = take();
  const std::string records = repository_->path(first.name) + "/.snapwheel";
  if (isSubvolume(repository_->path(first.name))) {
    ASSERT_EQ(setReadOnly(repository_->path(first.name), false), 0);
  }
  ASSERT_TRUE(host::removeItem(records));
  put("etc/hosts", "changed");
  const SnapshotOutcome second = take();
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(second.manifest.copied, isOnBtrfs(destination_) ? second.manifest.copied : 1U);
}

TEST_P(TakeSnapshot, LeavesOutWhatIsNewlyExcluded) {
  take();
  SnapshotRequest without = request();
  without.exclusions.add("/srv/deep");
  const SnapshotOutcome second = takeSnapshot(*repository_, without);
  EXPECT_FALSE(Scratch::stands(volumeOf(second) + "/srv/deep"));
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, TakesOverWhatAnInterruptedRunLeft) {
  const SnapshotOutcome first = take();
  SnapshotOutcome second = take();
  // As a run that was ended half way: an earlier name, its own manifest, some files missing, one
  // half written.
  const std::string folder = repository_->path(second.name);
  if (isSubvolume(folder)) {
    ASSERT_EQ(setReadOnly(folder, false), 0);
  }
  second.manifest.finished = "";
  ASSERT_TRUE(writeManifest(folder, second.manifest));
  ASSERT_TRUE(host::removeItem(folder + "/System/etc/hosts"));
  ASSERT_TRUE(host::removeItem(folder + "/System/srv/one"));
  ASSERT_TRUE(host::writeFile(folder + "/System/srv/one", "the"));
  ASSERT_TRUE(host::writeFile(folder + "/System/srv/stray", "of another time"));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);
  put("etc/passwd", "root:x:0:0::/root:/bin/sh\n");

  testing::internal::CaptureStderr();
  const SnapshotOutcome third = take();

  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("an interrupted snapshot is taken over: " + second.name + ".inProgress"));
  EXPECT_EQ(listTree(volumeOf(third)), expected());
  EXPECT_THAT(repository_->list().inProgress, IsEmpty());
  EXPECT_EQ(Scratch::contents(volumeOf(first) + "/srv/one"), "the same");
}

TEST_P(TakeSnapshot, RemovesWhatWasInterruptedBeforeTheHostStartedAnew) {
  SnapshotOutcome first = take();
  const std::string folder = repository_->path(first.name);
  if (isSubvolume(folder)) {
    ASSERT_EQ(setReadOnly(folder, false), 0);
  }
  first.manifest.boot = "another start";
  ASSERT_TRUE(writeManifest(folder, first.manifest));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);

  testing::internal::CaptureStderr();
  const SnapshotOutcome second = take();

  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("an interrupted snapshot is removed: " + first.name + ".inProgress"));
  EXPECT_EQ(second.manifest.copied, 7U);
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{second.name});
}

TEST_P(TakeSnapshot, ASecondOneAtTheSameTimeIsRefused) {
  repository_->create();
  const HostLock lock(*repository_, scratch_ / "lock");
  try {
    take();
    FAIL() << "two at a time";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), hostkit::kBusy);
    EXPECT_THAT(failure.what(), HasSubstr("process " + std::to_string(::getpid())));
  }
}

TEST_P(TakeSnapshot, SeveralHostsShareARepository) {
  constexpr int kHosts = 4;
  std::vector<pid_t> hosts;
  for (int host = 0; host < kHosts; ++host) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(actAsHost(host));
    hosts.push_back(child);
  }
  for (const pid_t host : hosts) {
    int status = -1;
    ASSERT_EQ(::waitpid(host, &status, 0), host);
    EXPECT_EQ(status, 0);
  }
  for (int host = 0; host < kHosts; ++host) {
    const Repository own(destination_, "host" + std::to_string(host));
    const std::vector<std::string> snapshots = own.list().snapshots;
    ASSERT_EQ(snapshots.size(), 2U);
    EXPECT_EQ(own.latest(), snapshots.back());
    EXPECT_THAT(own.list().inProgress, IsEmpty());
    EXPECT_EQ(listTree(own.path(snapshots.back()) + "/System"), expected());
  }
}

TEST_P(TakeSnapshot, TheRepositoryNeverCopiesItself) {
  SnapshotRequest around = request();
  around.source = scratch_.path();
  around.exclusions.addPath(std::string(GetParam()) + ".img");
  takeSnapshot(*repository_, around);
  const SnapshotOutcome second = takeSnapshot(*repository_, around);
  EXPECT_TRUE(Scratch::stands(volumeOf(second) + "/source/etc/hosts"));
  EXPECT_FALSE(Scratch::stands(volumeOf(second) + "/destination/Archives.snapdb"));
}

TEST_P(TakeSnapshot, RefusesASourceInTheRepository) {
  SnapshotRequest inside = request();
  inside.source = repository_->folder();
  repository_->create();
  EXPECT_THROW(takeSnapshot(*repository_, inside), Failure);
}

TEST_P(TakeSnapshot, AFullDestinationIsToldAndLeavesTheOthersUntouched) {
  if (volume_ == nullptr) GTEST_SKIP() << "needs a file system of its own";
  const SnapshotOutcome first = take();
  const auto before = listTree(volumeOf(first));
  const std::string piece(std::size_t{8} << 20, 'y');
  for (int number = 0; number < 48; ++number) {
    put("big/" + std::to_string(number), std::to_string(number) + piece);
  }
  try {
    take();
    FAIL() << "384 MB on 320 MB";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), hostkit::kFailure);
    EXPECT_THAT(failure.what(), HasSubstr("No space left on device"));
    EXPECT_THAT(failure.what(), HasSubstr("the earlier snapshots are untouched"));
  }
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{first.name});
  EXPECT_THAT(repository_->list().inProgress, IsEmpty());
  EXPECT_EQ(listTree(volumeOf(first)), before);
  ASSERT_TRUE(host::removeItem(at("big")));
  EXPECT_EQ(listTree(volumeOf(take())), expected());
}

TEST_P(TakeSnapshot, AReadOnlyDestinationIsTold) {
  if (volume_ == nullptr) GTEST_SKIP() << "needs a file system of its own";
  const SnapshotOutcome first = take();
  ASSERT_TRUE(volume_->remount(true));
  try {
    take();
    FAIL() << "written to a read-only file system";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("Read-only file system"));
  }
  EXPECT_EQ(repository_->list().snapshots, std::vector<std::string>{first.name});
}

TEST_P(TakeSnapshot, RemovalLeavesTheOtherSnapshotsWhole) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  removeSnapshots(*repository_, {first.name});
  EXPECT_EQ(listTree(volumeOf(second)), expected());
  EXPECT_EQ(repository_->latest(), second.name);
  removeSnapshots(*repository_, {second.name});
  EXPECT_EQ(repository_->latest(), std::nullopt);
  EXPECT_THAT(host::listDirectory(repository_->hostFolder()), ElementsAre(".lock"));
}

TEST_P(TakeSnapshot, RemovalOfTheLatestMovesTheLink) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  removeSnapshots(*repository_, {second.name});
  EXPECT_EQ(repository_->latest(), first.name);
}

TEST_P(TakeSnapshot, OnBtrfsIsAReadOnlySubvolume) {
  const SnapshotOutcome outcome = take();
  const std::string path = repository_->path(outcome.name);
  EXPECT_EQ(isSubvolume(path), std::string(GetParam()) == "btrfs");
  if (!isSubvolume(path)) return;
  EXPECT_FALSE(host::writeFile(path + "/System/etc/hosts", "x"));
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether damage in a snapshot is found, named with all that share it, and not passed on.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/damage.h"
#include "snapwheel/manifest.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/snapshot_lock.h"

namespace halyard::snapwheel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class Verify : public SnapshotTest {
 protected:
  CheckReport verify(const VerifyPart& part = {}) const {
    return checkRepository(*repository_, CheckDepth::contents, part);
  }
  static std::vector<Finding> problemsOf(const CheckReport& report) {
    std::vector<Finding> problems;
    for (const Finding& finding : report.findings) {
      if (finding.severity == Severity::problem) problems.push_back(finding);
    }
    return problems;
  }
  /// Turns one bit of a file of a snapshot, whose size and times stay.
  void flip(const SnapshotOutcome& outcome, const std::string& path) const {
    makeWritable(outcome);
    const host::Descriptor file(::open((volumeOf(outcome) + "/" + path).c_str(), O_RDWR));
    struct stat before {};
    char byte = 0;
    ASSERT_EQ(::fstat(file.get(), &before), 0);
    ASSERT_EQ(::pread(file.get(), &byte, 1, 2), 1);
    byte = static_cast<char>(byte ^ 1);
    ASSERT_EQ(::pwrite(file.get(), &byte, 1, 2), 1);
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::futimens(file.get(), times), 0);
    ASSERT_EQ(::fsync(file.get()), 0);
  }
};
INSTANTIATE_TEST_SUITE_P(On, Verify, fileSystems(), fileSystemName);

TEST_P(Verify, SoundSnapshotsAreSound) {
  take();
  put("etc/hosts", "changed\n");
  settle();
  take();
  const CheckReport report = verify();
  EXPECT_THAT(report.findings, IsEmpty());
  EXPECT_GT(report.bytesRead, 100000U);
}

TEST_P(Verify, AFileThatSeveralSnapshotsShareIsReadOnce) {
  take();
  const std::uint64_t once = verify().bytesRead;
  take();
  take();
  // On btrfs small files lie in the records of the volume itself, one a snapshot.
  EXPECT_LE(verify().bytesRead, once + 2000U);
}

TEST_P(Verify, WhatComesAndGoesMeanwhileIsNoProblem) {
  constexpr int kRounds = 6;
  for (int number = 0; number < 300; ++number) put("many/" + std::to_string(number), "x");
  settle();
  take();
  std::atomic<bool> isOver = false;
  std::thread other([&] {
    for (int round = 0; round < kRounds; ++round) {
      const std::string name = take().name;
      const SnapshotLock lock(*repository_, scratch_ / "lock");
      removeSnapshots(*repository_, {name});
    }
    isOver = true;
  });
  std::vector<std::string> problems;
  while (!isOver) {
    for (const Finding& finding : problemsOf(verify())) {
      problems.push_back(finding.path + ": " + finding.text);
    }
  }
  other.join();
  EXPECT_THAT(problems, IsEmpty());
}

TEST_P(Verify, ADeviceInAFilesPlaceIsNotOpened) {
  if (::geteuid() != 0) GTEST_SKIP() << "makes a device";
  put("file", "data");
  const SnapshotOutcome taken = take();
  makeWritable(taken);
  const std::string path = volumeOf(taken) + "/file";
  ASSERT_EQ(::unlink(path.c_str()), 0);
  // Of no driver: it cannot be opened.
  ASSERT_EQ(::mknod(path.c_str(), S_IFCHR | 0600, makedev(511, 77)), 0);
  const CheckReport report = verify();
  ASSERT_THAT(problemsOf(report), SizeIs(1));
  EXPECT_THAT(problemsOf(report)[0].text, HasSubstr("is no file any more"));
}

TEST_P(Verify, OneWrongBitIsFoundWithAllThatShareIt) {
  const SnapshotOutcome first = take();
  if (isOnBtrfs()) GTEST_SKIP() << "a write there would part the snapshots";
  const SnapshotOutcome second = take();
  flip(first, "srv/deep/er/two");

  const CheckReport report = verify();

  ASSERT_THAT(report.damaged, SizeIs(1));
  EXPECT_EQ(report.damaged[0].path, "srv/deep/er/two");
  EXPECT_EQ(report.damaged[0].reason, "does not hold what was put there");
  EXPECT_THAT(report.damaged[0].snapshots, ElementsAre(first.name, second.name));
  const auto problems = problemsOf(report);
  ASSERT_THAT(problems, SizeIs(1));
  EXPECT_THAT(problems[0].text, HasSubstr(first.name + ", " + second.name));
}

TEST_P(Verify, WhatIsDamagedIsCopiedAfreshAndThenSound) {
  const SnapshotOutcome first = take();
  flip(first, "etc/hosts");
  flip(first, "srv/one");
  EXPECT_THAT(verify().damaged, SizeIs(2));

  const SnapshotOutcome second = take();

  EXPECT_EQ(test::listTree(volumeOf(second)), expected());
  const CheckReport report = verify();
  ASSERT_THAT(report.damaged, SizeIs(2));
  for (const DamagedFile& file : report.damaged) {
    EXPECT_THAT(file.snapshots, ElementsAre(first.name)) << file.path;
  }
}

TEST_P(Verify, AFileThatIsGoneOrAnotherKindIsDamaged) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  ASSERT_EQ(::unlink((volumeOf(first) + "/etc/hosts").c_str()), 0);
  ASSERT_EQ(::unlink((volumeOf(first) + "/etc/group").c_str()), 0);
  ASSERT_EQ(::mkfifo((volumeOf(first) + "/etc/group").c_str(), 0644), 0);
  const CheckReport report = verify();
  EXPECT_THAT(report.damaged, SizeIs(2));
}

TEST_P(Verify, TheRecordGoesOnceTheFileIsSoundAgain) {
  const SnapshotOutcome first = take();
  flip(first, "etc/hosts");
  verify();
  EXPECT_THAT(readDamage(repository_->path(first.name)).paths, ElementsAre("etc/hosts"));
  flip(first, "etc/hosts");
  EXPECT_THAT(verify().damaged, IsEmpty());
  EXPECT_THAT(readDamage(repository_->path(first.name)).paths, IsEmpty());
}

TEST_P(Verify, AllPartsTogetherReadEveryFileOnce) {
  const SnapshotOutcome first = take();
  flip(first, "etc/hosts");
  std::size_t found = 0;
  std::uint64_t bytes = 0;
  for (std::uint64_t number = 1; number <= 3; ++number) {
    const CheckReport report = verify({number, 3});
    found += report.damaged.size();
    bytes += report.bytesRead;
    if (!report.damaged.empty()) {
      EXPECT_THAT(readDamage(repository_->path(first.name)).paths, ElementsAre("etc/hosts"));
    }
  }
  EXPECT_EQ(found, 1U);
  EXPECT_EQ(bytes, verify().bytesRead);
  EXPECT_THAT(readDamage(repository_->path(first.name)).paths, ElementsAre("etc/hosts"))
      << "a part does not forget what another one found";
}

TEST_P(Verify, ASnapshotWithoutDigestsIsTold) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  ASSERT_EQ(::unlink((repository_->path(first.name) + "/.snapwheel/index").c_str()), 0);
  const CheckReport report = verify();
  ASSERT_THAT(report.findings, SizeIs(1));
  EXPECT_EQ(report.findings[0].severity, Severity::note);
  EXPECT_THAT(report.findings[0].text, HasSubstr("no digests"));
}

TEST_P(Verify, ADamagedIndexIsAProblem) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  {
    const std::string index = repository_->path(first.name) + "/.snapwheel/index";
    const host::Descriptor file(::open(index.c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), "!", 1, 100), 1);
  }
  const CheckReport report = verify();
  EXPECT_GT(report.bytesRead, 100000U);
  ASSERT_THAT(report.findings, SizeIs(1));
  EXPECT_EQ(report.findings[0].severity, Severity::problem);
  EXPECT_THAT(report.findings[0].text, HasSubstr("its index is damaged"));
}

TEST_P(Verify, WhatCannotBeRecordedHidesNothing) {
  const SnapshotOutcome first = take();
  flip(first, "etc/hosts");
  // Nothing can be written from here on.
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto action = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit none = {0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);

  const CheckReport report = verify();

  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  (void)std::signal(SIGXFSZ, action);
  EXPECT_THAT(report.damaged, SizeIs(1));
  EXPECT_THAT(problemsOf(report), SizeIs(2)) << "the file, and that it is not recorded";
}

TEST_P(Verify, ARecordThatCannotBeReadProvesNothingUntilAllWasRead) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  const std::string record = repository_->path(first.name) + "/.snapwheel/damaged";
  ASSERT_EQ(::mkdir(record.c_str(), 0700), 0);
  EXPECT_TRUE(readDamage(repository_->path(first.name)).covers("etc/hosts"));

  const SnapshotOutcome second = take();

  EXPECT_EQ(second.manifest.linked, 0U);
  EXPECT_EQ(test::listTree(volumeOf(second)), expected());
  EXPECT_TRUE(readDamage(repository_->path(second.name)).isEmpty());
  EXPECT_THAT(problemsOf(verify({1, 2})), SizeIs(1)) << "a part knows nothing of the others";
  EXPECT_TRUE(readDamage(repository_->path(first.name)).isUnreadable);
  EXPECT_THAT(problemsOf(verify()), SizeIs(1));
  EXPECT_TRUE(readDamage(repository_->path(first.name)).isEmpty());
  EXPECT_THAT(problemsOf(verify()), IsEmpty());
}

TEST_P(Verify, ADamagedFolderHidesNoDamageBelowIt) {
  const SnapshotOutcome first = take();
  flip(first, "srv/deep/er/two");
  verify();
  makeWritable(first);
  const std::string folder = volumeOf(first) + "/srv/deep/er";
  ASSERT_EQ(::rename(folder.c_str(), (folder + "-away").c_str()), 0);
  ASSERT_EQ(::mkfifo(folder.c_str(), 0600), 0);
  EXPECT_THAT(verify().damaged, SizeIs(1));
  const DamageRecord record = readDamage(repository_->path(first.name));
  EXPECT_THAT(record.paths, UnorderedElementsAre("srv/deep/er", "srv/deep/er/two"));
}

TEST_P(Verify, AMarkThatTheEngineItselfLeftIsSound) {
  put(".Halyards/depotHost/" + std::string(paths::kIncompleteMark), "its database was left out\n");
  // The repository is never copied, so that the service lacks what is counted there.
  repository_ = std::make_unique<Repository>(
      scratch_.makeFolder("source/.Halyards/depotHost/backup"), "files1");
  settle();
  take();
  EXPECT_THAT(verify().damaged, IsEmpty());
}

TEST_P(Verify, ATornFileIsNoItemThatLacks) {
  const SnapshotOutcome first = take();
  makeWritable(first);
  Manifest manifest = first.manifest;
  manifest.complete = false;
  manifest.tornCount = 1;
  ASSERT_TRUE(writeManifest(repository_->path(first.name), manifest));
  const CheckReport report = verify();
  ASSERT_THAT(report.findings, SizeIs(1));
  EXPECT_THAT(report.findings[0].text, HasSubstr("1 files changed whenever they were read"));
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Snapshots of several volumes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>

#include "further_volumes.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "product/snapshot_metadata.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/failure.h"
#include "snapwheel/snapshot_diff.h"
#include "snapwheel/snapshot_find.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

INSTANTIATE_TEST_SUITE_P(On, FurtherVolumes, fileSystems(), fileSystemName);

TEST_P(FurtherVolumes, HaveAFolderEach) {
  const SnapshotOutcome outcome = takeAll();
  EXPECT_TRUE(outcome.manifest.complete);
  EXPECT_EQ(listTree(further(outcome)), listTree(at("vol/data")));
  EXPECT_EQ(withoutVolume(listTree(volumeOf(outcome))), withoutVolume(expected()));
  EXPECT_THAT(host::listDirectory(volumeOf(outcome) + "/vol/data"), IsEmpty());

  const auto manifest = readManifest(repository_->path(outcome.name));
  ASSERT_TRUE(manifest.has_value());
  ASSERT_EQ(manifest->volumes.size(), 2U);
  const VolumeRecord& record = manifest->volumes.back();
  EXPECT_EQ(record.folder, "vol-data");
  EXPECT_EQ(record.mountPoint, "/vol/data");
  EXPECT_EQ(record.type, "ext4");
  EXPECT_EQ(record.uuid.size(), 36U);
  EXPECT_EQ(record.copied, 3U);
  EXPECT_EQ(manifest->items, manifest->volumes.front().items + record.items);
  EXPECT_EQ(manifest->copiedBytes, manifest->volumes.front().copiedBytes + record.copiedBytes);
  EXPECT_THAT(findings(CheckDepth::contents), IsEmpty());
}

TEST_P(FurtherVolumes, ShareWithThePreviousSnapshotEach) {
  const SnapshotOutcome first = takeAll();
  put("vol/data/one", "changed");
  const SnapshotOutcome second = takeAll();
  const VolumeRecord& record = second.manifest.volumes.back();
  EXPECT_EQ(record.reference, first.name);
  EXPECT_EQ(record.copied, 1U);
  EXPECT_EQ(record.linked, 2U);
  EXPECT_EQ(second.manifest.volumes.front().copied, 0U);
  EXPECT_EQ(listTree(further(second)), listTree(at("vol/data")));
  EXPECT_THAT(findings(CheckDepth::contents), IsEmpty());
}

TEST_P(FurtherVolumes, AreSearchedByTheWholePathFromTheirTopOn) {
  takeAll();
  const auto found = [this](const std::string& pattern) {
    std::vector<std::string> paths;
    for (const FoundItem& item : findInSnapshots(*repository_, pattern).items) {
      paths.push_back(item.path);
    }
    return paths;
  };
  EXPECT_THAT(found("/vol/data/one"), ElementsAre("vol/data/one"));
  EXPECT_THAT(found("/vol/data/d*"), ElementsAre("vol/data/deep"));
  EXPECT_THAT(found("/vol/data/deep/"), ElementsAre("vol/data/deep"));
  EXPECT_THAT(found("/vol/data/deep/*"), ElementsAre("vol/data/deep/two"));
  EXPECT_THAT(found("/vol/data"), ElementsAre("vol/data"));
}

TEST_P(FurtherVolumes, OneThatIsNewIsCopiedAndTheFirstIsStillShared) {
  const SnapshotOutcome first = take();
  // As the engine wrote it before there were further volumes.
  makeWritable(first);
  nlohmann::json manifest = toJson(first.manifest);
  manifest["format"] = 2;
  manifest.erase("volumes");
  manifest.erase("absentVolumes");
  ASSERT_TRUE(host::writeFile(repository_->path(first.name) + "/.snapwheel/manifest.json",
                              manifest.dump()));
  const SnapshotOutcome second = takeAll();
  EXPECT_EQ(second.manifest.volumes.front().copied, 0U);
  EXPECT_EQ(second.manifest.volumes.back().reference, "");
  EXPECT_EQ(second.manifest.volumes.back().copied, 3U);
  EXPECT_EQ(listTree(further(second)), listTree(at("vol/data")));
}

TEST_P(FurtherVolumes, OneThatIsNotMountedMakesTheSnapshotPartial) {
  further_->unmount();
  testing::internal::CaptureStderr();
  const SnapshotOutcome outcome = takeAll();
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      HasSubstr("the volume at /vol/data is not in the snapshot: nothing is mounted there"));
  EXPECT_FALSE(outcome.manifest.complete);
  EXPECT_FALSE(outcome.manifest.lacksNothing());
  EXPECT_THAT(outcome.manifest.absentVolumes, ElementsAre("/vol/data"));
  EXPECT_EQ(outcome.manifest.missing.front().path, "vol/data");
  EXPECT_FALSE(Scratch::stands(further(outcome)));
  EXPECT_THAT(findings(CheckDepth::structure),
              Contains(HasSubstr("lacks the volume at /vol/data, which could not be read then")));
}

TEST_P(FurtherVolumes, OneThatWasAwaySharesWithTheSnapshotBefore) {
  const SnapshotOutcome first = takeAll();
  const SnapshotOutcome without = take();
  EXPECT_FALSE(Scratch::stands(further(without)));
  EXPECT_EQ(without.manifest.volumes.size(), 1U);
  const SnapshotOutcome third = takeAll();
  const VolumeRecord& record = third.manifest.volumes.back();
  EXPECT_EQ(record.reference, first.name);
  EXPECT_EQ(record.copied, isOnBtrfs() ? 3U : 0U);  // No link leads into another subvolume.
  EXPECT_EQ(listTree(further(third)), listTree(at("vol/data")));
  EXPECT_THAT(findings(CheckDepth::contents), IsEmpty());
}

TEST_P(FurtherVolumes, CarryNoHandOverFolder) {
  put("vol/data/.Halyards/.halyardSignature", "planted");
  put("vol/data/deep/.Halyards/x", "harmless");
  testing::internal::CaptureStderr();
  const SnapshotOutcome outcome = takeAll();
  const std::string told = testing::internal::GetCapturedStderr();
  const std::string warning = at("vol/data/.Halyards") + ": left out";
  EXPECT_THAT(told, HasSubstr(warning));
  EXPECT_EQ(told.find(warning), told.rfind(warning)) << "told twice";
  EXPECT_FALSE(Scratch::stands(further(outcome) + "/.Halyards"));
  EXPECT_EQ(Scratch::contents(further(outcome) + "/deep/.Halyards/x"), "harmless");
  EXPECT_EQ(findSnapshotMetadataFolder(repository_->path(outcome.name)),
            volumeOf(outcome) + "/.Halyards");

  ASSERT_TRUE(host::removeItem(at("vol/data/.Halyards")));
  ASSERT_EQ(::symlink("deep", at("vol/data/.Halyards").c_str()), 0);
  const SnapshotOutcome second = takeAll();
  EXPECT_FALSE(Scratch::stands(further(second) + "/.Halyards"));
}

TEST_P(FurtherVolumes, ALeftoverThatHoldsAHandOverFolderGivesNone) {
  SnapshotOutcome first = takeAll();
  makeWritable(first);
  const std::string folder = repository_->path(first.name);
  ASSERT_TRUE(host::createDirectory(folder + "/vol-data/.Halyards"));
  first.manifest.finished = "";
  ASSERT_TRUE(writeManifest(folder, first.manifest));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);
  put("vol/data/.Halyards", "a file of the source");
  const SnapshotOutcome second = takeAll();
  EXPECT_FALSE(Scratch::stands(further(second) + "/.Halyards"));
}

TEST_P(FurtherVolumes, ExclusionsMeanTheirWholePath) {
  SnapshotRequest all = requestOfAll();
  all.exclusions = Exclusions::parse("/proc/*\n/vol/data/cache/*\n/one\n");
  const SnapshotOutcome outcome = takeSnapshot(*repository_, all);
  EXPECT_THAT(host::listDirectory(further(outcome)),
              ElementsAre("cache", "deep", "lost+found", "one"));
  EXPECT_THAT(host::listDirectory(further(outcome) + "/cache"), IsEmpty());

  all.exclusions = Exclusions::parse("/proc/*\n/vol\n");
  const SnapshotOutcome without = takeSnapshot(*repository_, all);
  EXPECT_TRUE(without.manifest.complete);
  EXPECT_FALSE(Scratch::stands(further(without)));
}

TEST_P(FurtherVolumes, ALeftoverIsTakenOverInEach) {
  SnapshotOutcome first = takeAll();
  makeWritable(first);
  const std::string folder = repository_->path(first.name);
  first.manifest.finished = "";
  ASSERT_TRUE(writeManifest(folder, first.manifest));
  ASSERT_TRUE(host::removeItem(folder + "/vol-data/one"));
  ASSERT_TRUE(host::writeFile(folder + "/vol-data/stray", "of another time"));
  ASSERT_TRUE(host::createDirectory(folder + "/srv"));
  ASSERT_TRUE(host::writeFile(folder + "/srv/x", "of no volume"));
  ASSERT_EQ(::rename(folder.c_str(), (folder + ".inProgress").c_str()), 0);
  testing::internal::CaptureStderr();
  const SnapshotOutcome second = takeAll();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is taken over"));
  EXPECT_EQ(listTree(further(second)), listTree(at("vol/data")));
  EXPECT_EQ(withoutVolume(listTree(volumeOf(second))), withoutVolume(expected()));
  EXPECT_THAT(host::listDirectory(repository_->path(second.name)),
              ElementsAre(".snapwheel", "System", "vol-data"));
  EXPECT_EQ(second.manifest.volumes.back().copied, 1U);
}

TEST_P(FurtherVolumes, ALinkOnTheWayLeadsNowhere) {
  ASSERT_EQ(::symlink("data", at("vol/link").c_str()), 0);
  ASSERT_EQ(::symlink("vol", at("other").c_str()), 0);
  SnapshotRequest all = request();
  all.furtherVolumes = {"/vol/link", "/other/data", "/vol/nothing"};
  const SnapshotOutcome outcome = takeSnapshot(*repository_, all);
  EXPECT_THAT(outcome.manifest.absentVolumes,
              ElementsAre("/other/data", "/vol/link", "/vol/nothing"));
  EXPECT_THAT(host::listDirectory(repository_->path(outcome.name)),
              ElementsAre(".snapwheel", "System"));
}

TEST_P(FurtherVolumes, ThatCannotBeNamedAreAWrongUsage) {
  for (const char* mountPoint : {"", "/", "vol", "/vol/../etc", "/vol/", "//vol", "/vol/./data"}) {
    SnapshotRequest all = request();
    all.furtherVolumes = {mountPoint};
    EXPECT_THROW(takeSnapshot(*repository_, all), Failure) << mountPoint;
  }
  for (const char* name : {"", ".", "..", ".hidden", "a/b", "vol-data"}) {
    SnapshotRequest all = requestOfAll();
    all.volume = name;
    EXPECT_THROW(takeSnapshot(*repository_, all), Failure) << name;
  }
  EXPECT_THAT(repository_->list().snapshots, IsEmpty());
}

TEST_P(FurtherVolumes, WhatIsDamagedInOneIsNamedAndCopiedAfresh) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  struct stat before {};
  const std::string file = further(first) + "/one";
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  {
    const host::Descriptor opened(::open(file.c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(opened.get(), "X", 1, 0), 1);
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::futimens(opened.get(), times), 0);
  }
  const CheckReport report = checkRepository(*repository_, CheckDepth::contents);
  ASSERT_EQ(report.damaged.size(), 1U);
  EXPECT_EQ(report.damaged.front().path, "vol/data/one");
  EXPECT_THAT(report.damaged.front().snapshots, ElementsAre(first.name));
  const SnapshotOutcome second = takeAll();
  EXPECT_EQ(second.manifest.volumes.back().copied, 1U);
  EXPECT_EQ(Scratch::contents(further(second) + "/one"), "of the volume");
}

TEST_P(FurtherVolumes, OneThatIsGoneFromASnapshotIsAProblem) {
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  ASSERT_TRUE(host::removeItem(further(first) + "/one"));
  EXPECT_THAT(findings(CheckDepth::metadata), ElementsAre(HasSubstr("vol-data holds ")));
  ASSERT_TRUE(host::removeItem(further(first)));
  ASSERT_EQ(::symlink("/etc", further(first).c_str()), 0);
  EXPECT_THAT(findings(CheckDepth::contents),
              ElementsAre(first.name + "/vol-data is gone, or no folder: the snapshot does not " +
                          "hold what was at /vol/data any more"));
}

TEST_P(FurtherVolumes, NothingOfAnotherIsSharedWhenTheOneOfTheRootIsGone) {
  put("one", "not of the one");  // As long as the volume's.
  put("vol/data/one", "of the volume!");
  settle();
  const SnapshotOutcome first = takeAll();
  makeWritable(first);
  ASSERT_TRUE(host::removeItem(volumeOf(first)));
  const SnapshotOutcome second = takeAll();
  EXPECT_EQ(Scratch::contents(volumeOf(second) + "/one"), "not of the one");
  EXPECT_EQ(withoutVolume(listTree(volumeOf(second))), withoutVolume(expected()));
  EXPECT_EQ(listTree(further(second)), listTree(at("vol/data")));
}

TEST_P(FurtherVolumes, OneThatOnlyOneSnapshotHoldsDiffersWhereItIsAskedFor) {
  const SnapshotOutcome with = takeAll();
  const SnapshotOutcome without = take();
  const auto diff = [&](const std::vector<std::string>& paths) {
    std::vector<std::string> told;
    diffSnapshots(*repository_, {with.name, without.name, paths, {}},
                  [&told](const Difference& difference) { told.push_back(difference.path); });
    return told;
  };
  EXPECT_THAT(diff({"/etc"}), IsEmpty());
  EXPECT_THROW(diff({"/nowhere"}), Failure);
  EXPECT_THAT(diff({}), Contains("vol/data"));
  EXPECT_THAT(diff({"/vol"}), Contains("vol/data"));
  EXPECT_THAT(diff({"/vol/data/one"}), ElementsAre("vol/data"));
}

/// The repository itself lies in a volume that is to be copied.
class RepositoryInside : public testing::Test {
 protected:
  void SetUp() override {
    volume_ = std::make_unique<test::MountedVolume>(scratch_, "ext4", 32, "source/vol");
    if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
    scratch_.write("source/vol/file", "x");
    scratch_.makeFolder("source/vol/backup");
  }
  std::vector<std::string> copied(const std::string& mountPoint) const {
    const Repository repository(scratch_ / "source/vol/backup", "files1");
    SnapshotRequest request;
    request.source = scratch_ / "source";
    request.furtherVolumes = {mountPoint};
    request.exclusions = Exclusions::parse("");
    request.machineLock = scratch_ / "lock";
    (void)takeSnapshot(repository, request);
    const std::string name = takeSnapshot(repository, request).name;
    std::vector<std::string> found = listTree(repository.path(name) + mountPoint);
    std::erase_if(found, [](const std::string& line) {
      return line.find("Archives.snapdb") == std::string::npos;
    });
    return found;
  }

  Scratch scratch_;
  std::unique_ptr<test::MountedVolume> volume_;
};

TEST_F(RepositoryInside, IsLeftOut) { EXPECT_THAT(copied("/vol"), IsEmpty()); }

TEST_F(RepositoryInside, IsLeftOutWhereItsVolumeIsMountedOnceMore) {
  const std::string again = scratch_.makeFolder("source/again");
  ASSERT_EQ(::mount((scratch_ / "source/vol").c_str(), again.c_str(), nullptr, MS_BIND, nullptr),
            0);
  EXPECT_THAT(copied("/again"), IsEmpty());
  ASSERT_EQ(::umount2(again.c_str(), MNT_DETACH), 0);
  const std::string part = scratch_.makeFolder("source/part");
  ASSERT_EQ(
      ::mount((scratch_ / "source/vol/backup").c_str(), part.c_str(), nullptr, MS_BIND, nullptr),
      0);
  EXPECT_THAT(copied("/part"), IsEmpty());
  ASSERT_EQ(::umount2(part.c_str(), MNT_DETACH), 0);
}

}  // namespace
}  // namespace halyard::snapwheel

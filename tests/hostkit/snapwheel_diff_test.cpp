// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What differs between snapshots, and where a file is in them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <unistd.h>

#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/system_call.h"
#include "snapshot_test.h"
#include "snapwheel/failure.h"
#include "snapwheel/snapshot_diff.h"
#include "snapwheel/snapshot_find.h"
#include "support/inode_flags.h"

namespace halyard::snapwheel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class SnapshotDiff : public SnapshotTest {
 protected:
  static std::string textOf(const Difference& difference) {
    std::string text = difference.change == Change::added     ? "+"
                       : difference.change == Change::removed ? "-"
                                                              : "~";
    text += difference.path;
    if (difference.contents) text += " contents";
    if (difference.attributes) text += " attributes";
    if (difference.isUnknown) text += " unknown";
    if (difference.items > 1) text += " " + std::to_string(difference.items);
    return text;
  }
  std::vector<std::string> diff(const std::string& older, const std::string& newer,
                                const std::vector<std::string>& paths = {}) const {
    std::vector<std::string> texts;
    diffSnapshots(*repository_, {older, newer, paths, {}},
                  [&](const Difference& difference) { texts.push_back(textOf(difference)); });
    return texts;
  }
  /// "one-three 5": the versions of an item, by the numbers of the snapshots.
  std::vector<std::string> find(const std::string& pattern) const {
    std::vector<std::string> texts;
    for (const FoundItem& item : findInSnapshots(*repository_, pattern).items) {
      for (const FoundVersion& version : item.versions) {
        texts.push_back(item.path + " " + std::to_string(version.snapshots) + " " +
                        std::to_string(version.size));
      }
    }
    return texts;
  }
  void remove(const std::string& path) const { ASSERT_EQ(::unlink(at(path).c_str()), 0); }
};
INSTANTIATE_TEST_SUITE_P(On, SnapshotDiff, fileSystems(), fileSystemName);

TEST_P(SnapshotDiff, OfAnUnchangedSourceIsNone) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  EXPECT_THAT(diff(first.name, second.name), IsEmpty());
}

TEST_P(SnapshotDiff, ReachesWhatNoPathReaches) {
  const std::string name(250, 'n');
  host::Descriptor folder(::open(source_.c_str(), host::kFolderFlags));
  for (int depth = 0; depth < 20; ++depth) {
    ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0755), 0);
    folder = host::Descriptor(::openat(folder.get(), name.c_str(), host::kFolderFlags));
  }
  const host::Descriptor file(::openat(folder.get(), "f", O_WRONLY | O_CREAT, 0644));
  ASSERT_EQ(::pwrite(file.get(), "1", 1, 0), 1);
  settle();
  const SnapshotOutcome first = take();
  EXPECT_THAT(diff(first.name, take().name), IsEmpty());
  ASSERT_EQ(::fchmod(file.get(), 0600), 0);
  settle();
  const auto found = diff(first.name, take().name);
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_TRUE(found.front().ends_with("/f attributes"));
}

TEST_P(SnapshotDiff, TellsWhatWasAddedRemovedAndChanged) {
  const SnapshotOutcome first = take();
  put("etc/hosts", "127.0.0.2 localhost\n");
  put("srv/new/one", "1");
  put("srv/new/two", "2");
  remove("etc/group");
  ASSERT_EQ(::chmod(at("etc/passwd").c_str(), 0600), 0);
  remove("srv/dangling");
  ASSERT_EQ(::symlink("elsewhere", at("srv/dangling").c_str()), 0);
  ASSERT_EQ(::chown(at("srv/deep").c_str(), 1, 1), 0);
  settle();
  const SnapshotOutcome second = take();
  EXPECT_THAT(
      diff(first.name, second.name),
      ElementsAre("-etc/group", "~etc/hosts contents attributes", "~etc/passwd attributes",
                  "~srv/dangling contents attributes", "~srv/deep attributes", "+srv/new 3"));
  EXPECT_THAT(diff(first.name, second.name, {"/srv/"}), SizeIs(3));
  EXPECT_THAT(diff(first.name, second.name, {"/etc/hosts", "srv/new/one"}),
              ElementsAre("~etc/hosts contents attributes", "+srv/new 3"));
  EXPECT_THAT(diff(second.name, first.name, {"/etc/group"}), ElementsAre("+etc/group"));
  EXPECT_THROW(diff(first.name, second.name, {"../etc"}), Failure);
}

TEST_P(SnapshotDiff, OfWhatNeitherHoldsIsRefused) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  EXPECT_THROW((void)diff(first.name, second.name, {"/etc/hsots"}), Failure);
  EXPECT_THROW((void)diff(first.name, "", {"/nowhere/at/all"}), Failure);
  EXPECT_THAT(diff(first.name, second.name, {"/etc/hosts", "/nowhere"}), IsEmpty());
  EXPECT_THAT(diff(first.name, second.name, {"/"}), IsEmpty());
}

TEST_P(SnapshotDiff, NamesEachPathThatNeitherHolds) {
  const SnapshotOutcome first = take();
  put("srv/new/one", "1");
  remove("etc/group");
  settle();
  const SnapshotOutcome second = take();
  const auto notHeld = [&](const std::vector<std::string>& paths) {
    return diffSnapshots(*repository_, {first.name, second.name, paths, {}},
                         [](const Difference&) {});
  };
  EXPECT_THAT(notHeld({"/etc/hosts", "/etc/hsots", "/nowhere/at/all", "/etc/group"}),
              ElementsAre("/etc/hsots", "/nowhere/at/all"));
  EXPECT_THAT(notHeld({"/srv/new/one", "/srv/", "/"}), IsEmpty());
  EXPECT_THAT(notHeld({}), IsEmpty());
}

TEST_P(SnapshotDiff, TellsOtherFlags) {
  const SnapshotOutcome first = take();
  if (!test::setFlags(at("etc/hosts"), FS_NODUMP_FL)) GTEST_SKIP() << "there are no flags here";
  settle();
  const SnapshotOutcome second = take();
  EXPECT_THAT(diff(first.name, second.name), ElementsAre("~etc/hosts attributes"));
}

TEST_P(SnapshotDiff, AFileOfAnotherKindIsAnother) {
  const SnapshotOutcome first = take();
  remove("etc/group");
  ASSERT_EQ(::mkfifo(at("etc/group").c_str(), 0644), 0);
  settle();
  const SnapshotOutcome second = take();
  EXPECT_THAT(diff(first.name, second.name), ElementsAre("~etc/group contents"));
}

TEST_P(SnapshotDiff, ContentsThatCameBackWithAnotherInodeAreTheSame) {
  const SnapshotOutcome first = take();
  put("etc/replaced", "127.0.0.1 localhost\n");
  ASSERT_EQ(::rename(at("etc/replaced").c_str(), at("etc/hosts").c_str()), 0);
  settle();
  const SnapshotOutcome second = take();
  EXPECT_THAT(diff(first.name, second.name), ElementsAre("~etc/hosts attributes"));
}

TEST_P(SnapshotDiff, AnotherNameOfAFileIsComparedByItsContents) {
  const SnapshotOutcome first = take();
  put("srv/one", "the Same");
  settle();
  const SnapshotOutcome second = take();
  EXPECT_THAT(diff(first.name, second.name), ElementsAre("~srv/deep/other-name contents attributes",
                                                         "~srv/one contents attributes"));
}

TEST_P(SnapshotDiff, IsRefusedWithoutAnIndex) {
  const SnapshotOutcome first = take();
  const SnapshotOutcome second = take();
  makeWritable(first);
  ASSERT_EQ(::unlink((repository_->path(first.name) + "/.snapwheel/index").c_str()), 0);
  try {
    diff(first.name, second.name);
    FAIL() << "it was compared";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("has no index that can be used"));
  }
}

TEST_P(SnapshotDiff, WhatCannotBeLookedAtIsTold) {
  const SnapshotOutcome first = take();
  ASSERT_EQ(::chmod(at("etc/hosts").c_str(), 0640), 0);
  settle();
  const SnapshotOutcome second = take();
  makeWritable(second);
  ASSERT_EQ(::unlink((volumeOf(second) + "/etc/hosts").c_str()), 0);
  ASSERT_EQ(::symlink("/etc/passwd", (volumeOf(second) + "/etc/hosts").c_str()), 0);
  EXPECT_THAT(diff(first.name, second.name), ElementsAre("~etc/hosts unknown"));
}

TEST_P(SnapshotDiff, FindJoinsTheSnapshotsOfAVersion) {
  take();
  take();
  put("etc/hosts", "changed");
  settle();
  take();
  const std::string away = scratch_ / "away";
  ASSERT_EQ(::rename(at("etc/hosts").c_str(), away.c_str()), 0);
  take();
  ASSERT_EQ(::rename(away.c_str(), at("etc/hosts").c_str()), 0);
  settle();
  take();
  EXPECT_THAT(find("hosts"), ElementsAre("etc/hosts 2 20", "etc/hosts 1 7", "etc/hosts 1 7"));
  const FindReport report = findInSnapshots(*repository_, "hosts");
  ASSERT_THAT(report.items, SizeIs(1));
  EXPECT_LT(report.items[0].versions[0].first, report.items[0].versions[0].last);
  EXPECT_TRUE(report.items[0].versions[0].modified);
}

TEST_P(SnapshotDiff, FindTakesNamesAndPaths) {
  take();
  EXPECT_THAT(find("*wo"), ElementsAre("srv/deep/er/two 1 100000"));
  EXPECT_THAT(find("/etc/*"), ElementsAre("etc/group 1 25", "etc/hosts 1 20", "etc/passwd 1 53"));
  EXPECT_THAT(find("etc/host?"), ElementsAre("etc/hosts 1 20"));
  EXPECT_THAT(find("/*/two"), IsEmpty()) << "* matches no slash";
  EXPECT_THAT(find("nothing"), IsEmpty());
}

TEST_P(SnapshotDiff, FindNamesTheSnapshotsThatItCannotSearch) {
  const SnapshotOutcome first = take();
  take();
  makeWritable(first);
  ASSERT_EQ(::unlink((repository_->path(first.name) + "/.snapwheel/index").c_str()), 0);
  const FindReport report = findInSnapshots(*repository_, "hosts");
  EXPECT_THAT(report.withoutIndex, ElementsAre(first.name));
  ASSERT_THAT(report.items, SizeIs(1));
  EXPECT_EQ(report.items[0].versions[0].snapshots, 1U);
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Restores of chosen files and folders, and onto targets that cannot hold all of them.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "host/files/files.h"
#include "host/tree/remove_tree.h"
#include "snapshot_test.h"
#include "snapwheel/failure.h"
#include "snapwheel/restore_selection.h"
#include "snapwheel/restore_snapshot.h"
#include "support/forked.h"
#include "support/items.h"

namespace halyard::snapwheel {
namespace {

using test::listTree;
using test::Scratch;
using test::statusOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Selection, KnowsWhatIsChosenAndWhatLeadsThere) {
  const Selection selection({"etc/ssh", "srv/a/b"});
  EXPECT_EQ(selection.partOf(""), Part::holdsSome);
  EXPECT_EQ(selection.partOf("etc"), Part::holdsSome);
  EXPECT_EQ(selection.partOf("etc/ssh"), Part::all);
  EXPECT_EQ(selection.partOf("etc/ssh/key"), Part::all);
  EXPECT_EQ(selection.partOf("etc/ssh2"), Part::none);
  EXPECT_EQ(selection.partOf("etc/ss"), Part::none);
  EXPECT_EQ(selection.partOf("srv/a/bc"), Part::none);
  EXPECT_EQ(selection.partOf("var"), Part::none);
  EXPECT_EQ(Selection().partOf("anything/at/all"), Part::all);
}

TEST(Selection, AWayIsLedThroughAndItsEndIsNot) {
  const Selection selection({"var/log"}, {"var/lib/mysql"});
  EXPECT_EQ(selection.partOf("var"), Part::holdsSome);
  EXPECT_EQ(selection.partOf("var/lib"), Part::holdsSome);
  EXPECT_EQ(selection.partOf("var/lib/other"), Part::none);
  EXPECT_EQ(selection.partOf("var/lib/mysql"), Part::none);
  EXPECT_EQ(selection.partOf("var/log/x"), Part::all);
  EXPECT_FALSE(Selection({}, {"var/lib/mysql"}).isAll());
}

class Chosen : public SnapshotTest {
 protected:
  void SetUp() override {
    SnapshotTest::SetUp();
    if (IsSkipped()) return;
    request_.snapshotPath = repository_->path(take().name);
    request_.target = scratch_ / "target";
  }
  std::string target(const std::string& path) const { return request_.target + "/" + path; }
  RestoreOutcome restore(std::vector<std::string> paths) {
    request_.paths = std::move(paths);
    return restoreSnapshot(request_);
  }
  std::string refusal(std::vector<std::string> paths) {
    try {
      restore(std::move(paths));
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "not refused";
  }
  void damage(const std::string& path) {
    if (isOnBtrfs()) {
      const std::string name = request_.snapshotPath.substr(request_.snapshotPath.rfind('/') + 1);
      ASSERT_TRUE(host::setSubvolumeReadOnly(repository_->open().get(), name, false));
    }
    std::FILE* file = std::fopen((request_.snapshotPath + "/System/" + path).c_str(), "r+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fputc('T', file), 'T');
    std::fclose(file);
  }

  RestoreRequest request_;
};
INSTANTIATE_TEST_SUITE_P(On, Chosen, fileSystems(), fileSystemName);

TEST_P(Chosen, AFileComesBackWithTheFoldersAboveItAndNothingElse) {
  const RestoreOutcome outcome = restore({"/srv/deep/er/two"});
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_THAT(outcome.notHeld, IsEmpty());
  EXPECT_EQ(Scratch::contents(target("srv/deep/er/two")), std::string(100000, 'x'));
  EXPECT_THAT(host::listDirectory(request_.target), ElementsAre("srv"));
  EXPECT_THAT(host::listDirectory(target("srv")), ElementsAre("deep"));
  EXPECT_THAT(host::listDirectory(target("srv/deep")), ElementsAre("er"));
  EXPECT_EQ(listTree(target("srv/deep/er")), listTree(at("srv/deep/er")));
  EXPECT_EQ(statusOf(target("srv/deep")).st_uid, 1815U) << "as it was recorded";
}

TEST_P(Chosen, AFolderComesBackWholeWithItsLinksOfOneFile) {
  const RestoreOutcome outcome = restore({"/srv/", "//etc/./hosts"});
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_EQ(listTree(target("srv")), listTree(at("srv")));
  EXPECT_EQ(statusOf(target("srv/one")).st_nlink, 2U);
  EXPECT_THAT(host::listDirectory(target("etc")), ElementsAre("hosts"));
}

TEST_P(Chosen, WhatTheSnapshotDoesNotHoldIsNamed) {
  ASSERT_EQ(::symlink("srv", at("way").c_str()), 0);
  request_.snapshotPath = repository_->path(take().name);
  const RestoreOutcome outcome = restore({"/etc/hosts", "/etc/none", "/none/at/all", "/way/one"});
  EXPECT_EQ(outcome.failed, 0U);
  ASSERT_EQ(outcome.notHeld.size(), 3U);
  EXPECT_EQ(outcome.notHeld[0].path, "/etc/none");
  EXPECT_EQ(outcome.notHeld[0].why, "is not in the snapshot");
  EXPECT_EQ(outcome.notHeld[1].path, "/none/at/all");
  EXPECT_THAT(outcome.notHeld[2].why, HasSubstr("/way is a link there"));
  EXPECT_TRUE(Scratch::stands(target("etc/hosts")));
}

TEST_P(Chosen, NothingIsDoneWhenNoPathIsThereOrOneIsWrong) {
  EXPECT_EQ(refusal({"/etc/none"}), "nothing was restored");
  EXPECT_THAT(refusal({"etc/hosts"}), HasSubstr("no absolute path"));
  EXPECT_THAT(refusal({"/etc/../srv"}), HasSubstr("\"..\""));
  EXPECT_FALSE(Scratch::stands(request_.target));
}

TEST_P(Chosen, ADamagedFileIsToldAndOneThatIsNotChosenIsNotRead) {
  damage("srv/one");
  EXPECT_EQ(restore({"/srv/deep/er"}).failed, 0U);
  // Its digest stands at the other name of the file, or at this one.
  ASSERT_TRUE(host::removeTree(request_.target));
  EXPECT_EQ(restore({"/srv/deep/other-name"}).failed, 1U);
  ASSERT_TRUE(host::removeTree(request_.target));
  EXPECT_EQ(restore({"/srv/one"}).failed, 1U);
}

TEST_P(Chosen, WhatCouldNotBeReadForTheSnapshotIsTold) {
  const std::string path = request_.snapshotPath + "/.snapwheel/manifest.json";
  const std::string name = request_.snapshotPath.substr(request_.snapshotPath.rfind('/') + 1);
  if (isOnBtrfs()) {
    ASSERT_TRUE(host::setSubvolumeReadOnly(repository_->open().get(), name, false));
  }
  auto manifest = nlohmann::json::parse(Scratch::contents(path));
  manifest["complete"] = false;
  manifest["missingCount"] = 2;
  manifest["missing"] = nlohmann::json::parse(
      R"([{"path":"srv/deep/lost","errno":5},{"path":"etc/lost","errno":13}])");
  ASSERT_TRUE(host::writeFile(path, manifest.dump()));
  testing::internal::CaptureStderr();
  EXPECT_EQ(restore({"/srv"}).lack.missing, 1U);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("/srv/deep/lost: is not in the snapshot: it could not be read then "
                        "(Input/output error)"));
  ASSERT_TRUE(host::removeTree(request_.target));
  EXPECT_EQ(restore({"/srv/one"}).lack.missing, 0U);
  ASSERT_TRUE(host::removeTree(request_.target));
  EXPECT_EQ(restore({}).lack.missing, 2U);
  // A third one has no name.
  manifest["missingCount"] = 3;
  ASSERT_TRUE(host::writeFile(path, manifest.dump()));
  ASSERT_TRUE(host::removeTree(request_.target));
  EXPECT_EQ(restore({"/srv/one"}).lack.missing, 1U);
}

TEST_P(Chosen, FoldersThatAreThereKeepTheirOwnAttributes) {
  ASSERT_EQ(::mkdir(request_.target.c_str(), 0750), 0);
  ASSERT_EQ(::mkdir(target("srv").c_str(), 0700), 0);
  scratch_.write("target/srv/live", "kept");
  request_.force = true;
  EXPECT_EQ(restore({"/srv/deep"}).failed, 0U);
  EXPECT_EQ(statusOf(request_.target).st_mode & 07777U, 0750U);
  EXPECT_EQ(statusOf(target("srv")).st_mode & 07777U, 0700U);
  EXPECT_EQ(listTree(target("srv/deep/er")), listTree(at("srv/deep/er")));
  EXPECT_EQ(Scratch::contents(target("srv/live")), "kept");
}

TEST_P(Chosen, ADryRunCountsAndWritesNothing) {
  scratch_.write("target/srv/one", "in the way");
  request_.dryRun = true;
  const auto before = listTree(request_.target);
  testing::internal::CaptureStderr();
  const RestoreOutcome outcome = restore({"/srv"});
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("is not empty: only --force writes there"));
  EXPECT_EQ(outcome.items, 10U) << "the root, srv, and all in it";
  EXPECT_EQ(outcome.bytes, 8U + 100000U);
  EXPECT_EQ(outcome.replaced, 1U);
  EXPECT_EQ(listTree(request_.target), before);
  request_.target = scratch_ / "none";
  testing::internal::CaptureStderr();
  EXPECT_EQ(restore({"/srv"}).replaced, 0U);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), IsEmpty());
  EXPECT_FALSE(Scratch::stands(scratch_ / "none"));
}

/// A target that cannot hold something, in a mount namespace of its own.
TEST_P(Chosen, FilesOfAVolumeWithoutExtendedAttributesComeBackWithTheLossTold) {
  scratch_.makeFolder("target");
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts()) return 8;
              if (::mount("none", request_.target.c_str(), "ramfs", 0, nullptr) != 0) return 9;
              request_.paths.clear();
              const RestoreOutcome outcome = restoreSnapshot(request_);
              if (outcome.failed != 0) return 1;
              // Two names of srv/one, and the list of srv/deep/er/two.
              if (outcome.lost.extended != 2 || outcome.lost.items != 2) return 2;
              if (Scratch::contents(target("srv/deep/er/two")) != std::string(100000, 'x'))
                return 3;
              if (Scratch::contents(target("srv/one")) != "the same") return 4;
              // What the list gave to its mask is not the group's.
              if ((statusOf(target("srv/deep/er/two")).st_mode & 0070U) != 0) return 5;
              return statusOf(target("etc/hosts")).st_uid == 1815 ? 0 : 6;
            }),
            0);
}

TEST_P(Chosen, WhereNoOwnerCanBeGivenNoSetIdBitIs) {
  EXPECT_EQ(test::exitStatusOf([&] {
              test::refuseSystemCall(SYS_fchown);
              test::refuseSystemCall(SYS_fchownat);
              const RestoreOutcome outcome = restore({"/etc/hosts"});
              if (outcome.failed != 0 || outcome.lost.owners != 1) return 1;
              if (outcome.lost.permissions != 1) return 2;
              if (Scratch::contents(target("etc/hosts")) != "127.0.0.1 localhost\n") return 3;
              return (statusOf(target("etc/hosts")).st_mode & 07777U) == 0755U ? 0 : 4;
            }),
            0);
}

TEST_P(Chosen, FilesComeBackOntoVfat) {
  const test::MountedVolume fat(scratch_, "vfat", 64);
  if (!fat.reason().empty()) GTEST_SKIP() << fat.reason();
  request_.target = fat.path();
  request_.force = true;
  const RestoreOutcome outcome = restore({"/srv/one", "/etc/hosts"});
  EXPECT_EQ(outcome.failed, 0U);
  EXPECT_GE(outcome.lost.owners, 1U);
  EXPECT_EQ(Scratch::contents(target("srv/one")), "the same");
}

}  // namespace
}  // namespace halyard::snapwheel

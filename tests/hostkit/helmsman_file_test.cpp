// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// One file or folder of the host comes back, and nothing that lives is lost by it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host_kit_root.h"
#include "support/inode_flags.h"
#include "support/mounts.h"
#include "support/system_calls.h"

namespace halyard::hostkit {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kSnapshot[] = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System";
constexpr char kBeside[] = "/etc/conf.from-2026-11-20-020000";

class FileRestore : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    install("snapwheel", root);
    root.writePreferences({{"depotHost", 1}});
    root.writeFile(std::string(kSnapshot) + "/etc/conf", "old");
    root.writeFile(std::string(kSnapshot) + "/etc/folder/inside", "old");
    root.writeFile(std::string(kSnapshot) + "/.Halyards/.halyardSignature", "x");
    root.writeFile("/etc/conf", "live");
  }
  test::CommandResult file(std::vector<std::string> words) const {
    words.insert(words.begin(), {"file", "restore"});
    return helmsman(words);
  }
  bool stands(const std::string& path) const {
    struct stat status {};
    return ::lstat(root.path(path).c_str(), &status) == 0;
  }
  /// A real one, with digests; its name.
  std::string take() const {
    root.writeEnginePreferences(1, "/Volumes/Backup");
    root.writeFile("/etc/halyard-host/snapwheel.exclude",
                   "/usr/*\n/lib*\n/bin/*\n/sbin/*\n/proc/*\n/Volumes/*\n");
    const auto taken = snapwheel({"snapshot"});
    EXPECT_EQ(taken.status, 0) << taken.err;
    return nlohmann::json::parse(snapwheel({"list", "--json"}).out, nullptr, false)["snapshots"]
        .back()["path"]
        .get<std::string>();
  }
  std::vector<std::string> stagesIn(const std::string& folder) const {
    std::vector<std::string> names = host::listDirectory(root.path(folder));
    std::erase_if(names, [](const std::string& name) { return !name.starts_with(".halyard-"); });
    return names;
  }
};

TEST_F(FileRestore, PutsItBesideTheLiveOneWithoutAQuestion) {
  const auto result = file({"/etc/conf"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile(kBeside), "old");
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
  EXPECT_THAT(stagesIn("/etc"), IsEmpty());
  EXPECT_EQ(file({"/etc/conf"}).status, 1) << "nothing is replaced";
}

TEST_F(FileRestore, LeavesNothingElseOnAVolumeOnBtrfs) {
  root.makeFolder("/srv/back");
  const auto volume = test::TestMount::image(root.path("/srv/back"), "btrfs", 128);
  if (!volume.isMounted()) GTEST_SKIP() << "no btrfs can be had here";
  EXPECT_EQ(file({"/etc/folder/inside", "--to", "/srv/back"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/back/inside"), "old");
  EXPECT_THAT(stagesIn("/srv/back"), IsEmpty());
}

TEST_F(FileRestore, InPlaceKeepsTheLiveOneAndUndoBringsItBack) {
  EXPECT_EQ(file({"/etc/conf", "--in-place"}).status, 1) << "nobody answered";
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
  const auto result = file({"/etc/conf", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/etc/conf"), "old");
  EXPECT_EQ(root.readFile("/etc/conf.previous"), "live");
  EXPECT_THAT(file({"/etc/conf", "--in-place", "--yes"}).err, HasSubstr("is there already"));
  const auto undone = helmsman({"undo", "/etc/conf", "--yes"});
  EXPECT_EQ(undone.status, 0) << undone.err;
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
}

TEST_F(FileRestore, BringsBackAFolderThatIsGone) {
  const auto result = file({"/etc/folder/", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("to take it back: helmsman undo /etc/folder"));
  EXPECT_THAT(result.err, Not(HasSubstr(".previous"))) << "nothing stood there";
  EXPECT_EQ(root.readFile("/etc/folder/inside"), "old");
  root.remove("/etc/folder");
  root.makeFolder("/srv/back");
  EXPECT_EQ(file({"/etc/folder", "--to", "/srv/back"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/back/folder/inside"), "old");
}

TEST_F(FileRestore, TakesTheBeginningOfASnapshotsName) {
  root.writeFile("/Volumes/Backup/Archives.snapdb/files1/2026-11-21-020000/System/etc/conf", "new");
  const auto result = file({"//etc/./conf/", "--from", "2026-11-20"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile(kBeside), "old");
  EXPECT_EQ(file({"/etc/conf", "--from", "2026-11-2"}).status, 1) << "it fits two";
}

TEST_F(FileRestore, FindsAnItemInTheVolumeThatHeldIt) {
  const std::string snapshot = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/";
  root.writeFile(snapshot + "etc-folder/of/volume", "held");
  root.makeFolder("/srv/back");
  EXPECT_EQ(file({"/etc/folder/of/volume", "--to", "/srv/back"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/back/volume"), "held");
  EXPECT_EQ(file({"/etc", "--to", "/srv/back"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/back/etc/conf"), "old");
  EXPECT_EQ(root.readFile("/srv/back/etc/folder/of/volume"), "held") << "mounted in it";
}

TEST_F(FileRestore, WhatIsDamagedComesBesideTheLiveOneAloneAndIsTold) {
  const std::string snapshot = take();
  root.writeFile(snapshot + "/System/etc/conf", "evil");
  const auto refusal = file({"/etc/conf", "--in-place", "--yes"});
  EXPECT_EQ(refusal.status, 1);
  EXPECT_THAT(refusal.err, HasSubstr("/etc/conf: does not hold what was put into the snapshot"));
  EXPECT_THAT(refusal.err, HasSubstr("nothing was changed"));
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
  EXPECT_FALSE(stands("/etc/conf.previous"));
  const auto beside = file({"/etc/conf", "--json"});
  EXPECT_EQ(beside.status, 4) << beside.err;
  EXPECT_THAT(beside.out, HasSubstr("\"complete\": false"));
  EXPECT_THAT(stagesIn("/etc"), IsEmpty());
}

TEST_F(FileRestore, AFileThatWasTornIsTold) {
  const std::string manifest = take() + "/.snapwheel/manifest.json";
  auto document = nlohmann::json::parse(root.readFile(manifest));
  document["torn"] = nlohmann::json::array({"etc/conf"});
  document["tornCount"] = 1;
  root.writeFile(manifest, document.dump());
  const auto result = file({"/etc/conf"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("/etc/conf: changed whenever it was read"));
  root.makeFolder("/srv/back");
  EXPECT_EQ(file({"/etc/halyard-host/snapwheel.exclude", "--to", "/srv/back"}).status, 0);
}

TEST_F(FileRestore, AFolderThatTheSnapshotHoldsInPartTakesNoLivePlace) {
  root.writeFile("/etc/conf.d/one", "1");
  const std::string manifest = take() + "/.snapwheel/manifest.json";
  auto document = nlohmann::json::parse(root.readFile(manifest));
  document["missing"] = nlohmann::json::parse(R"([{"path":"etc/conf.d/two","errno":5}])");
  document["missingCount"] = 1;
  document["complete"] = false;
  root.writeFile(manifest, document.dump());
  root.writeFile("/etc/conf.d/two", "live");
  const auto result = file({"/etc/conf.d", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/etc/conf.d/two: is not in the snapshot"));
  EXPECT_EQ(root.readFile("/etc/conf.d/two"), "live");
  EXPECT_EQ(file({"/etc/conf.d", "--in-place", "--dry-run"}).status, 1);
  EXPECT_EQ(file({"/etc/conf.d", "--dry-run"}).status, 4);
  EXPECT_EQ(file({"/etc/conf.d"}).status, 4);
  root.makeFolder("/srv/back");
  EXPECT_EQ(file({"/etc/conf.d/one", "--to", "/srv/back"}).status, 0);
}

TEST_F(FileRestore, AWholeFolderOfTheLiveHostComesBackAsItWas) {
  root.writeFile("/etc/conf.d/one", "1");
  (void)take();
  root.writeFile("/etc/conf.d/two", "2");
  const auto result = file({"/etc/conf.d", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(stands("/etc/conf.d/two"));
  EXPECT_EQ(root.readFile("/etc/conf.d.previous/two"), "2");
}

TEST_F(FileRestore, FollowsNoLinkThatAnotherAccountMade) {
  root.writeFile(std::string(kSnapshot) + "/home/ada/d/secret", "old");
  root.makeFolder("/home/ada");
  root.makeFolder("/outside");
  root.makeLink("/home/ada/d", "/outside");
  ASSERT_EQ(::chown(root.path("/home/ada").c_str(), 1815, 1815), 0);
  ASSERT_EQ(::lchown(root.path("/home/ada/d").c_str(), 1815, 1815), 0);
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"/home/ada/d/secret"}, {"/home/ada/d/secret", "--in-place", "--yes"}}) {
    const auto result = file(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("a link that others than root may have made"));
  }
  EXPECT_EQ(file({"/etc/conf", "--to", "/home/ada/d"}).status, 1);
  EXPECT_THAT(host::listDirectory(root.path("/outside")), IsEmpty());
}

TEST_F(FileRestore, RefusesWhatIsNoPathOfAFile) {
  for (const char* path : {"etc/conf", "/", "/etc/../etc/conf", ""}) {
    EXPECT_EQ(refused("helmsman", {"file", "restore", path}).status, 2) << path;
  }
  EXPECT_EQ(refused("helmsman", {"file", "restore", "/etc/conf", "--to", "here"}).status, 2);
  EXPECT_EQ(
      refused("helmsman", {"file", "restore", "/etc/conf", "--to", "/etc", "--in-place"}).status,
      2);
}

TEST_F(FileRestore, TidyAndUndoKnowItByItsPath) {
  ASSERT_EQ(file({"/etc/conf", "--in-place", "--yes"}).status, 0);
  EXPECT_THAT(helmsman({"tidy", "--dry-run", "--json"}).out,
              HasSubstr("\"service\": \"/etc/conf\""));
  EXPECT_EQ(helmsman({"undo", "/etc/other", "--yes"}).status, 1);
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 0);
  EXPECT_FALSE(stands("/etc/conf.previous"));
  EXPECT_EQ(helmsman({"undo", "/etc/conf/", "--yes"}).status, 1) << "nothing is left to put back";
}

TEST_F(FileRestore, AFolderThatHoldsAMountedVolumeIsNotSetAside) {
  root.makeFolder("/etc/folder/inner");
  const test::TestMount volume = test::TestMount::memory(root.path("/etc/folder/inner"), "size=1m");
  if (!volume.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  root.makeFolder("/proc/self");
  root.writeFile("/proc/self/mountinfo",
                 "1 0 0:1 / / rw - ext4 /dev/root rw\n"
                 "2 1 0:99 / /etc/folder/inner rw - tmpfs tmpfs rw\n");
  const auto result = file({"/etc/folder", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("a volume is mounted at /etc/folder/inner"));
  EXPECT_FALSE(stands("/etc/folder.previous"));
}

TEST_F(FileRestore, IsOnDiskBeforeTheLiveOneIsSetAside) {
  if (const std::string reason = test::whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
  const auto run = test::traced(root, "/usr/sbin/helmsman",
                                {"file", "restore", "/etc/conf", "--in-place", "-y"});
  ASSERT_EQ(run.result.status, 0) << run.result.err;
  EXPECT_TRUE(test::inOrder(
      run.calls,
      {"syncfs(*", "rename*file-*.json\"*", "renameat2(*\"conf\"*\"conf.previous\"*",
       "renameat2(*\"conf\"*</etc>, \"conf\"*", "fsync(*</etc>) = 0", "rename*file-*.json\"*"}));
}

TEST_F(FileRestore, ADryRunWritesNothing) {
  const auto result = file({"/etc/conf", "--in-place", "--dry-run"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("would be restored"));
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
  EXPECT_FALSE(stands("/etc/conf.previous"));
}

TEST_F(FileRestore, WhatTheSnapshotDoesNotHoldChangesNothing) {
  root.writeFile("/etc/other", "live");
  const auto result = file({"/etc/other", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/etc/other is not in the snapshot"));
  EXPECT_EQ(root.readFile("/etc/other"), "live");
  EXPECT_THAT(stagesIn("/etc"), IsEmpty());
}

TEST_F(FileRestore, WaitsForNobodyWhoHoldsTheHost) {
  const auto lock = test::holdBackupLock(root);
  EXPECT_EQ(file({"/etc/conf"}).status, 3);
}

class LockedFile : public FileRestore {
 protected:
  void SetUp() override {
    FileRestore::SetUp();
    if (IsSkipped()) return;
    unlocked_ = std::make_unique<test::UnlockedAtTheEnd>(root.path("/etc"));
    if (!lock("/etc/conf")) GTEST_SKIP() << "no flags here";
  }
  bool lock(const std::string& path) const {
    return test::setFlags(root.path(path), FS_IMMUTABLE_FL);
  }
  bool isLocked(const std::string& path) const {
    return (test::flagsOf(root.path(path)) & FS_IMMUTABLE_FL) != 0;
  }

 private:
  std::unique_ptr<test::UnlockedAtTheEnd> unlocked_;
};

TEST_F(LockedFile, IsSetAsideAndComesBackByUndo) {
  const auto result = file({"/etc/conf", "--in-place", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/etc/conf"), "old");
  EXPECT_EQ(root.readFile("/etc/conf.previous"), "live");
  EXPECT_TRUE(isLocked("/etc/conf.previous"));
  ASSERT_TRUE(lock("/etc/conf")) << "as what comes from a snapshot may be";
  const auto undone = helmsman({"undo", "/etc/conf", "--yes"});
  EXPECT_EQ(undone.status, 0) << undone.err;
  EXPECT_EQ(root.readFile("/etc/conf"), "live");
  EXPECT_EQ(root.readFile("/etc/conf.previous"), "old");
  EXPECT_TRUE(isLocked("/etc/conf"));
  EXPECT_TRUE(isLocked("/etc/conf.previous"));
}

TEST_F(LockedFile, ComesBackByUndoWhereNothingStood) {
  ASSERT_EQ(file({"/etc/folder", "--in-place", "--yes"}).status, 0);
  ASSERT_TRUE(lock("/etc/folder"));
  EXPECT_EQ(helmsman({"undo", "/etc/folder", "--yes"}).status, 0);
  EXPECT_TRUE(isLocked("/etc/folder.previous"));
}

TEST_F(LockedFile, IsRemovedByTidyWhenItWasSetAside) {
  root.writeFile("/etc/folder/inside", "live");
  ASSERT_TRUE(lock("/etc/folder/inside"));
  ASSERT_EQ(file({"/etc/conf", "--in-place", "--yes"}).status, 0);
  ASSERT_EQ(file({"/etc/folder", "--in-place", "--yes"}).status, 0);
  const auto result = helmsman({"tidy", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(stands("/etc/conf.previous"));
  EXPECT_FALSE(stands("/etc/folder.previous"));
}

}  // namespace
}  // namespace halyard::hostkit

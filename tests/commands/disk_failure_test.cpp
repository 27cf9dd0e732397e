// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Disks that are full or read-only: the fixed messages, and no partial item left.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include "support/forked.h"
#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};
constexpr const char* kFailedCopy = "Failed to copy /data to /.Halyards/x/data; ret -> 0\n";

class DiskFailure : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/plugin");
    root.writeFile("/data", std::string(1 << 20, 'd'));
    root.writeDescriptor("10-x.plist",
                         descriptorOf("x", "/opt/plugin").list("DataFiles", {"/data"}));
  }

  void TearDown() override {
    for (const std::string& path : mounted_) umount2(path.c_str(), MNT_DETACH);
  }

  // Mounts of this process alone; false where they are not to be had.
  bool canMount() {
    return canMountPrivately() && unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  void mountSmall(const std::string& inside, const std::string& size) {
    root.makeFolder(inside);
    const std::string path = root.path(inside);
    ASSERT_EQ(mount("none", path.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
    mounted_.push_back(path);
  }

  void makeReadOnly(const std::string& inside) {
    const std::string path = root.path(inside);
    ASSERT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    mounted_.push_back(path);
    ASSERT_EQ(mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  }

  // Fills what is left of a small volume.
  void fill(const std::string& inside) {
    root.runProgram("/bin/sh", {"-c", "cat /dev/zero >" + inside + "/filler 2>/dev/null"});
  }

 private:
  std::vector<std::string> mounted_;
};

TEST_F(DiskFailure, ACopyThatDoesNotFitLeavesNoPartOfItself) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/.Halyards", "256k");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr(kFailedCopy));
  EXPECT_THAT(root.list("/.Halyards/x"), IsEmpty());
  EXPECT_THAT(
      root.list("/.Halyards"),
      ElementsAre(".halyardSignature", "ServerSourceDiskInfo.plist", "master.browse.plist", "x"));
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(DiskFailure, AFolderThatDoesNotFitLeavesNoPartOfItself) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/.Halyards", "256k");
  root.writeFile("/folder/a/small", "x");
  root.writeFile("/folder/b/large", std::string(1 << 20, 'd'));
  root.writeDescriptor("10-x.plist",
                       descriptorOf("x", "/opt/plugin").list("DataFiles", {"/folder"}));
  EXPECT_THAT(root.run(kBackup).out,
              HasSubstr("Failed to copy /folder to /.Halyards/x/folder; ret -> 0\n"));
  EXPECT_THAT(root.list("/.Halyards/x"), IsEmpty());
}

TEST_F(DiskFailure, AFullVolumeLeavesNoEmptyClosingFiles) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/.Halyards", "64k");
  fill("/.Halyards");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  for (const std::string& name : root.list("/.Halyards"))
    EXPECT_THAT(name, testing::AnyOf("filler", "x"));
  EXPECT_THAT(result.out, EndsWith("(null)"));
}

TEST_F(DiskFailure, AFolderThatCannotBeRemovedIsToldUnderDebug) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/.Halyards", "1m");
  constexpr const char* kMessage =
      "] Error encountered removing ServerMetaDataBackupFolder at path := /.Halyards!\n";
  const auto debug = root.run(kBackup, {{"DEBUG", ""}});
  EXPECT_THAT(debug.err, HasSubstr(kMessage));
  EXPECT_THAT(debug.err, Not(HasSubstr("Removed ServerMetaDataBackupFolder")));
  EXPECT_THAT(debug.err, Not(HasSubstr("Error encountered creating")));
  EXPECT_THAT(root.run(kBackup).err, Not(HasSubstr("ServerMetaDataBackupFolder")));
}

TEST_F(DiskFailure, AReadOnlyRootIsToldAlways) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  root.writePlugin("/opt/plugin", "");
  makeReadOnly("/");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("] Error encountered creating ServerMetaDataBackupFolder at "
                                    "path := /.Halyards!\n"));
  EXPECT_THAT(result.out, HasSubstr(kFailedCopy));
  EXPECT_THAT(result.out, EndsWith("(null)"));
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(DiskFailure, EveryPlainCommandRunsOnAReadOnlyRoot) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  root.writePreferences({{"siteHost", 1}});
  makeReadOnly("/");
  EXPECT_EQ(root.run({"-cmd", "services"}).out, "siteHost\n");
  EXPECT_EQ(root.run({"-cmd", "size"}).out, "total := 0\n");
  EXPECT_EQ(root.run({"-cmd", "postBackupComplete"}).status, 0);
}

TEST_F(DiskFailure, AFullLogVolumeFailsNoBackup) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/private/var/log/halyard", "4k");
  fill("/private/var/log/halyard");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
  EXPECT_EQ(root.readFile("/.Halyards/x/data").size(), std::size_t{1} << 20);
}

TEST_F(DiskFailure, AFileSizeLimitIsAFailedCopyAndNoSignal) {
  root.writeScript("/limited", "ulimit -f 100; exec /usr/sbin/Halyard -cmd backup -source /");
  const auto result = root.runProgram("/limited", {});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr(kFailedCopy));
  EXPECT_THAT(root.list("/.Halyards/x"), IsEmpty());
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(DiskFailure, ARestoreHasTheRoomOfTheOlderAsideItem) {
  if (!canMount()) GTEST_SKIP() << "no mounts can be had here";
  mountSmall("/srv", "3m");
  constexpr std::size_t kSize = 1300 << 10;
  root.writeFile("/srv/data", std::string(kSize, 'l'));
  root.writeFile("/srv/data.previous", std::string(kSize, 'o'));
  root.writeFile("/snapshot/HD/.Halyards/siteHost/srv/data", std::string(kSize, 's'));
  root.writeDescriptor("10-siteHost.plist",
                       descriptorOf("siteHost", "/opt/plugin").list("DataFiles", {"/srv/data"}));
  const auto result = root.run(
      {"-cmd", "restoreService", "-path", "/snapshot", "-target", "/", "-service", "siteHost"});
  EXPECT_EQ(result.status, 0);
  ASSERT_THAT(root.list("/srv"), ElementsAre("data", "data.previous"));
  EXPECT_TRUE(root.readFile("/srv/data") == std::string(kSize, 's'));
  EXPECT_TRUE(root.readFile("/srv/data.previous") == std::string(kSize, 'l'));
}

TEST_F(DiskFailure, AFolderThatTakesNoEntriesIsAFailedCopy) {
  // The plug-in puts a plain file where the service's folder was.
  root.writePlugin("/opt/plugin", "rmdir \"$4\"; echo plain >\"$4\"");
  EXPECT_THAT(root.run(kBackup).out, HasSubstr(kFailedCopy));
  EXPECT_EQ(root.readFile("/.Halyards/x"), "plain\n");
}

}  // namespace
}  // namespace halyard::test

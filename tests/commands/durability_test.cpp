// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the program promises to be on disk, by the order of its system calls.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/mounts.h"
#include "support/restored_host.h"
#include "support/system_calls.h"

namespace halyard::test {
namespace {

constexpr const char* kProgram = "/usr/sbin/Halyard";

class BackupOnDisk : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
    root.writePlugin("/opt/depot");
    root.writePreferences({{"depotHost", 1}});
    root.writeFile("/data", "live");
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/data"}));
  }

  SystemCalls backUp() const {
    const TracedRun run = traced(root, kProgram, {"-cmd", "backup", "-source", "/"});
    EXPECT_EQ(run.result.status, 0) << run.result.err;
    EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
    return run.calls;
  }
};

TEST_F(BackupOnDisk, TheSignatureIsNamedOnlyAfterAllBeforeItIsOnDisk) {
  const SystemCalls calls = backUp();
  const std::string named = "renameat*</.Halyards>, \".halyardSignature\"*";
  EXPECT_TRUE(inOrder(calls, {"renameat*</.Halyards/depotHost>, \"data\"*",
                              "renameat*</.Halyards>, \"ServerSourceDiskInfo.plist\"*",
                              "syncfs(*</.Halyards>) = 0", named}));
  EXPECT_EQ(countOf(calls, named), 1U);
}

TEST_F(BackupOnDisk, TheSignatureItselfIsReplacedDurably) {
  EXPECT_TRUE(isReplacedDurably(backUp(), "/.Halyards/.halyardSignature"));
}

TEST_F(BackupOnDisk, TheCatalogueIsReplacedDurably) {
  EXPECT_TRUE(isReplacedDurably(backUp(), "/.Halyards/master.browse.plist"));
}

TEST_F(BackupOnDisk, TheOldSignatureIsGoneBeforeAnythingElseOfTheOldFolder) {
  root.writeFile("/.Halyards/.halyardSignature", "old");
  root.writeFile("/.Halyards/depotHost/old", "old");
  EXPECT_TRUE(inOrder(backUp(),
                      {"unlinkat(*</.Halyards>, \".halyardSignature\"*", "fsync(*</.Halyards>) = 0",
                       "unlinkat(*</.Halyards/depotHost>, \"old\"*"}));
}

TEST_F(BackupOnDisk, ThePidFileIsReplacedDurably) {
  EXPECT_TRUE(isReplacedDurably(backUp(), "/private/var/run/HalyardRunning.pid"));
}

TEST_F(BackupOnDisk, ThePidFileIsGoneFromTheDiskWhenTheRunEnds) {
  EXPECT_TRUE(inOrder(backUp(), {"unlinkat(*</private/var/run>, \"HalyardRunning.pid\"*",
                                 "fsync(*</private/var/run>) = 0"}));
}

TEST_F(BackupOnDisk, TheMetadataFolderIsGoneFromTheDiskAfterTheSnapshot) {
  root.writeFile("/.Halyards/.halyardSignature", "old");
  root.writeFile("/.Halyards/depotHost/old", "old");
  const TracedRun run = traced(root, kProgram, {"-cmd", "postBackupComplete"});
  EXPECT_EQ(run.result.status, 0);
  EXPECT_TRUE(
      inOrder(run.calls, {"unlinkat(*</.Halyards>, \".halyardSignature\"*",
                          "fsync(*</.Halyards>) = 0", "unlinkat(*</.Halyards/depotHost>, \"old\"*",
                          "unlinkat(*</>, \".Halyards\", AT_REMOVEDIR*", "fsync(*</>) = 0"}));
}

class RestoreOnDisk : public RestoredHost {
 protected:
  void SetUp() override {
    RestoredHost::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
    root.writePlugin("/opt/depot", "echo restored >/opt/by-plugin");
    root.writeDescriptor(
        "30-depotHost.plist",
        descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data/file"}));
    root.writeFile("/.Halyards/depotHost/srv/data/file", "saved");
  }

  SystemCalls restoreTraced(const std::string& target = "/") const {
    const TracedRun run =
        traced(root, kProgram, {"-cmd", "restore", "-path", kSnapshot, "-target", target});
    EXPECT_EQ(run.result.status, 0) << run.result.err;
    return run.calls;
  }
};

TEST_F(RestoreOnDisk, EachVolumeIsSyncedBeforeTheMetadataFolderIsMovedAway) {
  const TestMount volume = TestMount::memory(root.path("/srv/data"), "size=1m");
  if (!volume.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  root.writeFile("/srv/data/file", "live");
  const SystemCalls calls = restoreTraced();
  EXPECT_EQ(root.readFile("/srv/data/file"), "saved");
  const std::string published = "renameat*</srv/data>, \"file\", *";
  const std::string plugin = "write(*</opt/by-plugin>*";
  const std::string moved = "renameat*\".Halyards\", *\"Halyards\"*";
  EXPECT_TRUE(inOrder(calls, {published, plugin, "syncfs(*</srv/data>) = 0", moved}));
  EXPECT_TRUE(inOrder(calls, {plugin, "syncfs(*</>) = 0", moved}));
  EXPECT_EQ(countOf(calls, "sync()*"), 0U) << "a volume that does not answer would hold it up";
}

TEST_F(RestoreOnDisk, AVolumeIsSyncedOnceHoweverManyItemsLieOnIt) {
  root.writeDescriptor(
      "31-siteHost.plist",
      descriptorOf("siteHost", "/opt/depot").list("ConfigurationFiles", {"/etc/a", "/etc/b"}));
  for (const char* name : {"a", "b"}) {
    root.writeFile(std::string("/etc/") + name, "live");
    root.writeFile(std::string("/.Halyards/siteHost/etc/") + name, "saved");
  }
  root.makeFolder("/srv/data");
  // One for the staged copy of the data file, one at the end.
  EXPECT_EQ(countOf(restoreTraced(), "syncfs(*"), 2U);
}

TEST_F(RestoreOnDisk, TheMetadataFolderIsMovedOnDiskBeforeItIsRemoved) {
  EXPECT_TRUE(
      inOrder(restoreTraced(), {"renameat*\".Halyards\", *\"Halyards\"*", "fsync(*</>) = 0",
                                "unlinkat(*</Halyards>, \".halyardSignature\"*",
                                "fsync(*</Halyards>) = 0", "unlinkat(*</Halyards/depotHost/*"}));
}

TEST_F(RestoreOnDisk, ACopyIsOnDiskBeforeTheLiveItemIsMovedAway) {
  root.writeFile("/srv/data/file", "live");
  EXPECT_TRUE(
      inOrder(restoreTraced(), {"*</srv/data/.halyard-*", "syncfs(*</srv/data>) = 0",
                                "renameat*</srv/data>, \"file\", *</srv/data>, \"file.previous\"*",
                                "renameat*</srv/data>, \"file\", RENAME_NOREPLACE*"}));
}

TEST_F(RestoreOnDisk, TheMarkerOfAnAttemptIsReplacedDurably) {
  root.makeFolder("/srv");
  // A target that is not "/" restores nothing, so that the folder for the marker stays.
  EXPECT_TRUE(isReplacedDurably(restoreTraced("/srv"), kMarker));
}

TEST_F(RestoreOnDisk, AFileIsOpenedToOthersOnlyWhenItIsWhole) {
  const std::string saved = root.path("/.Halyards/depotHost/srv/data");
  ASSERT_EQ(::rename((saved + "/file").c_str(), (saved + "/tool").c_str()), 0);
  root.writeFile("/.Halyards/depotHost/srv/data/plain", "plain");
  ASSERT_EQ(::chown((saved + "/tool").c_str(), 12, 34), 0);
  ASSERT_EQ(::chmod((saved + "/tool").c_str(), 04755), 0);
  root.makeFolder("/srv/data");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data"}));
  const SystemCalls calls = restoreTraced();
  EXPECT_EQ(root.modeOf("/srv/data/tool"), 04755U);
  EXPECT_TRUE(inOrder(calls, {"openat(*\"tool\", *O_CREAT*, 0600)*", "pwrite64(*/item/tool>, *",
                              "fchown(*/item/tool>, 12, 34)*", "fchmod(*/item/tool>, 04755)*"}));
  EXPECT_EQ(countOf(calls, "fchmod(*/item/tool>, *"), 1U);
  EXPECT_TRUE(inOrder(calls, {"openat(*\"plain\", *O_CREAT*, 0600)*", "pwrite64(*/item/plain>, *",
                              "fchmod(*/item/plain>, 0644)*"}));
}

class ServiceOnDisk : public SnapshotHost {
 protected:
  void SetUp() override {
    SnapshotHost::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
  }
};

TEST_F(ServiceOnDisk, WhatWasRestoredIsSyncedBeforeTheRunEnds) {
  root.writePlugin("/opt/depot", "echo restored >/opt/by-plugin");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data/file"}));
  root.writeFile(inSnapshot("/depotHost/srv/data/file"), "saved");
  const TestMount volume = TestMount::memory(root.path("/srv/data"), "size=1m");
  if (!volume.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  root.writeFile("/srv/data/file", "live");
  const TracedRun run = traced(
      root, kProgram,
      {"-cmd", "restoreService", "-path", kSnapshot, "-target", "/", "-service", "depotHost"});
  EXPECT_EQ(run.result.status, 0);
  const std::string published = "renameat*</srv/data>, \"file\", RENAME_NOREPLACE*";
  EXPECT_TRUE(inOrder(run.calls, {published, "syncfs(*</srv/data>) = 0"}));
  EXPECT_TRUE(inOrder(run.calls, {"write(*</opt/by-plugin>*", "syncfs(*</>) = 0"}));
}

TEST_F(ServiceOnDisk, APurgedSnapshotIsGoneFromTheDisk) {
  const TracedRun run = traced(root, kProgram, {"-cmd", "purgeSnapShot", "-path", kSnapshot});
  EXPECT_EQ(run.result.status, 74);
  EXPECT_TRUE(
      inOrder(run.calls,
              {"unlinkat(*</Volumes/Backup/Archives.snapdb/files1>, \"2026-11-14\", AT_REMOVEDIR*",
               "syncfs(*</Volumes/Backup/Archives.snapdb/files1>) = 0"}));
}

}  // namespace
}  // namespace halyard::test

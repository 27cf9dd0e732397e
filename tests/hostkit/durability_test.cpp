// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the host kit promises to be on disk, by the order of its system calls.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "backup_test.h"
#include "host_kit_root.h"
#include "support/mounts.h"
#include "support/system_calls.h"

namespace halyard::hostkit {
namespace {

using test::countOf;
using test::descriptorOf;
using test::inOrder;
using test::isReplacedDurably;
using test::SystemCalls;
using test::TestMount;
using test::TracedRun;
using test::whyUntraceable;

constexpr char kHelmsman[] = "/usr/sbin/helmsman";
constexpr char kMetadata[] = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System/";

class HelmsmanOnDisk : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
  }

  SystemCalls callsOf(const std::vector<std::string>& words) const {
    const TracedRun run = test::traced(root, kHelmsman, words);
    EXPECT_EQ(run.result.status, 0) << run.result.err;
    return run.calls;
  }
};

class UndoOnDisk : public HelmsmanOnDisk {
 protected:
  void SetUp() override {
    HelmsmanOnDisk::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot",
                     "echo 'Number of failures to match := 0'" + std::string(test::kSayDone));
    root.writePreferences({{"depotHost", 1}});
    root.writeDescriptor(
        "30-depotHost.plist",
        descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/one", "/opt/two"}));
    for (const char* item : {"/srv/one", "/opt/two"}) {
      root.writeFile(std::string(kMetadata) + ".Halyards/depotHost" + item, "old");
      root.writeFile(item, "new");
    }
    root.writeFile(std::string(kMetadata) + ".Halyards/.halyardSignature", "x");
    root.makeLink("/Volumes/Backup/Archives.snapdb/files1/Latest", "2026-11-20-020000");
    const auto restored = helmsman({"restore", "depotHost", "--yes"});
    ASSERT_EQ(restored.status, 0) << restored.err;
  }
};

TEST_F(UndoOnDisk, EachItemIsBackOnDiskBeforeTheRecordSaysSo) {
  const SystemCalls calls = callsOf({"undo", "depotHost", "--yes"});
  EXPECT_EQ(root.readFile("/srv/one"), "new");
  const std::string recorded = "renameat*\"depotHost.json\"*";
  EXPECT_TRUE(inOrder(
      calls, {"renameat2(*</srv>, \"one\"*RENAME_EXCHANGE*", "fsync(*</srv>) = 0", recorded}));
  EXPECT_TRUE(inOrder(
      calls, {"renameat2(*</opt>, \"two\"*RENAME_EXCHANGE*", "fsync(*</opt>) = 0", recorded}));
}

TEST_F(UndoOnDisk, TheRecordIsReplacedDurably) {
  EXPECT_TRUE(isReplacedDurably(callsOf({"undo", "depotHost", "--yes"}),
                                "/var/lib/halyard/undo/depotHost.json"));
}

TEST_F(UndoOnDisk, WhatTidyRemovesIsGoneFromTheDiskBeforeTheRecordSaysSo) {
  const SystemCalls calls = callsOf({"tidy", "--yes"});
  const std::string recorded = "renameat*\"depotHost.json\"*";
  EXPECT_TRUE(
      inOrder(calls, {"unlinkat(*</srv>, \"one.previous\"*", "fsync(*</srv>) = 0", recorded}));
  EXPECT_TRUE(
      inOrder(calls, {"unlinkat(*</opt>, \"two.previous\"*", "fsync(*</opt>) = 0", recorded}));
  EXPECT_TRUE(isReplacedDurably(calls, "/var/lib/halyard/undo/depotHost.json"));
}

// The host came back with "/.Halyards", whose service has an item on a volume of its own.
class RecoverOnDisk : public HelmsmanOnDisk {
 protected:
  void SetUp() override {
    HelmsmanOnDisk::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot", ":" + std::string(test::kSayDone));
    root.writePreferences({{"depotHost", 1}});
    root.writeDescriptor(
        "30-depotHost.plist",
        descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/one", "/big/two"}));
    for (const char* item : {"/srv/one", "/big/two"}) {
      root.writeFile(std::string("/.Halyards/depotHost") + item, "saved");
    }
    root.writeFile("/srv/one", "came with the volume");
    root.writeFile("/.Halyards/.halyardSignature", "4711\n");
    root.writeFile("/.Halyards/ServerSourceDiskInfo.plist",
                   test::plistDocument("<dict><key>VolumeUUID</key><string>0a0a0a0a-0000-4000-8000-"
                                       "000000000000</string></dict>"));
  }
};

TEST_F(RecoverOnDisk, WhatWasPutBackIsOnDiskBeforeTheJournalSaysSo) {
  const TestMount volume = TestMount::memory(root.path("/big"), "size=1m");
  if (!volume.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  const SystemCalls calls = callsOf({"recover", "--yes"});
  EXPECT_EQ(root.readFile("/srv/one"), "saved");
  EXPECT_EQ(root.readFile("/big/two"), "saved");
  const std::string told = "renameat*\"recovery.json\"*";
  EXPECT_TRUE(inOrder(calls, {"renameat*\"depotHost.json\"*", "unlink*halyardSignature*",
                              "syncfs(*</>) = 0", told}));
  EXPECT_TRUE(inOrder(calls, {"unlink*halyardSignature*", "syncfs(*</big*>) = 0", told}));
  EXPECT_TRUE(isReplacedDurably(calls, "/var/lib/halyard/recovery.json"));
  EXPECT_TRUE(isReplacedDurably(calls, "/var/lib/halyard/undo/depotHost.json"));
}

// Links to shipped descriptors: at every instant a service whose flag is on has its descriptor.
class LinksOnDisk : public HelmsmanOnDisk {
 protected:
  void SetUp() override {
    HelmsmanOnDisk::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot");
    root.writeFile("/usr/share/halyard/services/30-depotHost.plist",
                   descriptorOf("depotHost", "/opt/depot").plist());
    root.writePreferences({{"depotHost", 0}});
  }
  static constexpr char kFlagged[] = "renameat*\"com.vantor.Halyard.plist\"*";
  static constexpr char kSynced[] = "syncfs(*</private/etc/halyard>) = 0";
};

TEST_F(LinksOnDisk, AServiceIsOnOnlyAfterItsLinkIsOnDisk) {
  EXPECT_TRUE(inOrder(callsOf({"enable", "depotHost"}),
                      {"symlink*\"/private/etc/halyard/30-depotHost.plist\"*", kSynced, kFlagged}));
}

TEST_F(LinksOnDisk, TheLinkOfAServiceThatIsOffIsGoneFromTheDisk) {
  ASSERT_EQ(helmsman({"enable", "depotHost"}).status, 0);
  EXPECT_TRUE(inOrder(callsOf({"disable", "depotHost"}),
                      {kFlagged, "unlink(\"/private/etc/halyard/30-depotHost.plist\")*", kSynced}));
}

using SetupOnDisk = HelmsmanOnDisk;

TEST_F(SetupOnDisk, TheMarkerComesAfterEveryFolderAndLink) {
  forgetSetup();
  root.remove("/etc/halyard-host");
  const SystemCalls calls = callsOf({"setup"});
  const std::string marked = "renameat*\".VantorSetupDone\"*";
  EXPECT_TRUE(inOrder(calls, {"mkdir(\"/etc/halyard-host\"*", "chmod(\"/etc/halyard-host\"*",
                              "fsync(*</etc/halyard-host>) = 0", "fsync(*</etc>) = 0", marked}));
  EXPECT_TRUE(inOrder(calls, {"symlink(\"/etc/halyard\", \"/private/etc/halyard\"*",
                              "fsync(*</private/etc>) = 0", marked}));
}

TEST_F(SetupOnDisk, EachFileIsReplacedDurably) {
  forgetSetup();
  const SystemCalls calls = callsOf({"setup"});
  for (const char* path :
       {"/var/lib/halyard/.VantorSetupDone", "/etc/halyard/com.vantor.Halyard.plist",
        "/etc/halyard-host/com.vantor.Snapwheel.plist",
        "/var/lib/halyard/BaseKit/SystemVersion.plist"}) {
    EXPECT_TRUE(isReplacedDurably(calls, path));
  }
}

TEST_F(SetupOnDisk, TheTimerOfADestinationIsReplacedDurably) {
  root.makeFolder("/Volumes/Spare");
  const SystemCalls calls = callsOf({"destination", "/Volumes/Spare", "--same-volume"});
  EXPECT_TRUE(isReplacedDurably(calls, "/etc/systemd/system/halyard-backup.timer.d/schedule.conf"));
}

TEST_F(SetupOnDisk, AnUnlockedPidFileIsGoneFromTheDisk) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  root.writeFile("/private/var/run/HalyardRunning.pid", std::to_string(child) + " :: backup\n");
  EXPECT_TRUE(inOrder(callsOf({"unlock"}), {"unlink(\"/private/var/run/HalyardRunning.pid\")*",
                                            "fsync(*</private/var/run>) = 0"}));
}

class RunOnDisk : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
  }
};

TEST_F(RunOnDisk, TheRecordOfARunIsReplacedDurably) {
  const TracedRun run = test::traced(root, kHelmsman, {"backup"});
  EXPECT_EQ(run.result.status, 0) << run.result.err;
  EXPECT_TRUE(isReplacedDurably(run.calls, test::kRecord));
}

TEST_F(RunOnDisk, AMarkIsOnDiskBeforeTheSnapshotBegins) {
  root.writePlugin("/usr/libexec/broken", "[ \"$2\" = backup ] && exit 7; exit 0");
  root.writeDescriptor("30-depotHost.plist",
                       test::descriptorOf("depotHost", "/usr/libexec/broken"));
  const TracedRun run = test::traced(root, kHelmsman, {"backup"});
  EXPECT_EQ(run.result.status, 4) << run.result.err;
  EXPECT_TRUE(isReplacedDurably(run.calls, "/.Halyards/depotHost/incomplete"));
  EXPECT_TRUE(inOrder(run.calls, {"renameat*\"incomplete\"*", "fsync(*</.Halyards>) = 0",
                                  "openat(*\"/engine-calls\"*"}));
}

constexpr char kSnapwheel[] = "/usr/sbin/snapwheel";
constexpr char kHostFolder[] = "/backup/Archives.snapdb/files1";

class SnapwheelOnDisk : public test::HostKitTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    if (const std::string reason = whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
    installEngine();
    root.writeFile("/data/file", "data");
  }

  SystemCalls callsOf(std::vector<std::string> words) const {
    words.insert(words.end(), {"--computer", "files1"});
    const TracedRun run = test::traced(root, kSnapwheel, words);
    EXPECT_EQ(run.result.status, 0) << run.result.err;
    return run.calls;
  }
  SystemCalls take() const { return callsOf({"snapshot", "--source", "/data"}); }
  std::vector<std::string> snapshots() const {
    std::vector<std::string> names = root.list(kHostFolder);
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("2"); });
    return names;
  }
  static std::string inHostFolder(const std::string& pattern) {
    return std::string(kHostFolder) + "/" + pattern;
  }
};

const std::string kHostFolderSynced = "fsync(*</backup/Archives.snapdb/files1>) = 0";
const std::string kRepositorySynced = "syncfs(*</backup/Archives.snapdb/files1>) = 0";

TEST_F(SnapwheelOnDisk, ASnapshotIsNamedOnlyAfterAllOfItIsOnDisk) {
  EXPECT_TRUE(inOrder(take(), {"renameat*\"manifest.json\"*", "syncfs(*.inProgress>) = 0",
                               "rename(\"*.inProgress\", *", "rename(*Latest.inProgress*/Latest\"*",
                               kHostFolderSynced}));
}

TEST_F(SnapwheelOnDisk, AMarkOfWhatIsLackingIsOnDiskBeforeTheSnapshotIsNamed) {
  root.writeFile("/data/.Halyards/depotHost/long", std::string(1 << 20, 'x'));
  root.writeScript("/limited", "ulimit -f 1024; trap '' XFSZ; exec " + std::string(kSnapwheel) +
                                   " snapshot --source /data --computer files1");
  const TracedRun run = test::traced(root, "/limited", {});
  EXPECT_EQ(run.result.status, 4) << run.result.err;
  EXPECT_TRUE(inOrder(
      run.calls, {"fsync(*.inProgress/System/.Halyards/depotHost/.*>) = 0",
                  "renameat*\"incomplete\"*", "fsync(*.inProgress/System/.Halyards/depotHost>) = 0",
                  "fsync(*.inProgress/System/.Halyards>) = 0", "rename(\"*.inProgress\", *"}));
}

TEST_F(SnapwheelOnDisk, ARestoreEndsAfterEachVolumeItWroteToIsSynced) {
  take();
  root.makeFolder("/target/System");
  const TestMount kernel = TestMount::bind(root.path("/proc"), "/proc");
  const TestMount volume = TestMount::memory(root.path("/target/below"), "size=1m");
  if (!kernel.isMounted() || !volume.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  const SystemCalls calls = callsOf({"restore", "latest", "--to", "/target", "--force"});
  const std::string written = "renameat2(*</target>, \"file\", *";
  EXPECT_TRUE(inOrder(calls, {written, "syncfs(*</target>) = 0"}));
  EXPECT_TRUE(inOrder(calls, {written, "syncfs(*</target/below>) = 0"}));
}

TEST_F(SnapwheelOnDisk, ARestoreReplacesAFileOnlyByOneThatIsOnDisk) {
  root.writeFile("/data/one", "saved");
  ASSERT_EQ(::link(root.path("/data/one").c_str(), root.path("/data/two").c_str()), 0);
  take();
  root.writeFile("/target/file", "live");
  root.writeFile("/target/two", "live");
  const SystemCalls calls = callsOf({"restore", "latest", "--to", "/target", "--force"});
  EXPECT_EQ(root.readFile("/target/file"), "data");
  EXPECT_EQ(root.readFile("/target/two"), "saved");
  for (const std::string name : {"file", "two"}) {
    EXPECT_TRUE(inOrder(calls, {"fdatasync(*</target/.halyard-*>) = 0",
                                "renameat(*\".halyard-*\", *\"" + name + "\") = 0"}));
  }
  EXPECT_EQ(countOf(calls, "fdatasync(*</target/.halyard-*>) = 0"), 2U);
}

TEST_F(SnapwheelOnDisk, ANewFileOfARestoreGetsItsNameWhenItIsWhole) {
  take();
  root.makeFolder("/target");
  const SystemCalls calls = callsOf({"restore", "latest", "--to", "/target"});
  EXPECT_TRUE(inOrder(calls, {"pwrite64(*</target/.halyard-*>*", "utimensat(*</target/.halyard-*",
                              "renameat2(*\".halyard-*\", *\"file\", RENAME_NOREPLACE) = 0"}));
  EXPECT_EQ(countOf(calls, "*</target/file>*"), 0U);
}

TEST_F(SnapwheelOnDisk, ADeletedSnapshotIsGoneFromTheDisk) {
  take();
  const std::string name = snapshots().front();
  const SystemCalls calls = callsOf({"delete", name});
  EXPECT_TRUE(inOrder(
      calls,
      {"unlink(\"*/Latest\"*", kHostFolderSynced, "rename(\"*/" + name + "\", \"*/removed-*",
       "unlinkat(*</backup/Archives.snapdb/files1>, \"removed-*AT_REMOVEDIR*", kRepositorySynced}));
}

TEST_F(SnapwheelOnDisk, APinIsOnDiskWhenThatIsTold) {
  take();
  EXPECT_TRUE(
      inOrder(callsOf({"pin", "latest"}), {"fsync(*/.snapwheel/.*>) = 0", "renameat*\"pin\"*",
                                           "fsync(*/.snapwheel>) = 0", "write(1<*"}));
  EXPECT_TRUE(inOrder(callsOf({"unpin", "latest"}), {"unlinkat(*/.snapwheel>, \"pin\"*",
                                                     "fsync(*/.snapwheel>) = 0", "write(1<*"}));
}

TEST_F(SnapwheelOnDisk, LatestLeadsElsewhereOnDiskBeforeItsSnapshotGoes) {
  take();
  take();
  const std::string name = snapshots().back();
  EXPECT_TRUE(
      inOrder(callsOf({"delete", name}), {"rename(*Latest.inProgress*/Latest\"*", kHostFolderSynced,
                                          "rename(\"*/" + name + "\", \"*/removed-*"}));
}

TEST_F(SnapwheelOnDisk, APrunedSnapshotIsGoneFromTheDiskBeforeItIsTold) {
  take();
  take();
  const std::string name = snapshots().front();
  const SystemCalls calls = callsOf({"prune", "--keep-last", "1", "--days-to-retain", "0"});
  EXPECT_EQ(snapshots().size(), 1U);
  EXPECT_TRUE(inOrder(calls, {"unlinkat(*</backup/Archives.snapdb/files1>, \"removed-*",
                              kRepositorySynced, "write(1*\"removed " + name + "*"}));
}

}  // namespace
}  // namespace halyard::hostkit

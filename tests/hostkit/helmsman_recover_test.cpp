// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A host that was brought back from a snapshot: what waits for it, and recover.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>

#include "helmsman/restore/restore_trace.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kPlugin[] = "/usr/libexec/plugin";
constexpr char kSnapshot[] = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000";
constexpr char kOtherVolume[] = "0a0a0a0a-0000-4000-8000-000000000000";

// Two services in "/.Halyards", as it came back, and in the snapshot that it came from.
class HelmsmanRecover : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin,
                     "case $2 in\nrestore) cp \"$4/etc/app.conf\" /etc/app.conf ;;\n"
                     "verify) echo 'Number of failures to match := 0' ;;\nesac" +
                         std::string(test::kSayDone));
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", kPlugin)
                                                   .list("DataFiles", {"/srv/depot"})
                                                   .list("ConfigurationFiles", {"/etc/app.conf"}));
    root.writeDescriptor("40-postHost.plist",
                         descriptorOf("postHost", "/usr/libexec/post").list("DataFiles", {kPost}));
    root.writePlugin(
        "/usr/libexec/post",
        "[ $2 = verify ] && echo 'Number of failures to match := 0'" + std::string(test::kSayDone));
    for (const std::string& folder : {std::string("/.Halyards"), inSnapshot()}) {
      root.writeFile(folder + "/depotHost/srv/depot", "saved data");
      root.writeFile(folder + "/depotHost/etc/app.conf", "saved settings");
      root.writeFile(folder + "/postHost" + kPost, "saved mail");
      root.writeFile(folder + "/.halyardSignature", "4711\n");
      recordVolume(folder, kOtherVolume);
    }
    root.writeFile("/srv/depot", "came with the volume");
    root.writeFile("/etc/app.conf", "came with the volume");
    root.writeFile(kPost, "came with the volume");
  }
  static constexpr char kPost[] = "/srv/post";
  static constexpr char kMark[] = "/var/lib/halyard/current-run.json";
  static std::string inSnapshot() { return std::string(kSnapshot) + "/System/.Halyards"; }
  void recordVolume(const std::string& folder, const std::string& identifier) const {
    root.writeFile(folder + "/ServerSourceDiskInfo.plist",
                   test::plistDocument("<dict><key>VolumeUUID</key><string>" + identifier +
                                       "</string></dict>"));
  }
  std::string bootedVolume() const {
    const std::string report = drivectl({"info", "-plist", "/"}).out;
    const std::size_t key = report.find("VolumeUUID");
    const std::size_t start = report.find("<string>", key) + 8;
    return report.substr(start, report.find('<', start) - start);
  }
};

TEST_F(HelmsmanRecover, ABackupRefusesToDestroyWhatTheRecoveryNeeds) {
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("this host was brought back from a snapshot"));
  EXPECT_THAT(result.err, HasSubstr("helmsman recover [--from SNAPSHOT]"));
  EXPECT_EQ(root.readFile("/.Halyards/depotHost/srv/depot"), "saved data");
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_THAT(root.readFile("/var/lib/halyard/last-backup.json"), HasSubstr("\"failed\""));
}

TEST_F(HelmsmanRecover, ARefusedBackupIsNotToldOnceTheRecoveryIsDone) {
  EXPECT_EQ(helmsman({"backup"}).status, 1);
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("Problem of the last run: this host was brought back from a snapshot"));
  EXPECT_EQ(helmsman({"recover", "--yes"}).status, 0);
  const auto result = helmsman({"status"});
  EXPECT_THAT(result.out, HasSubstr("Last backup:      failed"));
  EXPECT_THAT(result.out, Not(HasSubstr("brought back")));
}

TEST_F(HelmsmanRecover, ABackupThatCameToNoServicePrintsNoTable) {
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.out, "Result: failed, 1 problem\n");
}

TEST_F(HelmsmanRecover, StatusSaysWhatTheHostWaitsFor) {
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("recovered host, waits for: helmsman recover"));
  auto json = helmsmanJson({"status", "--json"});
  EXPECT_EQ(json["recovery"]["waits"], true);
  EXPECT_EQ(json["well"], false);
  recordVolume("/.Halyards", bootedVolume());
  EXPECT_EQ(helmsmanJson({"status", "--json"})["recovery"]["waits"], false);
}

TEST_F(HelmsmanRecover, BringsEveryServiceBack) {
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/depot"), "saved data");
  EXPECT_EQ(root.readFile("/etc/app.conf"), "saved settings");
  EXPECT_EQ(root.readFile(kPost), "saved mail");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "came with the volume");
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_THAT(result.out, HasSubstr("depotHost  restored\n"));
  EXPECT_THAT(result.out, HasSubstr("postHost   restored\n"));
  EXPECT_THAT(root.readFile("/var/lib/halyard/recovery.json"), HasSubstr("\"result\": \"good\""));
}

// A systemd whose units are what files below /units say of them.
class HelmsmanRecoverServers : public HelmsmanRecover {
 protected:
  void SetUp() override {
    HelmsmanRecover::SetUp();
    if (IsSkipped()) return;
    root.makeFolder("/run/systemd/system");
    root.makeFolder("/units");
    root.writeScript(
        "/usr/bin/systemctl",
        "unit=/units/$2\n"
        "case $1 in\n"
        "is-active) [ -e $unit.active ] && echo active && exit 0\n"
        "  if [ -e $unit.failed ]; then echo failed; else echo inactive; fi; exit 3 ;;\n"
        "is-enabled) [ -e $unit.enabled ] && echo enabled && exit 0\n"
        "  echo disabled; exit 1 ;;\n"
        "reset-failed) rm -f $unit.failed ;;\n"
        "start) cat /srv/post >$unit.started\n"
        "  [ -e $unit.broken ] && touch $unit.failed && exit 1\n"
        "  touch $unit.active ;;\n"
        "*) exit 1 ;;\nesac");
  }
  void set(const std::string& unitAndState) const { root.writeFile("/units/" + unitAndState, ""); }
};

TEST_F(HelmsmanRecoverServers, ThatAreEnabledAreStartedOnTheDataThatIsBack) {
  set("postfix.service.enabled");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("started postfix.service\n"));
  EXPECT_TRUE(root.exists("/units/postfix.service.active"));
  EXPECT_EQ(root.readFile("/units/postfix.service.started"), "saved mail");
  EXPECT_FALSE(root.exists("/units/dovecot.service.started"));
}

TEST_F(HelmsmanRecoverServers, ThatRunAreNotStartedAgain) {
  set("smbd.service.enabled");
  set("smbd.service.active");
  EXPECT_EQ(helmsman({"recover", "--yes"}).status, 0);
  EXPECT_FALSE(root.exists("/units/smbd.service.started"));
}

TEST_F(HelmsmanRecoverServers, ThatDoNotStartFailTheirService) {
  set("winbind.service.failed");
  set("winbind.service.broken");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(root.exists("/units/winbind.service.started"));
  EXPECT_THAT(result.err, HasSubstr("depotHost: winbind.service does not run (see: systemctl "
                                    "status winbind.service)\n"));
  EXPECT_THAT(result.out, HasSubstr("depotHost  failed\n"));
  EXPECT_THAT(result.out, HasSubstr("postHost   restored\n"));
}

TEST_F(HelmsmanRecover, ASecondDescriptorOfAServiceRefusesTheRecovery) {
  root.writeDescriptor("30-depotHost.plist.dpkg-dist",
                       descriptorOf("depotHost", kPlugin).list("DataFiles", {"/srv/depot"}));
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("mv /private/etc/halyard/30-depotHost.plist.dpkg-dist /root/"));
  EXPECT_EQ(root.readFile("/srv/depot"), "came with the volume");
  EXPECT_EQ(root.readFile("/.Halyards/depotHost/srv/depot"), "saved data");
}

TEST_F(HelmsmanRecover, AFailedServiceIsNamedWithWhatToDo) {
  root.writePlugin(kPlugin, "[ $2 = verify ] && echo 'Number of failures to match := 0'; exit 0");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.out, HasSubstr("depotHost  failed\n"));
  EXPECT_THAT(result.out, HasSubstr("postHost   restored\n"));
  EXPECT_THAT(result.err, HasSubstr("depotHost: /etc/app.conf was not put back"));
  EXPECT_THAT(result.err, HasSubstr("helmsman restore depotHost --from 2026-11-20-020000"));
}

TEST_F(HelmsmanRecover, AProblemThatARestoreProgramTellsIsHeard) {
  root.writePlugin("/usr/libexec/post",
                   "[ $2 = restore ] && echo 'problem the dump could not be loaded' "
                   ">>\"$HALYARD_RESTORE_JOURNAL\"\n"
                   "[ $2 = verify ] && echo 'Number of failures to match := 0'; exit 0");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("a restore program says: the dump could not be loaded"));
}

TEST_F(HelmsmanRecover, ARestoreProgramThatSaysNothingLeavesTheResultUnknown) {
  root.writePlugin("/usr/libexec/post",
                   "[ $2 = verify ] && echo 'Number of failures to match := 0'; exit 7");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.out, HasSubstr("depotHost  restored\n"));
  EXPECT_THAT(result.out, HasSubstr("postHost   unknown\n"));
  EXPECT_THAT(result.err, HasSubstr("postHost: its restore program did not say that it worked"));
}

TEST_F(HelmsmanRecover, AServiceThatVerifiesBadlyHasFailed) {
  root.writePlugin("/usr/libexec/post",
                   "[ $2 = verify ] && echo 'Number of failures to match := 2'; exit 0");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("postHost: verify reports 2 mismatches"));
}

TEST_F(HelmsmanRecover, AMarkedServiceIsBackInPartOnly) {
  for (const std::string& folder : {std::string("/.Halyards"), inSnapshot()}) {
    root.writeFile(folder + "/postHost/incomplete", "one mailbox is locked\n");
  }
  auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.out, HasSubstr("postHost   in part\n"));
  EXPECT_THAT(result.err,
              HasSubstr("postHost was incomplete in the backup: one mailbox is locked"));
  EXPECT_THAT(result.err, HasSubstr("no snapshot in reach holds postHost whole"));
}

TEST_F(HelmsmanRecover, NothingBackIsAFailure) {
  root.remove("/private/etc/halyard/40-postHost.plist");
  root.remove("/private/etc/halyard/30-depotHost.plist");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("postHost: no descriptor of it is installed on this host"));
}

// ---- the mark of the run that took the snapshot

// As snapshots of earlier versions hold it.
TEST_F(HelmsmanRecover, TheRunThatTookTheSnapshotIsNoInterruptedOne) {
  root.writeFile(kMark, R"({"process": 4711, "started": "2020-01-02T00:00:00Z"})");
  EXPECT_TRUE(helmsmanJson({"status", "--json"})["lastBackup"].is_null());
  EXPECT_THAT(helmsman({"metrics"}).out, HasSubstr("\nhalyard_backup_known 0\n"));
  EXPECT_EQ(helmsman({"recover", "--yes"}).status, 0);
  EXPECT_FALSE(root.exists(kMark));
  EXPECT_TRUE(helmsmanJson({"status", "--json"})["lastBackup"].is_null());
}

TEST_F(HelmsmanRecover, ARunThatWasCutOffOnThisHostStaysOne) {
  root.writeFile(kMark, R"({"process": 4711, "started": "2099-01-02T00:00:00Z"})");
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"]["result"], "interrupted");
  root.writeFile(kMark, R"({"process": 4711, "started": "2020-01-02T00:00:00Z"})");
  recordVolume("/.Halyards", bootedVolume());
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"]["result"], "interrupted");
}

// ---- the records for undo and tidy

// Both services put back an item of their own; the first one then fails.
class HelmsmanRecoverRecords : public HelmsmanRecover {
 protected:
  void SetUp() override {
    HelmsmanRecover::SetUp();
    if (IsSkipped()) return;
    for (const char* name : {"depot", "post"}) {
      const std::string item = std::string("/etc/") + name + ".own";
      const std::string lines = std::string("service ") + name + "Host\\naside " + item + "\\n";
      root.writeFile(item, "came with the volume");
      root.writePlugin(std::string("/usr/libexec/") + name,
                       "case $2 in restore) cp \"$4/etc/app.conf\" /etc/app.conf 2>/dev/null\n"
                       "mv " +
                           item + " " + item + ".previous; echo saved >" + item +
                           "\n"
                           "printf '" +
                           lines +
                           "' >>$HALYARD_RESTORE_JOURNAL ;;\n"
                           "verify) echo 'Number of failures to match := 0' ;; esac" +
                           (item == "/etc/post.own" ? test::kSayDone : ""));
    }
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/depot")
                                                   .list("DataFiles", {"/srv/depot"})
                                                   .list("ConfigurationFiles", {"/etc/app.conf"}));
  }
  static std::string recordOf(const std::string& service) {
    return "/var/lib/halyard/undo/" + service + ".json";
  }
};

TEST_F(HelmsmanRecoverRecords, StatusAndTidyKnowWhatTheRestoreProgramsSetAside) {
  (void)helmsman({"recover", "--yes"});
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("Set aside:        5 items by restores"));
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 0);
  for (const char* item :
       {"/srv/depot", "/etc/app.conf", "/srv/post", "/etc/depot.own", "/etc/post.own"}) {
    EXPECT_TRUE(root.exists(item)) << item;
    EXPECT_FALSE(root.exists(std::string(item) + ".previous")) << item;
  }
}

TEST_F(HelmsmanRecoverRecords, UndoTakesBackAllOfOneServiceAndNothingOfAnother) {
  (void)helmsman({"recover", "--yes"});
  const auto result = helmsman({"undo", "postHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/etc/post.own"), "came with the volume");
  EXPECT_EQ(root.readFile(kPost), "came with the volume");
  EXPECT_EQ(root.readFile("/etc/depot.own"), "saved\n");
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/etc/depot.own"), "came with the volume");
  EXPECT_EQ(root.readFile("/etc/app.conf"), "came with the volume");
}

TEST_F(HelmsmanRecoverRecords, ThoseOfTheLostHostAreDroppedAndLaterOnesStay) {
  const std::string planned = R"(", "items": [{"path": "/etc/passwd", "wasLive": true}]})";
  root.writeFile(recordOf("siteHost"),
                 R"({"time": "2020-01-02T00:00:00Z", "service": "siteHost)" + planned);
  root.writeFile(recordOf("postHost"),
                 R"({"time": "2020-01-02T00:00:00Z", "service": "postHost)" + planned);
  root.writeFile(recordOf("chatHost"),
                 R"({"time": "2020-01-04T00:00:00Z", "service": "chatHost)" + planned);
  root.writeFile("/etc/passwd.previous", "somebody's");
  constexpr std::time_t kThirdOfJanuary = 1578009600;
  const std::array<timespec, 2> times = {{{kThirdOfJanuary, 0}, {kThirdOfJanuary, 0}}};
  ASSERT_EQ(
      ::utimensat(AT_FDCWD, root.path("/.Halyards/.halyardSignature").c_str(), times.data(), 0), 0);
  (void)helmsman({"recover", "--yes"});
  EXPECT_FALSE(root.exists(recordOf("siteHost")));
  EXPECT_TRUE(root.exists(recordOf("chatHost")));
  EXPECT_THAT(root.readFile(recordOf("postHost")), Not(HasSubstr("/etc/passwd")));
}

TEST(RestoreJournal, IsDividedByTheServicesThatItNames) {
  const auto journals = journalsOf(
      "aside /a\ndone first\nservice failed\naside /b\nproblem no room\n"
      "service second\nmade /c\ndone second\nmade /d\n");
  EXPECT_EQ(journals.size(), 4U);
  EXPECT_THAT(parseJournal(journals.at("first")).aside, ElementsAre("/a"));
  EXPECT_THAT(parseJournal(journals.at("failed")).aside, ElementsAre("/b"));
  EXPECT_THAT(parseJournal(journals.at("second")).made, ElementsAre("/c"));
  EXPECT_THAT(parseJournal(journals.at("")).made, ElementsAre("/d"));
}

// ---- what is refused

TEST_F(HelmsmanRecover, AHostThatWasNeverLostIsRefusedAndLeftAlone) {
  recordVolume("/.Halyards", bootedVolume());
  auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("an ordinary backup left it, and nothing was lost"));
  EXPECT_EQ(root.readFile("/.Halyards/depotHost/srv/depot"), "saved data");

  recordVolume("/.Halyards", "");
  result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the identifier of the volume in /.Halyards is missing"));

  root.remove("/.Halyards/.halyardSignature");
  EXPECT_THAT(helmsman({"recover", "--yes"}).err, HasSubstr("carries no signature"));
  EXPECT_TRUE(root.exists("/.Halyards/depotHost"));
  root.remove("/.Halyards");
  EXPECT_THAT(helmsman({"recover", "--yes"}).err, HasSubstr("there is no /.Halyards"));
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(HelmsmanRecover, RefusesTheWrongSnapshotAndWhatIsInTheWay) {
  root.writeFile(inSnapshot() + "/.halyardSignature", "another\n");
  EXPECT_THAT(helmsman({"recover", "--yes", "--from", "2026-11-20"}).err,
              HasSubstr("did not come from 2026-11-20-020000: their signatures differ"));
  root.writeFile("/Halyards", "somebody's");
  EXPECT_THAT(helmsman({"recover", "--yes"}).err, HasSubstr("/Halyards is in the way"));
  EXPECT_EQ(root.readFile("/Halyards"), "somebody's");
  EXPECT_TRUE(root.exists("/.Halyards"));
}

TEST_F(HelmsmanRecover, WithoutTheRepositoryItSaysThatNothingWasVerified) {
  root.remove("/Volumes/Backup");
  const auto result = helmsman({"recover", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("no service was verified"));
  EXPECT_EQ(root.readFile("/srv/depot"), "saved data");
}

TEST_F(HelmsmanRecover, AsksFirstAndADryRunTouchesNothing) {
  EXPECT_EQ(helmsman({"recover"}).status, 1);
  const auto result = helmsman({"recover", "--dry-run"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("would be put back:\n"));
  EXPECT_THAT(result.out, HasSubstr("depotHost  whole"));
  EXPECT_THAT(result.out, HasSubstr("/.Halyards would be used up by it.\n"));
  EXPECT_TRUE(root.exists("/.Halyards/depotHost"));
  EXPECT_THAT(root.calls(), IsEmpty());
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// restore and undo.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "helmsman/restore/restore_plan.h"
#include "restore_test.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using HelmsmanRestore = test::RestoreTest;
using HelmsmanUndo = test::RestoreTest;

// ---- restore

TEST_F(HelmsmanRestore, PutsTheServiceBackAndKeepsWhatWasThere) {
  const auto result = helmsman({"restore", "depot", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "new data");
  EXPECT_EQ(root.readFile("/etc/depot.conf"), "old settings");
  EXPECT_EQ(root.readFile("/etc/depot.conf.previous"), "new settings");
  EXPECT_THAT(result.err, HasSubstr("set aside /srv/depot.previous\n"));
  EXPECT_THAT(result.err, HasSubstr("to take it back: helmsman undo depotHost;"));
}

// A unit that runs once it is started, or never.
TEST_F(HelmsmanRestore, CallsNothingRestoredWhoseServerDoesNotRun) {
  root.makeFolder("/run/systemd/system");
  const std::string answers =
      "case $1,$2 in\nis-active,smbd.service) [ -e /started ] && echo active || echo failed ;;\n"
      "is-*) echo inactive ;;\n";
  root.writeScript("/usr/bin/systemctl", answers + "esac; exit 1");
  auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_THAT(result.err, HasSubstr("smbd.service does not run (see: systemctl status smbd"));
  EXPECT_THAT(result.err, Not(HasSubstr("restored depotHost")));

  root.writeScript("/usr/bin/systemctl", answers + "start,smbd.service) echo >/started ;; esac");
  result = helmsman({"restore", "depotHost", "--yes", "--force"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("started smbd.service\n"));
  EXPECT_THAT(result.err, HasSubstr("restored depotHost from"));
}

TEST_F(HelmsmanRestore, SaysWhereAMismatchIsTold) {
  writePlugin("cp \"$6/etc/depot.conf\" /etc/depot.conf", "1");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("depotHost was put back from 2026-11-20-020000, but verify "
                                    "reports 1 mismatch (see /"));
}

TEST_F(HelmsmanRestore, ADryRunTouchesNothing) {
  const auto result = helmsman({"restore", "depotHost", "--dry-run"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("/srv/depot"));
  EXPECT_THAT(result.out, HasSubstr("put back by the service, the live one kept as .previous"));
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
  EXPECT_FALSE(root.exists("/var/lib/halyard/undo"));
}

TEST_F(HelmsmanRestore, DoesNothingWithoutAYesAndATerminal) {
  const auto result = helmsman({"restore", "depotHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("say --yes to go ahead"));
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanRestore, AsksOnATerminalBeforeAnythingIsOverwritten) {
  for (const char* answer : {"n\n", "\n", "yesterday\n", "\4"}) {
    const auto result = helmsmanAnswered({"restore", "depotHost"}, answer);
    EXPECT_EQ(result.status, 1) << answer;
    EXPECT_THAT(result.out, HasSubstr("/srv/depot"));
    EXPECT_THAT(result.err, HasSubstr("Restore depotHost from 2026-11-20-020000"));
    EXPECT_THAT(result.err, HasSubstr("[y/N] "));
    EXPECT_THAT(result.err, HasSubstr("nothing was done\n"));
  }
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanRestore, GoesAheadWhenToldSoOnATerminal) {
  for (const char* answer : {"y\n", "YES\n"}) {
    root.writeFile("/srv/depot", "new data");
    root.remove("/srv/depot.previous");
    root.remove("/etc/depot.conf.previous");
    EXPECT_EQ(helmsmanAnswered({"restore", "depotHost"}, answer).status, 0) << answer;
    EXPECT_EQ(root.readFile("/srv/depot"), "old data") << answer;
  }
}

TEST_F(HelmsmanRestore, TellsConfigurationThatTheServiceDidNotPutBack) {
  writePlugin(":");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/etc/depot.conf was not put back; the live one is "
                                    "/etc/depot.conf.previous"));
}

TEST_F(HelmsmanRestore, MismatchesAfterwardsAreAFailure) {
  writePlugin("cp \"$6/etc/depot.conf\" /etc/depot.conf", "3");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("verify reports 3 mismatches"));
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes", "--no-verify", "--force"}).status, 0);
}

// Halyard drops the status, so that only the program itself can tell.
TEST_F(HelmsmanRestore, AProgramThatEndsBadlyWithoutAWordIsNoRestoredService) {
  root.writePlugin(kPlugin,
                   "case $2 in\nrestore) cp \"$6/etc/depot.conf\" /etc/depot.conf; exit 7 ;;\n"
                   "verify) echo 'Number of failures to match := 0' ;;\nesac");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("warning: depotHost: its restore program did not say that it "
                                    "worked: whether it did is unknown"));
  EXPECT_THAT(result.err, Not(HasSubstr("restored depotHost")));
}

TEST_F(HelmsmanRestore, AnotherServicesWordDoesNotCount) {
  writePlugin(
      "cp \"$6/etc/depot.conf\" /etc/depot.conf; "
      "echo done postHost >>$HALYARD_RESTORE_JOURNAL; exit 0");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 4);
}

// The service's folder is there, and none of the items that the service lists is in it.
TEST_F(HelmsmanRestore, OfASnapshotWithoutAnyItemNothingIsCalledRestored) {
  root.remove(saved(""));
  root.writeFile(saved("/dump"), "a dump");
  writePlugin(":");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err,
              HasSubstr("warning: the restore program of depotHost was run; of the 2 "
                        "items that the service lists, 2026-11-20-020000 holds none\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("restored")));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanRestore, NothingIsRestoredTakenBackOrRemovedDuringABackup) {
  ASSERT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  const auto calls = root.calls();
  const host::Descriptor backup = test::holdBackupLock(root);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"restore", "depotHost", "--yes", "--force"},
        {"undo", "depotHost", "--yes"},
        {"tidy", "--yes"},
        {"recover", "--yes"}}) {
    const auto result = helmsman(words);
    EXPECT_EQ(result.status, 3) << words[0];
    EXPECT_THAT(result.err, HasSubstr("a backup is running (see: helmsman status)\n")) << words[0];
  }
  EXPECT_EQ(root.calls(), calls);
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "new data");
}

TEST_F(HelmsmanRestore, HandsTheOptionToTheService) {
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes", "--opt", "one two", "--no-verify"}).status,
            0);
  EXPECT_THAT(root.calls(), Contains(HasSubstr("-cmd|restore|-opt|one two|-path|")));
}

TEST_F(HelmsmanRestore, RefusesWhatTheSnapshotDoesNotHold) {
  root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", kPlugin));
  const auto result = helmsman({"restore", "postHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "helmsman: the snapshot 2026-11-20-020000 does not hold postHost\n");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(HelmsmanRestore, RefusesAServiceOrASnapshotThatIsNotThere) {
  EXPECT_THAT(helmsman({"restore", "nothing", "--yes"}).err,
              HasSubstr("there is no service 'nothing'; there are: depotHost (shares), "
                        "postHost (mail)"));
  EXPECT_THAT(helmsman({"restore", "depot", "--yes", "--from", "2025"}).err,
              HasSubstr("there is no snapshot \"2025\""));
  EXPECT_THAT(helmsman({"restore", "post", "--yes"}).err,
              HasSubstr("no descriptor of postHost is installed"));
  root.makeFolder(std::string(kHostFolder) + "/2026-11-21-020000.inProgress");
  EXPECT_THAT(helmsman({"restore", "depot", "--yes", "--from", "2026-11-21"}).err,
              HasSubstr("is not complete"));
}

TEST_F(HelmsmanRestore, TakesASnapshotByTheBeginningOfItsName) {
  EXPECT_EQ(helmsman({"restore", "depot", "--yes", "--from", "2026-11"}).status, 0);
  root.makeFolder(std::string(kHostFolder) + "/2026-11-19-020000");
  EXPECT_THAT(helmsman({"restore", "depot", "--yes", "--from", "2026-11"}).err,
              HasSubstr("is the beginning of 2 snapshots"));
}

TEST_F(HelmsmanRestore, DoesNotStartWhileARunIsActive) {
  const std::string process = std::to_string(::getpid());
  root.makeLink("/proc/" + process + "/exe", "/usr/sbin/Halyard");
  root.writeFile("/private/var/run/HalyardRunning.pid", process + " :: backup\n");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 3);
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST(RoomProblems, NameTheVolumeThatIsTooSmall) {
  PlannedItem item;
  item.path = "/tmp/somewhere";
  item.inSnapshot = true;
  item.bytes = std::uint64_t{1} << 62;
  EXPECT_THAT(roomProblems({item}), ElementsAre(HasSubstr("needs 4.0 EiB and has ")));
  item.inSnapshot = false;
  EXPECT_THAT(roomProblems({item}), IsEmpty());
}

// ---- undo

TEST_F(HelmsmanUndo, TakesARestoreBackAndCanBringItBackAgain) {
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
  EXPECT_EQ(root.readFile("/etc/depot.conf"), "new settings");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "old data");

  result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_EQ(root.readFile("/etc/depot.conf"), "old settings");
}

TEST_F(HelmsmanUndo, SetsAsideWhatTheRestoreMadeAnew) {
  root.remove("/srv/depot");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_FALSE(root.exists("/srv/depot"));
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "old data");
}

TEST_F(HelmsmanUndo, PutsBackConfigurationThatNobodyReplaced) {
  writePlugin(":");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 1);
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/etc/depot.conf"), "new settings");
  EXPECT_FALSE(root.exists("/etc/depot.conf.previous"));
}

TEST_F(HelmsmanUndo, LeavesAloneWhatAnEarlierRestoreSetAside) {
  root.remove(saved("/srv/depot"));
  root.writeFile("/srv/depot.previous", "from another year");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "from another year");
}

TEST_F(HelmsmanUndo, WorksAfterARestoreThatHalyardDidOnItsOwn) {
  root.run({"-cmd", "restoreService", "-path", std::string(kHostFolder) + "/2026-11-20-020000",
            "-target", "/", "-service", "depotHost"});
  ASSERT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("more set aside, not by a restore of helmsman"));
  EXPECT_THAT(helmsmanJson({"tidy", "--dry-run", "--json"})["unrecorded"].dump(),
              HasSubstr("/srv/depot.previous"));
  const auto tidied = helmsman({"tidy", "--yes"});
  EXPECT_THAT(tidied.err, HasSubstr("warning: /srv/depot.previous stays: no record"));
  EXPECT_TRUE(root.exists("/srv/depot.previous"));
  // What else Halyard did then, nobody knows.
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("warning: what the restore did beside this is not known"));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanUndo, HasNothingToTakeBackWithoutARestore) {
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "helmsman: there is nothing to take back for depotHost\n");
}

TEST_F(HelmsmanUndo, AsksFirst) {
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  const auto result = helmsman({"undo", "depotHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("  /srv/depot\n"));
  EXPECT_EQ(helmsmanJson({"status", "--json"})["unrecordedAside"], 0);
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
}

TEST_F(HelmsmanUndo, ABrokenRecordMovesNothing) {
  root.writeFile("/var/lib/halyard/undo/depotHost.json",
                 R"({"service": "depotHost", "items": [{"path": "relative", "wasLive": true}]})");
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 1);
}

}  // namespace
}  // namespace halyard::hostkit

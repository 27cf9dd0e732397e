// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "backup_test.h"
#include "helmsman/run/run_display.h"
#include "helmsman/run/run_judge.h"
#include "helmsman/run/run_record.h"
#include "support/tree_listing.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using test::kPlugin;
using test::kRecord;

using HelmsmanBackup = test::BackupTest;

TEST_F(HelmsmanBackup, TakesTheWholeWay) {
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Result: good\n"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall, "prune"));
  EXPECT_FALSE(root.exists("/.Halyards"));
  const std::string saved = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System/";
  EXPECT_EQ(root.readFile(saved + ".Halyards/depotHost/srv/depot"), "data");
  auto kept = record();
  EXPECT_EQ(kept["result"], "good");
  EXPECT_EQ(kept["snapshot"], "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000");
  EXPECT_EQ(kept["estimateBytes"], 4096);
  EXPECT_EQ(kept["services"][0]["name"], "depotHost");
  EXPECT_EQ(kept["services"][0]["copied"], 1);
  EXPECT_EQ(kept["lastGood"].size(), 3U);
  EXPECT_EQ(root.list("/var/lib/halyard/results").size(), 1U);
}

TEST_F(HelmsmanBackup, AFailedPluginFailsItsServiceAlone) {
  root.writePlugin("/usr/libexec/broken", "exit 7");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("depotHost: its backup program ended with status 7"));
  EXPECT_THAT(result.out, HasSubstr("Result: partial, 1 problem\n"));
  auto kept = record();
  EXPECT_EQ(kept["services"][0]["result"], "failed");
  EXPECT_EQ(kept["services"][1]["result"], "good");
  EXPECT_FALSE(kept["lastGood"].contains(""));
  EXPECT_TRUE(kept["lastGood"].contains("postHost"));
}

TEST_F(HelmsmanBackup, TheLogOfAFailedServiceIsNamed) {
  root.writePlugin("/usr/libexec/broken", "echo reason >/depot.log; exit 7");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/usr/libexec/broken").text("BackupLog", "/depot.log"));
  const std::string hint = "depotHost: see /depot.log, and journalctl -t Halyard\n";
  const auto result = helmsman({"backup"});
  EXPECT_THAT(result.err, HasSubstr("helmsman: " + hint));
  EXPECT_THAT(result.err, Not(HasSubstr("postHost: see")));
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("\n" + hint));
  EXPECT_EQ(record()["services"][0]["log"], "/depot.log");
  EXPECT_EQ(helmsmanJson({"status", "--json"})["services"][0]["log"], "/depot.log");
}

TEST_F(HelmsmanBackup, AMissingPluginIsNamedAsMissing) {
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/usr/libexec/none").text("BackupLog", "/depot.log"));
  const std::string errors = helmsman({"backup"}).err;
  EXPECT_THAT(errors, HasSubstr("depotHost: its backup program was not found"));
  EXPECT_THAT(errors, HasSubstr("depotHost: see journalctl -t Halyard\n"));
}

TEST_F(HelmsmanBackup, NoLogIsNamedWhenTheSnapshotFailed) {
  root.writeDescriptor("30-depotHost.plist", depot().text("BackupLog", "/depot.log"));
  installEngine("exit 1");
  EXPECT_THAT(helmsman({"backup"}).err, Not(HasSubstr("depotHost: see")));
}

TEST_F(HelmsmanBackup, AFailedPreBackupCommandOfTheNextServiceIsNotBlamedTwice) {
  root.writePlugin("/usr/libexec/broken", "exit 7");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  root.writeDescriptor("40-postHost.plist",
                       descriptorOf("postHost", kPlugin)
                           .list("DataFiles", {"/srv/post"})
                           .list("PreBackupServiceCommands", {"/usr/bin/true"}));
  EXPECT_EQ(helmsman({"backup"}).status, 4);
  EXPECT_EQ(record()["services"][1]["result"], "good");
}

TEST_F(HelmsmanBackup, AFailedPostBackupCommandIsTold) {
  root.writeDescriptor("30-depotHost.plist",
                       depot().list("PostBackupServiceCommands", {"/usr/bin/false"}));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("depotHost: a post-backup command ended with status 1"));
}

TEST_F(HelmsmanBackup, AFileThatCouldNotBeCopiedFailsItsService) {
  root.writeFile("/opt/deep/file", "x");
  root.writeDescriptor("30-depotHost.plist", depot().list("DataFiles", {"/opt/deep/file"}));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("depotHost: could not copy /opt/deep/file"));
  EXPECT_EQ(record()["services"][0]["copied"], 0);
}

TEST_F(HelmsmanBackup, AFileThatThisHostNeverHadIsNoProblem) {
  root.writeDescriptor("30-depotHost.plist",
                       depot().list("DataFiles", {"/srv/depot", "/srv/never"}));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("1 (1 not on this host)"));
  EXPECT_EQ(record()["services"][0]["missing"], nlohmann::json::array({"/srv/never"}));
}

TEST_F(HelmsmanBackup, QuietLeavesTheResultAlone) {
  for (const auto& words : {std::vector<std::string>{"-q", "backup"}, {"backup", "--quiet"}}) {
    const auto result = helmsman(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("SERVICE"));
    EXPECT_THAT(result.out, HasSubstr("Snapshot: /Volumes/Backup/"));
    EXPECT_THAT(result.out, HasSubstr("Result: good\n"));
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(HelmsmanBackup, AFileThatTheLatestSnapshotHasAndTheHostLostIsAProblem) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  root.remove("/srv/depot");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("depotHost: /srv/depot is gone, and "));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall, "prune", test::kSnapshotCall));
}

TEST_F(HelmsmanBackup, AFileThatIsLostIsAProblemEveryNightUntilItIsLeftOut) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  root.remove("/srv/depot");
  EXPECT_EQ(helmsman({"backup"}).status, 4);
  const auto second = helmsman({"backup"});
  EXPECT_EQ(second.status, 4);
  EXPECT_THAT(second.err, HasSubstr("/srv/depot is gone, and 2026-11-20-020000 has it (if it is "
                                    "meant to be gone: helmsman volumes leave-out /srv/depot)"));
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/srv/depot"}).status, 0);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanBackup, ADescriptorThatLeadsNowhereIsAProblem) {
  root.makeLink("/private/etc/halyard/60-shopHost.plist", "/opt/shop.plist");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("60-shopHost.plist"));
}

TEST_F(HelmsmanBackup, ItsLockCannotBeTakenByOthers) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  struct stat status {};
  ASSERT_EQ(::stat(root.path("/run/halyard/backup.lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(HelmsmanBackup, AFailedSnapshotLeavesTheBackupAndPrunesNothing) {
  installEngine("echo 'snapwheel: no space left' >&2; exit 1");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("no snapshot was taken: snapwheel: no space left"));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
  EXPECT_EQ(record()["result"], "failed");
  EXPECT_THAT(record()["lastGood"], IsEmpty());
  EXPECT_EQ(record()["services"][0]["result"], "failed");
  EXPECT_THAT(result.err, HasSubstr("depotHost: its backup was done, but no snapshot holds it"));
}

TEST_F(HelmsmanBackup, ASnapshotWithoutThisBackupIsSeenThrough) {
  installEngine(
      "mkdir -p $host/2026-11-20-020000/System\n"
      "echo \"{\\\"path\\\": \\\"$host/2026-11-20-020000\\\"}\"");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("does not carry this backup"));
  EXPECT_TRUE(root.exists("/.Halyards"));
}

TEST_F(HelmsmanBackup, AMissingEngineIsAFailure) {
  root.remove("/usr/sbin/snapwheel");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("no snapshot was taken"));
}

TEST_F(HelmsmanBackup, AVolumeThatWasNotRecordedIsAProblem) {
  root.remove("/usr/sbin/drivectl");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the source volume was not recorded"));
}

TEST_F(HelmsmanBackup, WithoutASnapshotTheFolderStaysForAnotherEngine) {
  EXPECT_EQ(helmsman({"backup", "--no-snapshot"}).status, 0);
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
  EXPECT_THAT(engineCalls(), IsEmpty());
  EXPECT_THAT(record()["lastGood"], IsEmpty()) << "what no snapshot carries is not safe yet";
}

TEST_F(HelmsmanBackup, TellsJsonLines) {
  const auto result = helmsman({"backup", "--json"});
  EXPECT_EQ(result.status, 0);
  std::vector<std::string> events;
  nlohmann::json last;
  for (const std::string& line : test::linesOf(result.out)) {
    last = nlohmann::json::parse(line, nullptr, false);
    ASSERT_TRUE(last.is_object()) << line;
    events.push_back(last["event"]);
  }
  EXPECT_EQ(events.front(), "phase");
  EXPECT_THAT(events, Contains("started"));
  EXPECT_THAT(events, Contains("step"));
  EXPECT_EQ(last["event"], "finished");
  EXPECT_EQ(last["result"], "good");
}

TEST_F(HelmsmanBackup, StepsAreLinesWithoutATerminal) {
  const auto result = helmsman({"backup"});
  EXPECT_THAT(result.err, HasSubstr("helmsman: postHost: Service backup binary done\n"));
  EXPECT_EQ(result.err.find('\r'), std::string::npos);
}

TEST_F(HelmsmanBackup, StepsOfAnEarlierRunAreNotShownAgain) {
  root.writeFile("/private/var/log/halyard/server_progress.log",
                 "2026-11-20 02:00:00 +0000\n## PROGRESS :: Halyard :: yesterday :: Service backup "
                 "binary done.\n");
  const auto result = helmsman({"backup", "--no-estimate"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, Not(HasSubstr("yesterday")));
  EXPECT_THAT(result.err, Not(HasSubstr("size requirements")));
}

TEST_F(HelmsmanBackup, DoesNotStartWhileARunIsActive) {
  const std::string process = std::to_string(::getpid());
  root.makeLink("/proc/" + process + "/exe", "/usr/sbin/Halyard");
  root.writeFile("/private/var/run/HalyardRunning.pid", process + " :: backup\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 3);
  EXPECT_FALSE(root.exists(kRecord)) << "the record belongs to the run that is active";
}

TEST_F(HelmsmanBackup, ALeftoverPidFileIsNoObstacle) {
  root.writeFile("/private/var/run/HalyardRunning.pid", "999999999 :: backup\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("left the pid file behind"));
}

TEST_F(HelmsmanBackup, TouchesNothingOnAHostThatIsNotSetUp) {
  root.remove("/private/var/db/.VantorSetupDone");
  root.remove("/private/etc/halyard/com.vantor.Halyard.plist");
  const auto before = test::listTree(root.path("/private"));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "helmsman: this host is not set up yet (see: helmsman setup)\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(test::listTree(root.path("/private")), before);
  EXPECT_FALSE(root.exists("/var/lib/halyard/last-backup.json"));
}

TEST_F(HelmsmanBackup, WhatKeepsItFromStartingIsRecorded) {
  root.writeEnginePreferences(0, "/Volumes/Backup");
  EXPECT_THAT(helmsman({"backup"}).err, HasSubstr("automatic backups are off"));
  root.writeEnginePreferences(1, "/Volumes/Away");
  EXPECT_THAT(helmsman({"backup"}).err, HasSubstr("the backup destination is not there"));
  root.writeEnginePreferences(1, "/Volumes/Backup");
  root.writePreferences({{"depotHost", 0}, {"postHost", 0}});
  EXPECT_THAT(helmsman({"backup"}).err, HasSubstr("no service is switched on"));
}

TEST_F(HelmsmanBackup, KeepsTheLastGoodTimesOverAFailure) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  const nlohmann::json good = record()["lastGood"];
  installEngine("exit 1");
  EXPECT_EQ(helmsman({"backup"}).status, 1);
  EXPECT_EQ(record()["result"], "failed");
  EXPECT_EQ(record()["lastGood"], good);
}

}  // namespace
}  // namespace halyard::hostkit

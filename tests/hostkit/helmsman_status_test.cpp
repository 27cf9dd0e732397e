// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// status and metrics.
#include <unistd.h>

#include "helmsman/report/metrics.h"
#include "report_test.h"

namespace halyard::hostkit {
namespace {

TEST_F(HelmsmanStatus, ShowsHowTheHostStands) {
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("/Volumes/Backup, "));
  EXPECT_THAT(result.out, HasSubstr("the services need 4.0 KiB"));
  EXPECT_THAT(result.out, HasSubstr("no run is active"));
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["well"], true);
  EXPECT_THAT(document["problems"], IsEmpty());
  EXPECT_EQ(document["destinationState"], "there");
  EXPECT_EQ(document["snapshots"], 1);
  EXPECT_EQ(document["latestSnapshot"], nameOf(finished - kDuration));
  EXPECT_EQ(document["lastBackup"]["result"], "good");
  EXPECT_EQ(document["lastGood"], timeText(finished));
  EXPECT_EQ(document["services"][0]["name"], "depotHost");
  EXPECT_EQ(document["services"][0]["lastGood"], timeText(finished));
  EXPECT_EQ(document["services"][0]["snapshot"], nameOf(finished - kDuration));
  EXPECT_EQ(document["services"][0]["bytes"], 2048);
}

TEST_F(HelmsmanStatus, IsNotWellWhenTheLastGoodBackupIsOlderThanTwoPeriods) {
  root.remove(kFolder);
  goodBackupOf(secondsNow() - 2 * kDay + 600);
  EXPECT_EQ(helmsman({"status", "--check"}).status, 0);
  root.remove(kFolder);
  goodBackupOf(secondsNow() - 2 * kDay - 600);
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("Problem: the last good backup was 2 days ago, and one is due "
                                    "every day (look why none after it was good: journalctl --unit "
                                    "halyard-backup.service)"));
  EXPECT_THAT(findings(), Contains("warning : the last good backup was 2 days ago, and one is due "
                                   "every day"));
  EXPECT_EQ(metric("halyard_backup_longest_age_seconds"), std::to_string(2 * kDay));

  EXPECT_EQ(helmsman({"schedule", "--weekly", "Monday"}).status, 0);
  EXPECT_EQ(helmsman({"status", "--check"}).status, 0);
  root.remove(kFolder);
  goodBackupOf(secondsNow() - 14 * kDay - 600);
  EXPECT_EQ(helmsman({"status", "--check"}).status, 1);
}

TEST_F(HelmsmanStatus, IsNotWellWhenWhatIsThereIsOfTheFuture) {
  const std::string name = goodBackupOf(secondsNow() + 365 * kDay);
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("Latest snapshot:  " + name + ", in the future"));
  EXPECT_THAT(result.out, HasSubstr("Last backup:      good, in the future"));
  EXPECT_THAT(result.out, HasSubstr("if the clock is right now: purge the snapshots of the future, "
                                    "then run helmsman backup"));
  EXPECT_THAT(helmsmanJson({"status", "--json"})["problems"],
              testing::ElementsAre(HasSubstr("the newest snapshot is of ")));
}

TEST_F(HelmsmanStatus, TellsWhatKeepsTheNextBackupFromStarting) {
  const std::string timer =
      "LoadState=loaded\\nUnitFileState=enabled\\nActiveState=active\\n"
      "TimersCalendar={ OnCalendar=*-*-* 02:00:00 ; next_elapse=n/a }";
  const std::string service = "LoadState=loaded\\nUnitFileState=static\\nActiveState=failed";
  systemdShows(timer, service);
  auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("every day at 02:00, snapshots kept for 30 days\n"));
  EXPECT_EQ(metric("halyard_backup_timer_active"), "1");

  const auto isNotWell = [this](const std::string& problem) {
    EXPECT_EQ(helmsman({"status", "--check"}).status, 1);
    EXPECT_THAT(helmsmanJson({"status", "--json"})["problems"].dump(), HasSubstr(problem));
    EXPECT_THAT(findings(), Contains("warning : " + problem));
  };
  systemdShows("LoadState=loaded\\nUnitFileState=disabled\\nActiveState=inactive", service);
  isNotWell("halyard-backup.timer is disabled and inactive");
  EXPECT_EQ(metric("halyard_backup_timer_active"), "0");
  EXPECT_EQ(helmsmanJson({"status", "--json"})["timerActive"], false);
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("no run starts (set: every day at 02:00, snapshots kept for 30 days)"));

  systemdShows("LoadState=masked\\nUnitFileState=masked\\nActiveState=inactive", service);
  isNotWell("halyard-backup.timer is masked");
  systemdShows(timer, "LoadState=masked\\nUnitFileState=masked\\nActiveState=inactive");
  isNotWell("halyard-backup.service is masked");
  EXPECT_EQ(metric("halyard_backup_timer_active"), "0");
  systemdShows(timer, "LoadState=not-found\\nUnitFileState=\\nActiveState=inactive");
  isNotWell("halyard-backup.service is not installed");
  systemdShows(
      "LoadState=loaded\\nUnitFileState=enabled\\nActiveState=active\\n"
      "TimersCalendar={ OnCalendar=*-*-* 05:00:00 ; next_elapse=n/a }",
      service);
  isNotWell("halyard-backup.timer goes by another calendar than the schedule");
}

TEST_F(HelmsmanStatus, SaysThatTheTimerIsUnknownWhereSystemdDoesNotTell) {
  auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("(unknown whether a run starts: systemd does not run here)"));
  EXPECT_EQ(helmsmanJson({"status", "--json"})["timerActive"], nullptr);
  EXPECT_EQ(metric("halyard_backup_timer_active"), "absent");
  root.makeFolder("/run/systemd/system");
  root.writeScript("/usr/bin/systemctl", "exit 1");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("systemd gives no answer"));
}

TEST_F(HelmsmanStatus, AScheduleThatIsOffIsADecisionUntilTheLastGoodBackupIsTooOld) {
  EXPECT_EQ(helmsman({"schedule", "--off"}).status, 0);
  systemdShows("LoadState=loaded\\nUnitFileState=disabled\\nActiveState=inactive",
               "LoadState=loaded\\nUnitFileState=static\\nActiveState=inactive");
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("off (set: every day at 02:00"));
  EXPECT_EQ(metric("halyard_backup_automatic"), "0");
  root.remove(kFolder);
  goodBackupOf(secondsNow() - 30 * kDay);
  const auto later = helmsman({"status", "--check"});
  EXPECT_EQ(later.status, 1);
  EXPECT_THAT(later.out, HasSubstr("Problem: the last good backup was 30 days ago, and automatic "
                                   "backups are off (run helmsman schedule --on)"));
}

TEST_F(HelmsmanStatus, IsNotWellWhenNoSnapshotIsLeft) {
  root.remove(kFolder + nameOf(finished - kDuration));
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("Problem: no snapshot is left of the backups of this host "
                                    "(run helmsman backup)"));
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["snapshots"], 0);
  EXPECT_EQ(document["lastGood"], nullptr);
  EXPECT_EQ(document["services"][0]["lastGood"], nullptr);
  EXPECT_FALSE(document["services"][0].contains("bytes"));
  EXPECT_EQ(metric("halyard_backup_last_good_timestamp_seconds"), "0");
  EXPECT_EQ(metric("halyard_service_last_good_timestamp_seconds{service=\"depotHost\"}"), "0");
  EXPECT_THAT(findings(), Contains("warning : no snapshot is left of the backups of this host"));
}

TEST_F(HelmsmanStatus, AServiceIsLastGoodByTheNewestSnapshotThatStillHoldsItWhole) {
  const std::int64_t earlier = finished - 7200;
  snapshotOf(nameOf(earlier), {"depotHost"});
  root.remove(kFolder + nameOf(finished - kDuration));
  auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["well"], true);
  EXPECT_EQ(document["lastGood"], timeText(earlier));
  EXPECT_EQ(document["services"][0]["lastGood"], timeText(earlier));
  EXPECT_EQ(document["services"][0]["snapshot"], nameOf(earlier));
  EXPECT_FALSE(document["services"][0].contains("bytes")) << "that is another run's figure";

  root.writeFile(kFolder + nameOf(earlier) + "/System/.Halyards/depotHost/incomplete", "no room\n");
  EXPECT_EQ(helmsman({"status", "--check"}).status, 1);
  document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["services"][0]["lastGood"], nullptr);
  EXPECT_THAT(document["problems"][0], "no snapshot holds depotHost whole");
}

TEST_F(HelmsmanStatus, OneServiceThatIsTooOldIsNotWell) {
  root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
  root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", kPlugin));
  snapshotOf(nameOf(finished - 5 * kDay), {"postHost"});
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("Problem: the last good backup of postHost was 5 days ago"));
  root.writePreferences({{"depotHost", 1}, {"postHost", 0}});
  EXPECT_EQ(helmsman({"status", "--check"}).status, 0) << "it is off";
}

TEST_F(HelmsmanStatus, CountsCompleteSnapshotsAlone) {
  root.makeFolder(kFolder + nameOf(finished) + ".inProgress");
  root.makeFolder(std::string(kFolder) + "files2");
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["snapshots"], 1);
  EXPECT_EQ(document["latestSnapshot"], nameOf(finished - kDuration));
  const auto listed = helmsmanJson({"snapshots", "--json"})["snapshots"];
  ASSERT_EQ(listed.size(), 2U) << "a foreign folder is no snapshot";
  EXPECT_EQ(listed[0]["name"], nameOf(finished - kDuration));
  EXPECT_EQ(listed[1]["inProgress"], true);
}

TEST_F(HelmsmanStatus, ARunWithoutASnapshotSaysSo) {
  keepResult("snapshot", "");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("good, 1 hour ago, no snapshot taken\n"));
}

TEST_F(HelmsmanStatus, WhatAnUnpluggedDestinationHoldsIsUnknown) {
  root.remove("/Volumes/Backup");
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("Latest snapshot:  unknown\n"));
  EXPECT_THAT(result.out, HasSubstr("1 hour ago, if still there"));
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["destinationState"], "not there");
  EXPECT_EQ(document["destination"], nullptr);
  EXPECT_EQ(document["latestSnapshot"], nullptr);
  EXPECT_EQ(document["snapshots"], nullptr);
  EXPECT_EQ(document["services"][0]["lastGood"], timeText(finished));
  EXPECT_EQ(document["services"][0]["snapshot"], nullptr);
  EXPECT_EQ(metric("halyard_destination_available"), "0");

  root.writeFile(kEngine, test::plistDocument("<dict></dict>"));
  EXPECT_EQ(helmsmanJson({"status", "--json"})["destinationState"], "not set");
}

TEST_F(HelmsmanStatus, AsksTheServicesForTheirSizeWhenTold) {
  EXPECT_EQ(helmsmanJson({"status", "--json", "--size"})["estimateBytes"], 0);
  EXPECT_THAT(root.calls(), Contains(HasSubstr("-cmd|size|-opt|all")));
}

TEST_F(HelmsmanStatus, NamesADeadRun) {
  root.writeFile("/private/var/run/HalyardRunning.pid", "999999999 :: restore\n");
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["run"]["leftover"], true);
  EXPECT_EQ(document["well"], false);
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("helmsman unlock"));
  EXPECT_EQ(helmsman({"status"}).status, 0) << "without --check the status is no judgement";
}

TEST_F(HelmsmanStatus, WorksOnAHostThatWasNeverBackedUp) {
  root.remove("/var/lib/halyard");
  root.remove("/private/var/db/.VantorSetupDone");
  root.remove("/Volumes/Backup");
  const auto result = helmsman({"status"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("not set up (see: helmsman setup)"));
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"], nullptr);
  EXPECT_EQ(helmsman({"status", "--check"}).status, 1);
}

TEST_F(HelmsmanStatus, AnUnreadableRecordIsNone) {
  root.writeFile(kRecordFile, "{\"half\": ");
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"], nullptr);
}

// ---- metrics

using HelmsmanMetrics = HelmsmanStatus;

TEST_F(HelmsmanMetrics, PrintsTheTextfile) {
  const auto result = helmsman({"metrics"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("\nhalyard_backup_result 1\n"));
  EXPECT_THAT(result.out, HasSubstr("\nhalyard_backup_duration_seconds 60\n"));
  EXPECT_THAT(result.out, HasSubstr("\nhalyard_service_bytes{service=\"depotHost\"} 2048\n"));
  EXPECT_THAT(result.out, HasSubstr("halyard_service_last_good_timestamp_seconds{service="
                                    "\"depotHost\"} " +
                                    std::to_string(finished) + "\n"));
  EXPECT_THAT(result.out, HasSubstr("\nhalyard_backup_last_good_timestamp_seconds " +
                                    std::to_string(finished) + "\n"));
}

TEST_F(HelmsmanMetrics, WritesItWhereItIsCollected) {
  root.makeFolder("/metrics");
  EXPECT_EQ(helmsman({"metrics", "--write", "--folder", "/metrics"}).status, 0);
  EXPECT_EQ(root.readFile("/metrics/halyard.prom"), helmsman({"metrics"}).out);
  EXPECT_EQ(root.modeOf("/metrics/halyard.prom"), 0644U);
  const auto result = helmsman({"metrics", "--write"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "helmsman: the folder /var/lib/prometheus/node-exporter is not there: install "
            "prometheus-node-exporter, or name the one of another collector with --folder\n");
  EXPECT_THAT(helmsman({"metrics", "--write", "--folder", "/srv/nowhere"}).err,
              HasSubstr("the folder /srv/nowhere is not there"));
}

TEST_F(HelmsmanMetrics, RecordsAUnitThatFailed) {
  EXPECT_EQ(helmsman({"metrics", "--unit-failed", "halyard-backup.service"}).status, 0);
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["lastBackup"]["result"], "failed");
  EXPECT_THAT(document["lastBackup"]["problems"][0].get<std::string>(),
              HasSubstr("the unit halyard-backup.service failed before the backup ended"));
  EXPECT_EQ(document["services"][0]["lastGood"], timeText(finished));
}

TEST_F(HelmsmanMetrics, AGoodRecordOfAMomentAgoIsNotThatOfAUnitThatFailed) {
  keepResult("finished", timeText(secondsNow()));
  EXPECT_EQ(helmsman({"metrics", "--unit-failed", "halyard-backup.service"}).status, 0);
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"]["result"], "failed");
}

TEST_F(HelmsmanMetrics, AFailedRecordOfAMomentAgoStays) {
  keepResult("finished", timeText(secondsNow()));
  keepResult("result", "partial");
  EXPECT_EQ(helmsman({"metrics", "--unit-failed", "halyard-backup.service"}).status, 0);
  EXPECT_EQ(helmsmanJson({"status", "--json"})["lastBackup"]["result"], "partial");
}

TEST_F(HelmsmanMetrics, LeaveOutWhatNoDescriptorOrSwitchStandsFor) {
  root.remove("/private/etc/halyard/30-depotHost.plist");
  root.writePreferences({{"depotHost", 0}});
  const std::string text = helmsman({"metrics"}).out;
  EXPECT_THAT(text, HasSubstr("halyard_backup_known 1\n"));
  EXPECT_THAT(text, Not(HasSubstr("depotHost")));
}

TEST(Metrics, WithoutARecordNothingIsClaimed) {
  const std::string text = metricsText({});
  EXPECT_THAT(text, HasSubstr("halyard_backup_known 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("halyard_backup_result")));
}

TEST(Metrics, LabelsAreEscaped) {
  BackupHealth health;
  health.record.emplace();
  ServiceHealth& service = health.services.emplace_back();
  service.name = "a\"b\\c\n";
  service.on = true;
  service.last = ServiceResult{service.name, true, 0, 0, {}, {}};
  EXPECT_THAT(metricsText(health), HasSubstr("{service=\"a\\\"b\\\\c\\n\"} 1"));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// destination, schedule, enable, disable, unlock and snapshots.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/property_list.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/settings/schedule.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using HelmsmanDestination = test::HostKitTest;
using HelmsmanSchedule = test::HostKitTest;
using HelmsmanEnable = test::HostKitTest;
using HelmsmanUnlock = test::HostKitTest;
using HelmsmanSnapshots = test::HostKitTest;

constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";
constexpr char kPidFile[] = "/private/var/run/HalyardRunning.pid";
constexpr char kTimer[] = "/etc/systemd/system/halyard-backup.timer.d/schedule.conf";

PropertyDictionary dictionaryOf(const std::string& text) {
  return parseDictionary(text).value_or(PropertyDictionary{});
}

int flagOf(const std::string& preferences, const std::string& service) {
  const auto whole = dictionaryOf(preferences);
  const PropertyDictionary* services = whole.dictionary("services");
  const PropertyValue* flag = services == nullptr ? nullptr : services->find(service);
  return flag == nullptr ? -1 : flag->integerValue();
}

// ---- destination

TEST_F(HelmsmanDestination, RemembersAFolderAndSwitchesBackupsOn) {
  root.writeEnginePreferences(0, "");
  root.makeFolder("/Volumes/Spare");
  const auto result = helmsman({"destination", "/Volumes/Spare", "--same-volume"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto preferences = dictionaryOf(root.readFile(kEngine));
  ASSERT_NE(preferences.find("BackupAlias"), nullptr);
  ASSERT_NE(preferences.find("BackupAlias")->asData(), nullptr);
  EXPECT_EQ(*preferences.find("BackupAlias")->asData(), "/Volumes/Spare");
  EXPECT_EQ(preferences.find("AutoBackup")->integerValue(), 1);
  EXPECT_TRUE(root.list("/Volumes/Spare").empty()) << "a probe was left behind";
}

TEST_F(HelmsmanDestination, QuietLeavesTheReasonOfAFailureAlone) {
  root.writeEnginePreferences(0, "");
  for (const auto& words : {std::vector<std::string>{"-q", "destination"}, {"destination"}}) {
    const auto result = helmsman(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "helmsman: no backup destination is set (see: helmsman destination --list)\n");
  }
}

TEST_F(HelmsmanDestination, EveryFormThatChangesPrintsAsJsonWhatIsSetThen) {
  root.makeFolder("/Volumes/Spare");
  EXPECT_EQ(helmsmanJson({"destination", "/Volumes/Spare", "--same-volume", "--json"})["path"],
            "/Volumes/Spare");
  root.makeFolder("/Volumes/Spare/Archives.snapdb/files1");
  root.writeFile("/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
  EXPECT_EQ(helmsmanJson({"destination", "--adopt", "--json"})["path"], "/Volumes/Spare");
  EXPECT_EQ(helmsmanJson({"schedule", "--keep", "9", "--json"})["daysToRetain"], 9);
}

TEST_F(HelmsmanDestination, RefusesTheVolumeThatIsBackedUp) {
  const std::string before = root.readFile(kEngine);
  const auto result = helmsman({"destination", "/Volumes/Backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("on the volume that is backed up"), std::string::npos);
  EXPECT_EQ(root.readFile(kEngine), before);
}

TEST_F(HelmsmanDestination, RefusesWhatLeadsNowhere) {
  const std::string before = root.readFile(kEngine);
  for (const char* word : {"/Volumes/Nowhere", "UUID=00000000-0000-0000-0000-000000000000",
                           "relative/path", "LABEL=none"}) {
    const auto result = helmsman({"destination", word, "--same-volume"});
    EXPECT_EQ(result.status, 1) << word;
    EXPECT_NE(result.err.find("leads to no volume"), std::string::npos) << result.err;
  }
  EXPECT_EQ(root.readFile(kEngine), before);
}

TEST_F(HelmsmanDestination, ShowsWhatIsSet) {
  const auto text = helmsman({"destination", "--show"});
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.out.rfind("/Volumes/Backup (/Volumes/Backup)", 0), 0U) << text.out;
  EXPECT_EQ(helmsmanJson({"destination", "--show", "--json"})["path"], "/Volumes/Backup");
}

TEST_F(HelmsmanDestination, ShowFailsWhenTheVolumeIsAway) {
  root.remove("/Volumes/Backup");
  const auto result = helmsman({"destination", "--show"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("/Volumes/Backup is set and is not there"), std::string::npos);
}

TEST_F(HelmsmanDestination, ListLeavesOutTheVolumeOfRoot) {
  const auto document = helmsmanJson({"destination", "--list", "--json"})["volumes"];
  ASSERT_TRUE(document.is_array());
  for (const auto& volume : document) EXPECT_NE(volume["mountPoint"], "/");
}

// ---- schedule

TEST_F(HelmsmanSchedule, WritesEveryValueAndTheTimer) {
  const auto result = helmsman({"schedule", "--monthly", "2:tue", "--at", "23:30", "--keep", "90"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto preferences = dictionaryOf(root.readFile(kEngine));
  EXPECT_EQ(preferences.text("Day"), "Tuesday");
  EXPECT_EQ(preferences.text("Period"), "Monthly");
  EXPECT_EQ(preferences.find("Week")->integerValue(), 2);
  EXPECT_EQ(preferences.find("Time")->integerValue(), 23 * 60 + 30);
  EXPECT_EQ(preferences.find("DaysToRetain")->integerValue(), 90);
  EXPECT_NE(preferences.find("BackupAlias"), nullptr);
  EXPECT_NE(root.readFile(kTimer).find("OnCalendar=Tue *-*-08..14 23:30:00\n"), std::string::npos);
}

TEST_F(HelmsmanSchedule, ChangesNothingWhenAnyWordIsWrong) {
  const std::string before = root.readFile(kEngine);
  const std::vector<std::vector<std::string>> wrong = {
      {"schedule", "--weekly", "someday"},
      {"schedule", "--monthly", "5:Sunday"},
      {"schedule", "--monthly", "1Sunday"},
      {"schedule", "--at", "24:00"},
      {"schedule", "--daily", "--at", "2:00"},
      {"schedule", "--keep", "0"},
      {"schedule", "--weekly", "Mo", "--at", "02:00"}};
  for (const auto& words : wrong) EXPECT_EQ(helmsman(words).status, 2) << words.back();
  EXPECT_EQ(helmsman({"schedule", "--keep", "-3"}).status, 2);
  EXPECT_NE(
      helmsman(wrong[0]).err.find("say Monday, Tuesday, Wednesday, Thursday, Friday, Saturday "
                                  "or Sunday, or three or more of its first letters"),
      std::string::npos);
  EXPECT_EQ(refused("helmsman", {"schedule", "--daily", "--weekly", "Monday"}).status, 2);
  EXPECT_EQ(refused("helmsman", {"schedule", "--on", "--off"}).status, 2);
  EXPECT_EQ(refused("helmsman", {"schedule", "--keep", "many"}).status, 2);
  EXPECT_EQ(root.readFile(kEngine), before);
  EXPECT_FALSE(root.exists(kTimer));
}

TEST_F(HelmsmanSchedule, ShowingWritesNothing) {
  forgetSetup();
  const auto before = root.list("/etc");
  const auto result = helmsman({"schedule"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "off: every day at 02:00, snapshots kept for 30 days\n");
  EXPECT_NE(result.err.find("nothing is set yet (see: helmsman setup)"), std::string::npos);
  EXPECT_EQ(helmsmanJson({"schedule", "--json"})["enabled"], false);
  EXPECT_EQ(root.list("/etc"), before);
  for (const char* path : {"/private", "/Library", "/System"}) EXPECT_FALSE(root.exists(path));
}

TEST_F(HelmsmanSchedule, SwitchesOffAndOn) {
  EXPECT_EQ(helmsman({"schedule", "--off"}).status, 0);
  EXPECT_EQ(dictionaryOf(root.readFile(kEngine)).find("AutoBackup")->integerValue(), 0);
  EXPECT_EQ(helmsmanJson({"schedule", "--json"})["enabled"], false);
  EXPECT_EQ(helmsman({"schedule", "--on"}).status, 0);
  EXPECT_EQ(helmsmanJson({"schedule", "--json"})["enabled"], true);
}

TEST_F(HelmsmanSchedule, CannotBeSwitchedOnWithoutADestination) {
  root.writeFile(kEngine, test::plistDocument("<dict/>"));
  const auto result = helmsman({"schedule", "--on"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("set a destination first"), std::string::npos);
}

TEST(Schedule, ReadsBackWhatItStored) {
  Schedule schedule;
  schedule.period = Schedule::Period::weekly;
  schedule.day = "Friday";
  schedule.minutes = 61;
  schedule.daysToRetain = 7;
  PropertyDictionary preferences;
  storeSchedule(schedule, preferences);
  EXPECT_EQ(scheduleFrom(preferences), schedule);
}

TEST(Schedule, TakesTheDefaultForWhatMakesNoSense) {
  PropertyDictionary preferences;
  preferences.set("Period", "Hourly");
  preferences.set("Day", "Someday");
  preferences.set("Time", 5000);
  preferences.set("Week", 9);
  preferences.set("DaysToRetain", -1);
  EXPECT_EQ(scheduleFrom(preferences), Schedule{});
}

TEST(Schedule, CalendarExpressions) {
  Schedule schedule;
  EXPECT_EQ(calendarExpression(schedule), "*-*-* 02:00:00");
  schedule.period = Schedule::Period::weekly;
  EXPECT_EQ(calendarExpression(schedule), "Sun *-*-* 02:00:00");
  schedule.period = Schedule::Period::monthly;
  schedule.week = 4;
  EXPECT_EQ(calendarExpression(schedule), "Sun *-*-22..28 02:00:00");
  EXPECT_EQ(describe(schedule, {}),
            "every fourth Sunday of the month at 02:00, snapshots kept for 30 days");
}

// ---- enable, disable

TEST_F(HelmsmanEnable, CompletesTheNameAndSetsTheFlag) {
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/bin/true"));
  root.writePreferences({{"depotHost", 0}, {"siteHost", 1}});
  const auto result = helmsman({"enable", "DEP"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "helmsman: depotHost is on now\n");
  EXPECT_EQ(flagOf(root.readFile(kServices), "depotHost"), 1);
  EXPECT_EQ(flagOf(root.readFile(kServices), "siteHost"), 1);
}

TEST_F(HelmsmanEnable, RefusesAServiceWithoutADescriptor) {
  root.writePreferences({{"postHost", 0}});
  const auto result = helmsman({"enable", "postHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("no descriptor"), std::string::npos);
  EXPECT_EQ(flagOf(root.readFile(kServices), "postHost"), 0);
}

TEST_F(HelmsmanEnable, IsAllOrNothing) {
  const std::string before = root.readFile(kServices);
  EXPECT_EQ(helmsman({"disable", "siteHost", "nonsense"}).status, 1);
  EXPECT_EQ(root.readFile(kServices), before);
  EXPECT_EQ(helmsman({"disable", "siteHost", "post"}).status, 0);
  EXPECT_EQ(flagOf(root.readFile(kServices), "siteHost"), 0);
  EXPECT_EQ(flagOf(root.readFile(kServices), "postHost"), 0);
}

TEST_F(HelmsmanEnable, DoesNotGuessBetweenTwoNames) {
  root.writePreferences({{"postHost", 1}, {"postLists", 1}});
  const auto result = helmsman({"disable", "post"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("'post' can be any of: postHost postLists"), std::string::npos);
}

TEST_F(HelmsmanEnable, SaysThatAServiceOfItsOwnCannotBeSwitchedOff) {
  root.writePreferences({{"chessHost", 1}});
  const auto result = helmsman({"disable", "chessHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("every backup takes it"), std::string::npos);
}

// ---- unlock

TEST_F(HelmsmanUnlock, HasNothingToDoWithoutAPidFile) {
  const auto result = helmsman({"unlock"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "helmsman: nothing to unlock: no run is active\n");
}

TEST_F(HelmsmanUnlock, RemovesTheFileOfAProcessThatIsGone) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  root.writeFile(kPidFile, std::to_string(child) + " :: backup\n");
  const auto result = helmsman({"unlock"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("left the pid file behind"), std::string::npos) << result.err;
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(HelmsmanUnlock, RemovesTheFileWhenTheNumberBelongsToAnotherProgram) {
  const std::string process = std::to_string(::getpid());
  root.makeLink("/proc/" + process + "/exe", "/usr/bin/cron");
  root.writeFile(kPidFile, process + " :: restore\n");
  EXPECT_EQ(helmsman({"unlock"}).status, 0);
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(HelmsmanUnlock, NeverRemovesTheFileOfALiveRun) {
  const std::string process = std::to_string(::getpid());
  for (const char* program : {"/usr/sbin/Halyard", "/usr/sbin/Halyard (deleted)"}) {
    root.remove("/proc/" + process);
    root.makeLink("/proc/" + process + "/exe", program);
    root.writeFile(kPidFile, process + " :: backup\n");
    const auto result = helmsman({"unlock"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("Halyard is running"), std::string::npos);
    EXPECT_TRUE(root.exists(kPidFile));
  }
}

TEST_F(HelmsmanUnlock, LeavesAloneWhatItCannotTell) {
  root.writeFile(kPidFile, std::to_string(::getpid()) + " :: backup\n");
  EXPECT_EQ(helmsman({"unlock"}).status, 1);
  // Without the host's processes nobody knows whether a Halyard runs.
  root.writeFile(kPidFile, "nonsense");
  EXPECT_EQ(helmsman({"unlock"}).status, 1);
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST(PidFile, ParsesTheLineThatHalyardWrites) {
  const PidFileState state = parsePidFile("4711 :: backup\n");
  EXPECT_EQ(state.process, 4711);
  EXPECT_EQ(state.command, "backup");
  for (const char* text : {"", "4711", " :: backup", "-3 :: backup", "47x :: backup"}) {
    EXPECT_EQ(parsePidFile(text).process, 0) << text;
  }
}

// ---- snapshots

TEST_F(HelmsmanSnapshots, ListsThisHostsSnapshotsAndWhatTheyHold) {
  const std::string folder = "/Volumes/Backup/Archives.snapdb/files1";
  root.writeFile(folder + "/2026-11-20-020000/System/.Halyards/.halyardSignature", "x");
  root.makeFolder(folder + "/2026-11-20-020000/System/.Halyards/depotHost");
  root.makeFolder(folder + "/2026-11-21-020000.inProgress/System");
  root.makeLink(folder + "/Latest", "2026-11-20-020000");
  root.makeFolder("/Volumes/Backup/Archives.snapdb/other/2026-11-19-020000");
  const auto list = helmsmanJson({"snapshots", "--json"})["snapshots"];
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["name"], "2026-11-20-020000");
  EXPECT_EQ(list[0]["time"], "2026-11-20T02:00:00Z");
  EXPECT_EQ(list[0]["latest"], true);
  EXPECT_EQ(list[0]["signature"], true);
  EXPECT_EQ(list[0]["services"], nlohmann::json::array({"depotHost"}));
  EXPECT_EQ(list[1]["inProgress"], true);
  EXPECT_EQ(list[1]["signature"], false);
  EXPECT_NE(helmsman({"snapshots"}).out.find("2026-11-21-020000.inProgress"), std::string::npos);
}

TEST_F(HelmsmanSnapshots, AnEmptyRepositoryIsNoFailure) {
  const auto result = helmsman({"snapshots"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("there is no snapshot of this host in"), std::string::npos);
}

TEST_F(HelmsmanSnapshots, WithoutADestinationTheReasonIsTold) {
  root.remove("/Volumes/Backup");
  EXPECT_NE(helmsman({"snapshots"}).err.find("is not there"), std::string::npos);
  root.writeFile(kEngine, test::plistDocument("<dict/>"));
  const auto result = helmsman({"snapshots"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("no backup destination is set"), std::string::npos);
}

}  // namespace
}  // namespace halyard::hostkit

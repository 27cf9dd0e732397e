// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whose snapshots a folder of the repository holds, what the clock says, keys that nothing reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backup_test.h"
#include "common/machine.h"
#include "common/times.h"
#include "helmsman/run/clock_check.h"
#include "support/build_paths.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kOurs[] = "0123456789abcdef0123456789abcdef\n";
constexpr char kTheirs[] = "fedcba9876543210fedcba9876543210\n";
constexpr char kRepository[] = "/Volumes/Backup/Archives.snapdb";
constexpr char kMachine[] = "/Volumes/Backup/Archives.snapdb/files1/.machine-id";
constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";
constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";

class HelmsmanMachine : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.writeFile("/etc/machine-id", kOurs);
  }
  void refused(const std::string& reason) const {
    const auto result = helmsman({"backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr(reason));
    EXPECT_THAT(engineCalls(), IsEmpty());
    const auto check = helmsman({"check"});
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(check.out, HasSubstr(reason));
  }
};

TEST_F(HelmsmanMachine, ABackupRecordsWhoseFolderItIs) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(root.readFile(kMachine), kOurs);
  EXPECT_EQ(helmsmanJson({"snapshots", "--json"})["snapshots"].size(), 1U);
  EXPECT_EQ(helmsman({"backup"}).status, 0) << "its own record is no obstacle";
}

TEST_F(HelmsmanMachine, TheFolderOfAnotherMachineIsRefusedUntilItIsAdopted) {
  root.writeFile(kMachine, kTheirs);
  refused("holds the snapshots of another machine");
  EXPECT_EQ(root.readFile(kMachine), kTheirs);
  EXPECT_EQ(helmsman({"destination", "--adopt"}).status, 0);
  EXPECT_EQ(root.readFile(kMachine), kOurs);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanMachine, ARecordThatMakesNoSenseIsNotOurs) {
  root.writeFile(kMachine, std::string(100000, 'a'));
  refused("holds the snapshots of another machine");
  root.remove(kMachine);
  root.makeLink(kMachine, "/etc/machine-id");
  refused("holds the snapshots of another machine");
}

TEST_F(HelmsmanMachine, ARenamedHostIsToldWhereItsSnapshotsAre) {
  root.writeFile(std::string(kRepository) + "/old/.machine-id", kOurs);
  root.makeFolder(std::string(kRepository) + "/old/2026-11-19-020000");
  refused("mv /Volumes/Backup/Archives.snapdb/old /Volumes/Backup/Archives.snapdb/files1");
  EXPECT_EQ(helmsman({"destination", "--adopt"}).status, 0);
  EXPECT_EQ(root.modeOf(std::string(kRepository) + "/files1"), 0750U);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanMachine, TheAdviceIsQuotedForAShell) {
  root.writeFile(std::string(kRepository) + "/o'l d/.machine-id", kOurs);
  refused("mv '/Volumes/Backup/Archives.snapdb/o'\\''l d' /Volumes/Backup/Archives.snapdb/files1;");
}

TEST_F(HelmsmanMachine, AnIdentifierIsTheSameInAnyCase) {
  root.writeFile(kMachine, "0123456789ABCDEF0123456789ABCDEF\n");
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  root.remove(std::string(kRepository) + "/files1");
  root.remove("/engine-calls");
  root.writeFile(std::string(kRepository) + "/old/.machine-id",
                 "0123456789ABCDEF0123456789ABCDEF\n");
  refused("this machine's snapshots are in");
  EXPECT_EQ(helmsman({"destination", "--adopt"}).status, 0);
  EXPECT_EQ(root.readFile(kMachine), kOurs);
}

TEST_F(HelmsmanMachine, AMachineWithoutAnIdentifierIsNotTakenForTheRecordedOne) {
  root.writeFile(kMachine, kOurs);
  root.writeFile("/etc/machine-id", "");
  refused(
      "this one has no identifier in /etc/machine-id that could show that it is the same (run: "
      "systemd-machine-id-setup;");
  EXPECT_THAT(helmsman({"destination", "--adopt"}).err, HasSubstr("systemd-machine-id-setup"));
  root.writeFile(kMachine, "nonsense\n");
  refused("this one has no identifier");
}

// A clone of the host that took two snapshots, with its name.
class HelmsmanClone : public HelmsmanMachine {
 protected:
  void SetUp() override {
    HelmsmanMachine::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(helmsman({"backup"}).status, 0);
    ASSERT_EQ(helmsman({"backup"}).status, 0);
    install("snapwheel", root);
    root.makeFolder("/run");
    root.writeFile("/etc/machine-id", kTheirs);
  }
  std::size_t snapshots() const {
    return helmsmanJson({"snapshots", "--json"})["snapshots"].size();
  }
};

TEST_F(HelmsmanClone, RemovesNoSnapshotOfTheOther) {
  const std::string path = std::string(kRepository) + "/files1/2026-11-20-020000";
  for (const std::string& word : {path, std::string("2026-11-20")}) {
    const auto purged = helmsman({"purge", word, "--yes"});
    EXPECT_EQ(purged.status, 1);
    EXPECT_THAT(purged.err, HasSubstr("helmsman destination --adopt"));
  }
  EXPECT_EQ(snapshots(), 2U);
  EXPECT_EQ(helmsman({"destination", "--adopt"}).status, 0);
  EXPECT_EQ(helmsman({"purge", "2026-11-20", "--yes"}).status, 0);
  EXPECT_EQ(snapshots(), 1U);
}

TEST_F(HelmsmanClone, IsRefusedByTheEngineToo) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"delete", "2026-11-20-020000"},
        {"delete", "latest", "--computer", "files1"},
        {"prune", "--keep-last", "1", "--days-to-retain", "0"},
        {"snapshot", "--source", "/srv"}}) {
    const auto result = snapwheel(words);
    EXPECT_EQ(result.status, 1) << words.front();
    EXPECT_THAT(result.err, HasSubstr("holds the snapshots of another machine")) << words.front();
    EXPECT_THAT(result.err, HasSubstr("helmsman destination --adopt")) << words.front();
  }
  EXPECT_EQ(snapshots(), 2U);
  EXPECT_EQ(snapwheel({"list"}).status, 0);
  EXPECT_EQ(helmsman({"destination", "--adopt"}).status, 0);
  EXPECT_EQ(snapwheel({"delete", "2026-11-20-020000"}).status, 0);
}

TEST_F(HelmsmanClone, MayRemoveTheSnapshotsOfAHostThatItNames) {
  root.makeFolder(std::string(kRepository) + "/gone/2026-11-19-020000");
  root.writeFile(std::string(kRepository) + "/gone/.machine-id", kOurs);
  EXPECT_EQ(snapwheel({"delete", "2026-11-19-020000", "--computer", "gone"}).status, 0);
}

TEST(ShellWord, IsQuotedWhereAShellWouldReadMore) {
  EXPECT_EQ(shellWord("/Volumes/Backup-2/a_b.c"), "/Volumes/Backup-2/a_b.c");
  EXPECT_EQ(shellWord("a b"), "'a b'");
  EXPECT_EQ(shellWord("$(reboot)'"), "'$(reboot)'\\'''");
  EXPECT_EQ(shellWord(""), "''");
}

TEST_F(HelmsmanMachine, SnapshotsFromBeforeMachinesWereRecordedAreTakenForOurs) {
  root.makeFolder(std::string(kRepository) + "/files1/2026-11-19-020000");
  root.writeFile(std::string(kRepository) + "/other/.machine-id", kTheirs);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(root.readFile(kMachine), kOurs);
}

TEST_F(HelmsmanMachine, OnATerminalItIsAsked) {
  root.writeFile(kMachine, kTheirs);
  EXPECT_EQ(helmsmanAnswered({"backup"}, "n\n").status, 1);
  EXPECT_EQ(root.readFile(kMachine), kTheirs);
  EXPECT_EQ(helmsmanAnswered({"backup"}, "y\n").status, 0);
  EXPECT_EQ(root.readFile(kMachine), kOurs);
}

// ---- the clock

TEST(ClockProblem, IsTimeThatHasPassedAlready) {
  const std::int64_t now = parseTime("2026-11-21T12:00:00Z").value_or(0);
  EXPECT_EQ(clockProblem(now, {}), "");
  EXPECT_EQ(clockProblem(now, {now - 1, now - 1, 2026}), "");
  EXPECT_EQ(clockProblem(now, {now + 60, now + 60, 2026}), "") << "a minute is nothing";
  EXPECT_THAT(clockProblem(now, {now + 3600, std::nullopt, 2026}), HasSubstr("newest snapshot"));
  EXPECT_THAT(clockProblem(now, {std::nullopt, now + 3600, 2026}), HasSubstr("last backup ended"));
  EXPECT_THAT(clockProblem(now, {std::nullopt, std::nullopt, 2027}),
              HasSubstr("a year before this program was made"));
}

TEST_F(HelmsmanMachine, AClockThatIsBehindItsSnapshotsIsToldByCheckAndBackup) {
  root.makeFolder(std::string(kRepository) + "/files1/2999-01-01-000000");
  const auto check = helmsman({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.out, HasSubstr("the newest snapshot is of 2999-01-01T00:00:00Z"));
  EXPECT_THAT(helmsman({"backup"}).err, HasSubstr("warning: the clock of this host says"));
}

// ---- configuration

class HelmsmanConfiguration : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    install("snapwheel", root);
  }
};

TEST_F(HelmsmanConfiguration, AKeyThatTheEngineDoesNotKnowIsRefusedByName) {
  root.writeFile("/etc/halyard-host/snapwheel.conf", "keep-daly=7\n");
  const auto result = refused("snapwheel", {"list"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("/etc/halyard-host/snapwheel.conf"));
  EXPECT_THAT(result.err, HasSubstr("keep-daly"));
  const auto check = helmsman({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.out, HasSubstr("keep-daly"));
  root.writeFile("/etc/halyard-host/snapwheel.conf", "[snapshot]\ncolour=red\n");
  EXPECT_EQ(refused("snapwheel", {"list"}).status, 2);
}

TEST_F(HelmsmanConfiguration, AnUnknownKeyOfHelmsmansOwnFilesIsAnErrorOfCheck) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "stall-limt = 4s\n");
  const auto result = helmsman({"check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("/etc/halyard-host/helmsman.conf"));
  EXPECT_THAT(result.out, HasSubstr("stall-limt"));
  root.writeFile("/etc/halyard-host/helmsman.conf", "stall-limit = 4s\n");
  EXPECT_THAT(helmsman({"check"}).out, Not(HasSubstr("helmsman.conf")));
}

TEST_F(HelmsmanConfiguration, KeysOfTheEngineAreTaken) {
  root.writeFile("/etc/halyard-host/snapwheel.conf", "keep-daily=7\n[snapshot]\nvolume=Disk\n");
  EXPECT_EQ(refused("snapwheel", {"list"}).status, 0);
  EXPECT_THAT(helmsman({"check"}).out, Not(HasSubstr("snapwheel.conf")));
}

TEST_F(HelmsmanConfiguration, UnknownKeysOfThePreferencesAreErrors) {
  root.writeFile(kEngine, test::plistDocument("<dict><key>DayToRetain</key><integer>9</integer>"
                                              "</dict>"));
  root.writeFile(kServices, test::plistDocument("<dict><key>service</key><dict/>"
                                                "<key>services</key><dict/></dict>"));
  const auto check = helmsman({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.out, HasSubstr("error: " + std::string(kEngine) + ": DayToRetain"));
  EXPECT_THAT(check.out, HasSubstr("error: " + std::string(kServices) + ": service:"));
}

TEST_F(HelmsmanConfiguration, NothingThatIsShippedIsFoundFaultWith) {
  const std::string source = test::sourceFolder();
  for (const char* name : {"20-rosterHost", "30-postHost", "35-agendaHost", "40-parleyHost",
                           "45-hostProfile", "50-depotHost", "60-siteHost"}) {
    root.writeFile("/usr/share/halyard/services/" + std::string(name) + ".plist",
                   test::Scratch::contents(source + "/services/descriptors/" + name + ".plist"));
    const std::string plugin = std::string(name).substr(3);
    root.writeFile("/usr/libexec/halyard/" + plugin,
                   test::Scratch::contents(source + "/services/plugins/" + plugin), 0755);
  }
  root.writeFile("/usr/libexec/halyard/plugin-lib.sh",
                 test::Scratch::contents(source + "/services/plugin-lib.sh"));
  root.writeFile("/etc/halyard-host/snapwheel.exclude",
                 test::Scratch::contents(source + "/packaging/etc/snapwheel.exclude"));
  root.remove(kServices);
  root.remove(kEngine);
  ASSERT_EQ(helmsman({"setup"}).status, 0);
  ASSERT_EQ(helmsman({"destination", "/Volumes/Backup", "--same-volume"}).status, 0);
  const auto check = helmsman({"check"});
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.out, "");
  EXPECT_THAT(check.err, HasSubstr("7 descriptors, 0 errors, 0 warnings"));
}

}  // namespace
}  // namespace halyard::hostkit

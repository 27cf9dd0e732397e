// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What undo takes back and what it does not, and tidy.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "common/trusted_folder.h"
#include "helmsman/restore/tidy.h"
#include "host_kit_root.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr char kPlugin[] = "/usr/libexec/plugin";
constexpr char kMetadata[] =
    "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System/.Halyards";

// One service with a data file; its restore program is the test's.
class UndoTest : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    writePlugin(":");
    root.writePreferences({{"depotHost", 1}});
    describe({"/srv/depot"});
    root.writeFile(std::string(kMetadata) + "/depotHost/srv/depot", "old data");
    root.writeFile(std::string(kMetadata) + "/.halyardSignature", "x");
    root.writeFile("/srv/depot", "new data");
  }
  void describe(const std::vector<std::string>& dataFiles) const {
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", kPlugin).list("DataFiles", dataFiles));
  }
  void writePlugin(const std::string& restoreBody) const {
    root.writePlugin(kPlugin, "case $2 in\nrestore) " + restoreBody +
                                  " ;;\nverify) echo 'Number of failures to match := 0' ;;\n"
                                  "esac" +
                                  test::kSayDone + "exit 0");
  }
  // The one item of the record.
  void changeRecord(const std::function<void(nlohmann::json& item)>& change) const {
    static constexpr char kRecord[] = "/var/lib/halyard/undo/depotHost.json";
    auto record = nlohmann::json::parse(root.readFile(kRecord));
    change(record["items"][0]);
    root.writeFile(kRecord, record.dump());
  }
  test::CommandResult restored() const {
    auto result = helmsman({"restore", "depotHost", "--yes"});
    EXPECT_EQ(result.status, 0) << result.err;
    return result;
  }
};

using HelmsmanUndoes = UndoTest;
using HelmsmanTidy = UndoTest;

// ---- what a restore must not lose or claim

TEST_F(HelmsmanUndoes, ASecondRestoreDoesNotReplaceWhatTheFirstSetAside) {
  restored();
  const auto second = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("/srv/depot.previous is what the restore of"));
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "new data");
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
  restored();
}

TEST_F(HelmsmanUndoes, ARestoreProgramThatIsMissingIsToldBefore) {
  root.remove(kPlugin);
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the restore program of depotHost cannot be run"));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanTidy, LeavesAPreviousThatNoRestoreSetAside) {
  root.remove("/srv/depot");
  root.writeFile("/srv/depot.previous", "somebody's own");
  restored();
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "somebody's own");
}

// Its number is that of what was set aside, as when a file system gives a number out again.
TEST_F(HelmsmanTidy, LeavesAnotherItemThatGotTheNumberOfWhatWasSetAside) {
  restored();
  root.remove("/srv/depot.previous");
  root.writeFile("/srv/depot.previous", "somebody's own");
  struct stat status {};
  ASSERT_EQ(::stat(root.path("/srv/depot.previous").c_str(), &status), 0);
  changeRecord([&status](nlohmann::json& item) { item["aside"] = status.st_ino; });
  const auto undone = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(undone.status, 1);
  EXPECT_THAT(undone.err, HasSubstr("/srv/depot.previous is not what the restore set aside\n"));
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "somebody's own");
}

TEST_F(HelmsmanUndoes, ARecordOfAnEarlierVersionGoesByTheNumberAndSaysSo) {
  restored();
  changeRecord([](nlohmann::json& item) { item.erase("asideBorn"); });
  const std::string doubt =
      "warning: /srv/depot.previous is not known for sure to be what the restore set aside: its "
      "record has only the inode number\n";
  EXPECT_THAT(helmsman({"tidy"}).err, HasSubstr(doubt));
  const auto undone = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(undone.status, 0);
  EXPECT_THAT(undone.err, HasSubstr(doubt));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
  EXPECT_THAT(helmsman({"undo", "depotHost", "--yes"}).err, Not(HasSubstr("for sure")));
}

TEST_F(HelmsmanTidy, LeavesWhatAnUndoRefusedToMove) {
  restored();
  root.writeFile("/srv/own", "somebody's own");
  ASSERT_EQ(::rename(root.path("/srv/own").c_str(), root.path("/srv/depot.previous").c_str()), 0);
  EXPECT_NE(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  (void)helmsman({"tidy", "--yes"});
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "somebody's own");
}

// ---- undo

TEST_F(HelmsmanUndoes, AnItemInsideAnotherBeforeTheOuterOne) {
  describe({"/srv/tree", "/srv/tree/inner"});
  for (const char* item : {"/srv/tree/inner", "/srv/tree/other"}) {
    root.writeFile(std::string(kMetadata) + "/depotHost" + item, "old");
    root.writeFile(item, "new");
  }
  restored();
  ASSERT_EQ(root.readFile("/srv/tree/inner"), "old");
  auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/tree/inner"), "new");
  EXPECT_FALSE(root.exists("/srv/tree/inner.previous"));

  result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/tree/inner"), "old");
  EXPECT_EQ(root.readFile("/srv/tree/other"), "old");
}

TEST_F(HelmsmanUndoes, WhatThePluginPutBackOnItsOwn) {
  root.writeFile("/etc/own.conf", "new settings");
  writePlugin(
      "mv /etc/own.conf /etc/own.conf.previous; echo old >/etc/own.conf; echo x >/etc/extra.conf\n"
      "echo aside /etc/own.conf >>$HALYARD_RESTORE_JOURNAL\n"
      "echo made /etc/extra.conf >>$HALYARD_RESTORE_JOURNAL");
  EXPECT_THAT(restored().err, HasSubstr("set aside /etc/own.conf.previous\n"));
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/etc/own.conf"), "new settings");
  EXPECT_FALSE(root.exists("/etc/extra.conf"));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanUndoes, AProblemThatThePluginTellsIsAFailedRestore) {
  writePlugin("echo problem one mailbox is missing >>$HALYARD_RESTORE_JOURNAL");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("helmsman: one mailbox is missing\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("restored depotHost")));
}

TEST_F(HelmsmanUndoes, NoMoreThanItCan) {
  describe({"/srv/depot", "/srv/live"});
  root.writeFile("/srv/live", "live");
  writePlugin("echo more >>/srv/live");
  EXPECT_THAT(restored().err, HasSubstr("/srv/live was changed in place, by the restore or by its "
                                        "server: undo cannot take that back"));
  EXPECT_THAT(helmsman({"undo", "depotHost"}).out,
              HasSubstr("It cannot take back:\n  /srv/live: was changed in place"));
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(HelmsmanUndoes, ARestoreThatBrokeOffWhichStatusTells) {
  restored();
  const std::string broken = "the restore of depotHost, begun just now, did not come to its end";
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr(broken)));
  const std::string record = "/var/lib/halyard/undo/depotHost.json";
  auto document = nlohmann::json::parse(root.readFile(record));
  document["finished"] = false;
  root.writeFile(record, document.dump());
  const auto result = helmsman({"status", "--check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              HasSubstr("Problem: " + broken + " (unless it still runs: helmsman undo depotHost)"));
  EXPECT_EQ(helmsman({"undo", "depotHost", "--yes"}).status, 4);
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr(broken)));
}

TEST_F(HelmsmanUndoes, NothingThatSomebodyElsePutAside) {
  restored();
  root.writeFile("/srv/keep", "");  // Keeps the number of the removed one from being used again.
  root.writeFile("/srv/other", "somebody's");
  ASSERT_EQ(::rename(root.path("/srv/other").c_str(), root.path("/srv/depot.previous").c_str()), 0);
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/srv/depot.previous is not what the restore set aside"));
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "somebody's");
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
}

TEST_F(HelmsmanUndoes, WithTheServerStoppedBeforeAndStartedAfter) {
  restored();
  root.makeFolder("/run/systemd/system");
  root.writeScript("/usr/bin/systemctl",
                   "case $1,$2 in is-active,smbd.service) echo active ;; is-*) echo inactive ;;\n"
                   "*) echo \"$* $(cat /srv/depot)\" >>/systemctl-calls ;; esac");
  auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(test::linesOf(root.readFile("/systemctl-calls")),
              ElementsAre("stop smbd.service old data", "reset-failed smbd.service new data",
                          "start smbd.service new data"));

  root.writeScript("/usr/bin/systemctl",
                   "case $1,$2 in is-active,smbd.service) echo failed ;; is-*) echo inactive ;;\n"
                   "esac; [ $1 != start ]");
  result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("smbd.service does not run"));
}

TEST_F(HelmsmanUndoes, AndSaysWhatToRestartWhereItCannot) {
  restored();
  EXPECT_THAT(helmsman({"undo", "depotHost", "--yes"}).err,
              HasSubstr("systemd does not run here: restart the server of depotHost"));
}

// ---- the way to an item

TEST(TrustedPlace, FollowsLinksOfRootAndOfNobodyElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a link away";
  ASSERT_EQ(::mkdir("/run/halyard-trusted-test", 0755), 0);
  const std::string top = "/run/halyard-trusted-test";
  ASSERT_EQ(::mkdir((top + "/real").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("real", (top + "/roots").c_str()), 0);
  ASSERT_EQ(::symlink("real", (top + "/users").c_str()), 0);
  ASSERT_EQ(::lchown((top + "/users").c_str(), 1815, 1815), 0);
  EXPECT_TRUE(trustedPlace(top + "/real/item"));
  EXPECT_TRUE(trustedPlace(top + "/roots/item"));
  EXPECT_EQ(trustedPlace(top + "/roots/item")->name, "item");
  EXPECT_EQ(trustedPlace(top + "/users/item").error().code, ELOOP);
  EXPECT_FALSE(trustedPlace(top + "/none/item"));
  EXPECT_FALSE(trustedPlace("relative/item"));
  for (const char* name : {"/users", "/roots"}) EXPECT_EQ(::unlink((top + name).c_str()), 0);
  for (const char* name : {"/real", ""}) EXPECT_EQ(::rmdir((top + name).c_str()), 0);
}

// ---- tidy

TEST(Age, IsANumberAndAUnit) {
  EXPECT_EQ(parseAge("90s"), 90);
  EXPECT_EQ(parseAge("10min"), 600);
  EXPECT_EQ(parseAge("12h"), 43200);
  EXPECT_EQ(parseAge("30d"), 2592000);
  EXPECT_EQ(parseAge("2w"), 1209600);
  for (const char* text : {"", "d", "30", "-1d", "30 d", "1y"}) {
    EXPECT_EQ(parseAge(text), std::nullopt) << text;
  }
}

TEST_F(HelmsmanTidy, RemovesWhatRestoresSetAsideAndNothingElse) {
  root.writeFile("/srv/somebody.previous", "not ours");
  restored();
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("1 items by restores"));
  const auto result = helmsman({"tidy", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(root.exists("/srv/depot.previous"));
  EXPECT_EQ(root.readFile("/srv/somebody.previous"), "not ours");
  EXPECT_EQ(root.readFile("/srv/depot"), "old data");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("by restores")));
  const auto undone = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(undone.status, 1);
  EXPECT_THAT(undone.err, HasSubstr("/srv/depot was set aside, which helmsman tidy removed"));
}

TEST_F(HelmsmanTidy, AsksAndADryRunRemovesNothing) {
  restored();
  EXPECT_EQ(helmsman({"tidy"}).status, 1);
  EXPECT_THAT(helmsman({"tidy", "--dry-run"}).out, HasSubstr("/srv/depot.previous"));
  EXPECT_EQ(helmsman({"tidy", "--yes", "--older-than", "1d"}).status, 0);
  EXPECT_EQ(helmsman({"tidy", "--yes", "--older-than", "soon"}).status, 2);
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "new data");
}

TEST_F(HelmsmanTidy, LeavesWhatIsNotWhatWasSetAside) {
  restored();
  root.writeFile("/srv/other", "somebody's");
  ASSERT_EQ(::rename(root.path("/srv/other").c_str(), root.path("/srv/depot.previous").c_str()), 0);
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "somebody's");
}

TEST_F(HelmsmanTidy, KnowsWhatAnEarlierRestoreSetAsideElsewhere) {
  restored();
  describe({"/srv/second"});
  root.writeFile(std::string(kMetadata) + "/depotHost/srv/second", "old");
  root.writeFile("/srv/second", "new");
  restored();
  const auto items = helmsmanJson({"tidy", "--dry-run", "--json"}).dump();
  EXPECT_THAT(items, HasSubstr("/srv/depot.previous"));
  EXPECT_THAT(items, HasSubstr("/srv/second.previous"));
}

TEST_F(HelmsmanTidy, NoSnapshotHoldsWhatIsSetAside) {
  restored();
  root.writeScript("/usr/sbin/snapwheel", "echo \"$*\" >>/engine-calls");
  (void)helmsman({"backup"});
  EXPECT_THAT(test::linesOf(root.readFile("/engine-calls")),
              Contains("snapshot --json --exclude /var/lib/halyard/current-run.json --exclude "
                       "/srv/depot.previous"));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Backup, restore, recover, undo and tidy keep each other out, and Halyard itself as far as they
// can.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "backup_test.h"
#include "host/files/descriptor.h"
#include "support/mounts.h"
#include "support/system_calls.h"

namespace halyard::hostkit {
namespace {

using test::kPlugin;
using testing::HasSubstr;
using testing::Not;

constexpr char kPidFile[] = "/private/var/run/HalyardRunning.pid";
constexpr char kLock[] = "/run/halyard/backup.lock";

// One snapshot of two services, and a depotHost that was restored from it.
class HostWorkTest : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin, std::string("case $2 in restore) [ -x /probe ] && /probe ;; "
                                          "backup) mkdir -p \"$4/srv\" ;; "
                                          "verify) echo 'Number of failures to match := 0' ;; "
                                          "esac") +
                                  test::kSayDone + "exit 0");
    ASSERT_EQ(helmsman({"backup"}).status, 0);
    root.writeFile("/srv/depot", "changed");
    const auto restored = helmsman({"restore", "depotHost", "--yes"});
    ASSERT_EQ(restored.status, 0) << restored.err;
  }
  // What tries to begin, and the status that it ends with, while the command at hand is at work.
  void probeWith(const std::string& commands) const {
    root.writeScript("/probe", "{ " + commands + "; } >>/answers 2>&1");
  }
  // The server of depotHost, whose stop is a step of its undo.
  void runProbeInUndo() const {
    root.makeFolder("/run/systemd/system");
    root.writeScript("/usr/bin/systemctl",
                     "case $1 in is-active) [ $2 = smbd.service ] && echo active ;; "
                     "stop) /probe ;; esac; exit 0");
  }
  std::string answers() const { return root.readFile("/answers"); }

  void holdLock(off_t start) {
    lock_ = host::Descriptor(::open(root.path(kLock).c_str(), O_RDWR | O_CLOEXEC));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    ASSERT_EQ(::fcntl(lock_.get(), F_OFD_SETLK, &lock), 0);
  }
  void letGo() { lock_.reset(); }
  void everyoneIsRefused(const std::string& reason) const {
    const std::string depot = root.readFile("/srv/depot");
    for (const std::vector<std::string>& words : kWork) {
      const auto result = helmsman(words);
      EXPECT_EQ(result.status, 3) << words.front();
      EXPECT_EQ(result.err, "helmsman: " + reason + "\n") << words.front();
    }
    EXPECT_EQ(root.readFile("/srv/depot"), depot);
    EXPECT_EQ(root.readFile("/srv/depot.previous"), "changed");
    EXPECT_FALSE(root.exists(kPidFile));
  }
  const std::vector<std::vector<std::string>> kWork = {
      {"restore", "postHost", "--yes"}, {"recover", "--yes"},
      {"undo", "depotHost", "--yes"},   {"tidy", "--yes"},
      {"enable", "postHost"},           {"disable", "postHost"}};

 private:
  host::Descriptor lock_;
};

using HostWork = HostWorkTest;

TEST_F(HostWork, IsRefusedDuringAnother) {
  holdLock(1);
  {
    const host::Descriptor file(::open(root.path(kLock).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    const std::string holder = "helmsman undo (process 4711)\n";
    ASSERT_EQ(::write(file.get(), holder.data(), holder.size()),
              static_cast<ssize_t>(holder.size()));
  }
  everyoneIsRefused("helmsman undo (process 4711) is running");
  const auto backup = helmsman({"backup"});
  EXPECT_EQ(backup.status, 3);
  EXPECT_EQ(
      backup.err,
      "helmsman: helmsman undo (process 4711) is running; a backup would show half of its work\n");
  EXPECT_EQ(record()["result"], "good") << "nothing is recorded";
  EXPECT_EQ(helmsmanJson({"status", "--json"})["run"]["active"], false) << "it is no backup";
}

TEST_F(HostWork, WaitsAsLongAsItIsTold) {
  holdLock(1);
  std::thread other([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    letGo();
  });
  const auto patient = helmsman({"--wait", "60", "enable", "postHost"});
  other.join();
  EXPECT_EQ(patient.status, 0) << patient.err;
  EXPECT_THAT(patient.err, HasSubstr("waiting for "));
  holdLock(0);
  EXPECT_EQ(helmsman({"enable", "postHost", "--wait", "1"}).status, 3);
  EXPECT_EQ(helmsman({"backup", "--wait", "1"}).status, 3);
}

TEST_F(HostWork, ABackupThatMayWaitHasItsEngineWaitToo) {
  ASSERT_EQ(helmsman({"backup", "--wait", "600"}).status, 0);
  EXPECT_THAT(engineCalls(),
              testing::Contains(testing::MatchesRegex("snapshot --json --wait [0-9]+ .*")));
  EXPECT_THAT(engineCalls(), testing::Contains(testing::MatchesRegex("prune --wait [0-9]+")));
}

TEST_F(HostWork, ThatWaitsForADayIsNoReasonToBeQuiet) {
  holdLock(1);
  const timespec longAgo[2] = {{1, 0}, {1, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, root.path(kLock).c_str(), longAgo, 0), 0);
  const auto backup = helmsman({"backup"});
  EXPECT_EQ(backup.status, 1);
  EXPECT_THAT(backup.err, HasSubstr("has been running for longer than a day"));
}

TEST_F(HostWork, ADryRunWaitsForNobody) {
  holdLock(0);
  EXPECT_EQ(helmsman({"tidy", "--dry-run"}).status, 0);
  EXPECT_EQ(helmsman({"restore", "postHost", "--dry-run"}).status, 0);
}

TEST_F(HostWork, ABackupThatBeginsDuringARestoreIsBusy) {
  probeWith("helmsman backup; echo backup $?; helmsman undo depotHost --yes; echo undo $?");
  root.writeFile("/srv/post", "changed");
  const auto result = helmsman({"restore", "postHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(answers(), HasSubstr("helmsman restore (process "));
  EXPECT_THAT(answers(), HasSubstr("a backup would show half of its work\nbackup 3\n"));
  EXPECT_THAT(answers(), HasSubstr("undo 3\n"));
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HostWork, WhatBeginsDuringAnUndoIsBusy) {
  const test::TestMount kernel = test::TestMount::bind(root.path("/proc"), "/proc");
  if (!kernel.isMounted()) GTEST_SKIP() << "no mounts can be had here";
  runProbeInUndo();
  probeWith(
      "helmsman backup; echo backup $?; helmsman restore postHost --yes; echo restore $?; "
      "helmsman unlock; echo unlock $?; helmsman verify; echo verify $?; "
      "Halyard -cmd backup -source /; echo Halyard $?");
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(root.readFile("/srv/depot"), "changed") << result.err;
  EXPECT_THAT(answers(), HasSubstr("backup 3\n"));
  EXPECT_THAT(answers(), HasSubstr("restore 3\n"));
  EXPECT_THAT(answers(), testing::ContainsRegex("helmsman undo is running \\(process [0-9]+\\); it "
                                                "keeps its pid file\nunlock 3\n"));
  EXPECT_THAT(answers(), HasSubstr("verify 3\n"));
  EXPECT_THAT(answers(), HasSubstr("Halyard 37\n"));
  EXPECT_FALSE(root.exists(kPidFile));
  for (const std::string& name : root.list("/private/var/run")) {
    EXPECT_THAT(name, Not(HasSubstr(".pid"))) << "nothing of it is left";
  }
}

TEST_F(HostWork, AnUndoWaitsForNoHalyardThatRunsAndTouchesNothing) {
  root.writeFile(kPidFile, std::to_string(::getpid()) + " :: backup\n");
  EXPECT_NE(helmsman({"undo", "depotHost", "--yes"}).status, 0);
  EXPECT_NE(helmsman({"tidy", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "changed");
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST_F(HostWork, TidyKeepsHalyardOutUntilItHasRemovedAll) {
  if (const std::string reason = test::whyUntraceable(); !reason.empty()) GTEST_SKIP() << reason;
  const test::TracedRun run = test::traced(root, "/usr/sbin/helmsman", {"tidy", "--yes"});
  EXPECT_EQ(run.result.status, 0) << run.result.err;
  EXPECT_TRUE(test::inOrder(
      run.calls,
      {"link*, \"/private/var/run/HalyardRunning.pid\"*", "unlink*\"depot.previous\"*",
       "renameat*\"depotHost.json\"*", "unlink(\"/private/var/run/HalyardRunning.pid\")*"}));
}

}  // namespace
}  // namespace halyard::hostkit

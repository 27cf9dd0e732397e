// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Plug-ins that make no progress, runs that are told to stop, and runs that never came to their
// end.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include "backup_test.h"
#include "common/times.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/program/process_tree.h"
#include "helmsman/run/current_run.h"
#include "host/files/descriptor.h"
#include "support/mounts.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using test::kPlugin;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kConfiguration[] = "/etc/halyard-host/helmsman.conf";
constexpr char kMark[] = "/var/lib/halyard/current-run.json";

// With /proc, where helmsman finds what its children have started.
class StallTest : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.makeFolder("/proc");
    processes =
        std::make_unique<test::TestMount>(test::TestMount::bind(root.path("/proc"), "/proc"));
    if (!processes->isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  }
  void TearDown() override { processes.reset(); }

  // The depot's program, in its backup; anything else that it is asked for is answered at once.
  void depotDoes(const std::string& body) const {
    root.writePlugin("/usr/libexec/slow", "[ \"$2\" = backup ] || exit 0\n" + body);
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/slow"));
  }
  // Waits until the plug-in has written the number of its process, or gives 0.
  int processIn(const std::string& file) const {
    for (int look = 0; look < 600; ++look) {
      const int process = std::atoi(root.readFile(file).c_str());
      if (process > 0) return process;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return 0;
  }
  static bool isAlive(int process) {
    for (const ProcessEntry& entry : allProcesses()) {
      if (entry.process == process) return !entry.hasEnded;
    }
    return false;
  }

  std::unique_ptr<test::TestMount> processes;
};

using HelmsmanStall = StallTest;

TEST_F(HelmsmanStall, AProgramWithoutProgressIsEndedWithItsChildrenAndTheRunGoesOn) {
  depotDoes("sleep 300 & echo $! >/child\n(trap '' TERM; sleep 301) & wait");
  const auto begin = std::chrono::steady_clock::now();
  const auto result = helmsman({"backup", "--stall-limit", "1s"});
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  EXPECT_EQ(result.status, 4) << result.err;
  EXPECT_THAT(result.err,
              HasSubstr("depotHost: its backup program made no progress for 1s and was ended\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("ended with status")));
  EXPECT_FALSE(isAlive(processIn("/child")));
  auto kept = record();
  EXPECT_EQ(kept["services"][0]["result"], "failed");
  EXPECT_EQ(kept["services"][1]["result"], "good");
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
}

TEST_F(HelmsmanStall, AProgramThatGetsOnMayTakeLongerThanTheLimit) {
  depotDoes("for i in 1 2 3 4 5 6; do echo; sleep 1; done");
  EXPECT_EQ(helmsman({"backup", "--stall-limit", "3s"}).status, 0);
}

TEST_F(HelmsmanStall, ItsOrphansAreEndedAndServersOfEarlierServicesAreNot) {
  root.writePlugin(kPlugin,
                   "[ \"$2\" = backup ] || exit 0\nmkdir -p \"$4/srv\"\n"
                   "sleep 302 </dev/null >/dev/null 2>&1 & echo $! >/server\n");
  root.writePlugin("/usr/libexec/slow",
                   "[ \"$2\" = backup ] || exit 0\n(sleep 303 & echo $! >/orphan) & sleep 304");
  root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", "/usr/libexec/slow"));
  // The engine comes after the stall; the end of the test takes everything.
  installEngine("kill -0 $(cat /server) && : >/server-lives\n" + std::string(kCopyMetadata));
  EXPECT_EQ(helmsman({"backup", "--stall-limit", "2s"}).status, 4);
  EXPECT_FALSE(isAlive(processIn("/orphan")));
  EXPECT_TRUE(root.exists("/server-lives"));
}

// It starts what it leaves behind while the plug-in is already running, as a server does that forks
// again on its way into the background.
TEST_F(HelmsmanStall, AServerOfAPreBackupCommandIsNoProgressOfThePlugin) {
  root.writeScript("/usr/libexec/prepare",
                   "sleep 305 </dev/null >/dev/null 2>&1 & echo $! >/server\n"
                   "(sleep 1; (for i in $(seq 100); do sleep 0.2; done) &) "
                   "</dev/null >/dev/null 2>&1 &");
  root.writePlugin("/usr/libexec/slow", "[ \"$2\" = backup ] || exit 0\nsleep 300");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/usr/libexec/slow")
                           .list("PreBackupServiceCommands", {"/usr/libexec/prepare"}));
  installEngine("kill -0 $(cat /server) && : >/server-lives\n" + std::string(kCopyMetadata));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(helmsman({"backup", "--stall-limit", "2s"}).status, 4);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  EXPECT_TRUE(root.exists("/server-lives"));
}

TEST_F(HelmsmanStall, AProgramThatIsAskedForItsSizeIsWatchedToo) {
  root.writePlugin(kPlugin,
                   "[ \"$2\" = backup ] && mkdir -p \"$4/srv\"\n"
                   "[ \"$2\" = size ] && sleep 300\nexit 0");
  const auto result = helmsman({"backup", "--stall-limit", "1s"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("warning: depotHost: its backup program, asked for its size, "
                                    "made no progress for 1s and was ended\n"));
  EXPECT_FALSE(record().contains("estimateBytes"));
}

TEST_F(HelmsmanStall, TheLimitOfTheConfigurationCountsAndAServicesOwnComesFirst) {
  depotDoes("sleep 2; mkdir -p \"$4/srv\"");
  root.writeFile(kConfiguration, "# Short, for a test.\nstall-limit = 1s\n");
  EXPECT_EQ(helmsman({"backup"}).status, 4);
  root.writeFile("/etc/halyard-host/services/depotHost.conf", "stall-limit = 1min\n");
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanStall, StatusShowsWhatARunDoesWhileSizesAreAskedFor) {
  root.writePlugin(
      kPlugin,
      "[ \"$2\" = size ] && { echo $$ >/asked; while [ ! -e /go ]; do sleep 0.1; done; }\n"
      "[ \"$2\" = backup ] && mkdir -p \"$4/srv\"\nexit 0");
  std::thread run([this] { EXPECT_EQ(helmsman({"backup"}).status, 0); });
  EXPECT_GT(processIn("/asked"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  const auto document = helmsmanJson({"status", "--json"});
  const auto text = helmsman({"status"});
  const auto second = helmsman({"backup"});
  root.writeFile("/go", "");
  run.join();
  EXPECT_EQ(document["run"]["active"], true);
  EXPECT_EQ(document["run"]["phase"], "asking the services for their size");
  EXPECT_EQ(document["run"]["service"], "depotHost");
  EXPECT_THAT(text.out, HasSubstr("): asking the services for their size, depotHost\n"));
  EXPECT_EQ(second.status, 3);
  EXPECT_FALSE(root.exists("/run/halyard/backup.json"));
}

TEST_F(HelmsmanStall, StatusReadsOverWhatIsNoRunInTheFileOfTheRun) {
  depotDoes("echo $$ >/asked; while [ ! -e /go ]; do sleep 0.1; done; mkdir -p \"$4/srv\"");
  std::thread run([this] { EXPECT_EQ(helmsman({"backup"}).status, 0); });
  EXPECT_GT(processIn("/asked"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(600));  // The phase is written.
  root.writeFile("/run/halyard/backup.json", R"({"process": "4711", "phase": 1})");
  const auto result = helmsman({"status", "--json"});
  root.writeFile("/go", "");
  run.join();
  auto document = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(document.is_object()) << result.out << result.err;
  EXPECT_EQ(document["run"]["process"], 0);
}

TEST_F(HelmsmanStall, ASignalEndsTheRunInOrderAndNothingIsOrphaned) {
  depotDoes("sleep 305 & echo $! >/child\necho $PPID >/halyard; wait");
  test::CommandResult result;
  std::thread run([this, &result] { result = helmsman({"backup"}); });
  const int child = processIn("/child");
  const int halyard = processIn("/halyard");
  int helm = 0;
  for (const ProcessEntry& entry : allProcesses()) {
    if (entry.process == halyard) helm = entry.parent;
  }
  ASSERT_GT(helm, 1);
  EXPECT_EQ(::kill(helm, SIGTERM), 0);
  run.join();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the run was told to stop (SIGTERM)\n"));
  EXPECT_FALSE(isAlive(child));
  EXPECT_FALSE(isAlive(halyard));
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
  EXPECT_FALSE(root.exists(kMark));
  EXPECT_EQ(record()["result"], "interrupted");
  EXPECT_THAT(engineCalls(), IsEmpty());
  for (const std::string& call : root.calls()) EXPECT_THAT(call, Not(HasSubstr("postHost|-log")));
  EXPECT_THAT(helmsman({"metrics"}).out, HasSubstr("\nhalyard_backup_interrupted 1\n"));
}

// A plug-in that does not heed SIGTERM keeps Halyard stopped for some seconds. A shell stands
// around them: the kernel itself wakes a group of processes that loses its last tie to the session.
TEST_F(HelmsmanStall, AHelmsmanThatIsKilledLeavesNoStoppedHalyardBehind) {
  for (const char* pipe : {"/go", "/stay"}) {
    ASSERT_EQ(::mkfifo(root.path(pipe).c_str(), 0600), 0);
  }
  depotDoes("trap '' TERM\necho $PPID >/halyard\nread line </go");
  std::thread run([this] {
    (void)root.runProgram(
        "/bin/sh", {"-c", "/usr/sbin/helmsman backup --stall-limit 1s & wait; read line </stay"});
  });
  const int halyard = processIn("/halyard");
  const auto becomes = [halyard](bool stopped) {
    for (int look = 0; look < 300; ++look) {
      const auto entry = processEntry(halyard);
      if (!entry || entry->isStopped == stopped) return entry && !entry->hasEnded;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  };
  EXPECT_TRUE(becomes(true));
  EXPECT_EQ(::kill(processEntry(halyard)->parent, SIGKILL), 0);
  EXPECT_TRUE(becomes(false));
  const host::Descriptor stay(::open(root.path("/stay").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(::write(stay.get(), "\n", 1), 1);
  run.join();
}

// ---- runs that never came to their end

using HelmsmanInterrupted = test::BackupTest;

TEST_F(HelmsmanInterrupted, ARunThatLeftItsMarkIsShownAsInterrupted) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  root.writeFile(kMark, R"({"process": 999999999, "started": "2026-11-21T02:00:00Z"})");
  const auto document = helmsmanJson({"status", "--json"});
  EXPECT_EQ(document["lastBackup"]["result"], "interrupted");
  EXPECT_EQ(document["well"], false);
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("Last backup:      interrupted, "));
  const auto metrics = helmsman({"metrics"});
  EXPECT_THAT(metrics.out, HasSubstr("\nhalyard_backup_interrupted 1\n"));
  EXPECT_THAT(metrics.out, HasSubstr("\nhalyard_backup_result 0\n"));
  EXPECT_THAT(metrics.out, HasSubstr("\nhalyard_backup_last_good_timestamp_seconds "));
}

// It stands while the snapshot is taken, and a host that comes of it would tell of an interrupted
// run.
TEST_F(HelmsmanInterrupted, TheMarkIsInNoSnapshot) {
  installEngine(std::string("[ -e ") + kMark + " ] && touch /mark-stood\n" + kCopyMetadata);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_TRUE(root.exists("/mark-stood"));
  EXPECT_THAT(engineCalls().front(), HasSubstr(std::string("--exclude ") + kMark));
}

TEST_F(HelmsmanInterrupted, TheNextRunKeepsItsRecordAndEndsItsMark) {
  root.writeFile(kMark, R"({"process": 999999999, "started": "2026-11-21T02:00:00Z"})");
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_FALSE(root.exists(kMark));
  EXPECT_EQ(record()["result"], "good");
  EXPECT_THAT(root.readFile("/var/lib/halyard/results/2026-11-21T020000Z.json"),
              HasSubstr("\"result\": \"interrupted\""));
}

TEST_F(HelmsmanInterrupted, TheHookOfTheUnitKeepsItToo) {
  root.writeFile(kMark, R"({"process": 999999999, "started": "2026-11-21T02:00:00Z"})");
  EXPECT_EQ(helmsman({"metrics", "--unit-failed", "halyard-backup.service"}).status, 0);
  EXPECT_EQ(record()["result"], "interrupted");
  EXPECT_FALSE(root.exists(kMark));
}

// The lock is a pipe without a writer, so that helmsman waits where it asks for the lock.
TEST_F(HelmsmanInterrupted, ARunThatEndsWhileSomebodyLooksIsNone) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  const std::string started = record()["started"];
  const std::string kept = root.readFile(test::kRecord);
  root.remove(test::kRecord);
  root.remove("/run/halyard/backup.lock");
  root.writeFile(kMark, R"({"process": 1, "started": ")" + started + "\"}");
  ASSERT_EQ(::mkfifo(root.path("/run/halyard/backup.lock").c_str(), 0600), 0);
  test::CommandResult metrics;
  std::thread look([this, &metrics] { metrics = helmsman({"metrics"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  // The run keeps its record, removes its mark and lets go of the lock.
  root.writeFile(test::kRecord, kept);
  root.remove(kMark);
  const host::Descriptor lock(
      ::open(root.path("/run/halyard/backup.lock").c_str(), O_RDWR | O_CLOEXEC));
  look.join();
  EXPECT_THAT(metrics.out, HasSubstr("\nhalyard_backup_interrupted 0\n"));
}

// ---- runs that never end

// Holds the lock of a running backup that says since when it runs.
class HelmsmanOverdue : public test::BackupTest {
 protected:
  void runningSince(std::int64_t started) {
    root.writeFile("/run/halyard/backup.json",
                   R"({"process": 4711, "started": ")" + timeText(started) + "\"}");
    lock_ = test::holdBackupLock(root);
  }

 private:
  host::Descriptor lock_;
};

TEST_F(HelmsmanOverdue, ABackupBesideOneOfTodayIsBusyAndNoFault) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  runningSince(secondsNow() - 3600);
  EXPECT_EQ(helmsman({"backup"}).status, 3);
  EXPECT_EQ(helmsman({"status", "--check"}).status, 0);
  EXPECT_THAT(helmsman({"check"}).out, Not(HasSubstr("has been running")));
}

TEST_F(HelmsmanOverdue, ABackupBesideOneOfYesterdayFails) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  runningSince(secondsNow() - 25 * 3600);
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("another backup has been running for longer than a day"));
  const auto status = helmsmanJson({"status", "--json", "--check"});
  EXPECT_EQ(status["well"], false);
  EXPECT_EQ(status["run"]["overdue"], true);
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("error: this host: a backup has been running for "
                                                 "longer than a day (process 4711)\n"));
}

TEST(PidFileState, AHalyardThatRunsForADayIsStuck) {
  PidFileState state;
  state.owner = PidFileState::Owner::halyard;
  state.process = 4711;
  state.command = "backup";
  state.runsFor = std::chrono::hours(23);
  EXPECT_FALSE(state.isStuck());
  EXPECT_EQ(describe(state), "Halyard is running (process 4711, backup)");
  state.runsFor = std::chrono::hours(24);
  EXPECT_TRUE(state.isStuck());
  EXPECT_EQ(describe(state), "Halyard is running (process 4711, backup, started 24 hours ago)");
}

TEST(RunningBackup, IsNotOverdueBecauseTheClockWasSet) {
  RunningBackup running;
  running.process = ::getpid();
  running.started = 1;
  EXPECT_FALSE(isOverdue(running));
  running.process = 0;  // Nobody knows of it.
  EXPECT_TRUE(isOverdue(running));
}

// ---- the configuration

TEST_F(HelmsmanInterrupted, AnUnknownKeyIsRefusedByName) {
  root.writeFile(kConfiguration, "\nstal-limit = 1min\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(
      result.err,
      HasSubstr("/etc/halyard-host/helmsman.conf:2: there is no key "
                "'stal-limit' (there are: stall-limit, leave-out, include, scrub, scrub-parts)\n"));
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(HelmsmanInterrupted, ASpanThatMeansNothingIsRefused) {
  root.writeFile("/etc/halyard-host/services/depotHost.conf", "stall-limit = soon\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("depotHost.conf:1: 'soon' is no span of time"));
  EXPECT_EQ(refused("helmsman", {"backup", "--stall-limit", "4"}).status, 2);
}

}  // namespace
}  // namespace halyard::hostkit

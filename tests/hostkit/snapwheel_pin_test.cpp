// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The built program: pins, and waiting for others.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "common/exit_status.h"
#include "host/files/descriptor.h"
#include "host_kit_root.h"

namespace halyard::snapwheel {
namespace {

using test::CommandResult;
using testing::HasSubstr;
using testing::SizeIs;

constexpr char kHostFolder[] = "/backup/Archives.snapdb/files1";
constexpr char kPidFile[] = "/private/var/run/HalyardRunning.pid";

class SnapshotPin : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    installEngine();
    root.writeFile("/data/file", "data");
  }
  CommandResult run(std::vector<std::string> words) const {
    words.insert(words.end(), {"--computer", "files1", "--days-to-retain", "0"});
    return snapwheel(words);
  }
  std::string take() const {
    const CommandResult taken = run({"snapshot", "--source", "/data", "--json"});
    EXPECT_EQ(taken.status, 0) << taken.err;
    return nlohmann::json::parse(taken.out)["name"].get<std::string>();
  }
  bool stands(const std::string& name) const {
    return root.exists(std::string(kHostFolder) + "/" + name + "/System/file");
  }
  nlohmann::json listed() const {
    return nlohmann::json::parse(run({"list", "--json"}).out, nullptr, false)["snapshots"];
  }
  /// Holds the lock for a while, as another engine does.
  std::thread holdLock(std::chrono::milliseconds time) const {
    const std::string path = root.path("/run/snapwheel.lock");
    root.writeFile("/run/snapwheel.lock", "process 1 on elsewhere\n");
    const int lock = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::flock(lock, LOCK_EX), 0);
    return std::thread([lock, time] {
      std::this_thread::sleep_for(time);
      ::close(lock);
    });
  }
};

TEST_F(SnapshotPin, ARuleDoesNotRemoveIt) {
  const std::string first = take();
  const std::string second = take();
  const std::string third = take();
  const CommandResult pinned = run({"pin", first, "--note", "before the upgrade"});
  EXPECT_EQ(pinned.status, 0) << pinned.err;
  EXPECT_THAT(pinned.out, HasSubstr(first + ": pinned (before the upgrade)"));
  EXPECT_EQ(run({"prune", "--dry-run", "--keep-last", "1"}).out,
            "keep   " + first + "  pinned (before the upgrade)\nremove " + second + "\nkeep   " +
                third + "  latest, last\n");
  const auto shown = nlohmann::json::parse(run({"prune", "--json", "--keep-last", "1"}).out);
  EXPECT_EQ(shown["kept"][0]["reason"], "pinned");
  EXPECT_EQ(shown["kept"][0]["pin"]["note"], "before the upgrade");
  EXPECT_TRUE(stands(first));
  EXPECT_FALSE(stands(second));
  EXPECT_EQ(run({"unpin", first}).status, 0);
  EXPECT_EQ(run({"prune", "--keep-last", "1"}).status, 0);
  EXPECT_FALSE(stands(first));
}

TEST_F(SnapshotPin, DeleteRemovesItOnlyByForceAndNothingBesideIt) {
  const std::string first = take();
  const std::string second = take();
  ASSERT_EQ(run({"pin", second}).status, 0);
  const CommandResult refused = run({"delete", first, second});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr(second + " is pinned; nothing was removed"));
  EXPECT_TRUE(stands(first));
  EXPECT_EQ(run({"delete", first, second, "--force"}).status, 0);
  EXPECT_THAT(listed(), SizeIs(0));
}

TEST_F(SnapshotPin, IsListedAndNotPassedOnToTheNext) {
  const std::string first = take();
  ASSERT_EQ(run({"pin", "latest", "--note", "\x1b[2J"}).status, 0);
  take();
  const nlohmann::json snapshots = listed();
  EXPECT_EQ(snapshots[0]["pin"]["note"], "\x1b[2J");
  EXPECT_TRUE(snapshots[0]["pin"]["time"].is_string());
  EXPECT_TRUE(snapshots[1]["pin"].is_null());
  EXPECT_THAT(run({"list"}).out, HasSubstr("pinned (\\x1B[2J)"));
}

TEST_F(SnapshotPin, OneThatIsNotFinishedIsRefused) {
  const std::string name = take();
  const std::string folder = std::string(kHostFolder) + "/";
  ASSERT_EQ(
      ::rename(root.path(folder + name).c_str(), root.path(folder + name + ".inProgress").c_str()),
      0);
  const CommandResult refused = run({"pin", name + ".inProgress"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("is not finished: it cannot be pinned"));
  EXPECT_EQ(run({"pin", name}).status, 1);
}

TEST_F(SnapshotPin, APinThatCannotBeReadKeepsTheSnapshot) {
  const std::string first = take();
  take();
  root.writeFile(std::string(kHostFolder) + "/" + first + "/.snapwheel/pin",
                 std::string(1 << 16, '['));
  EXPECT_EQ(run({"prune", "--keep-last", "1"}).status, 0);
  EXPECT_TRUE(stands(first));
  EXPECT_EQ(run({"unpin", first}).status, 0);
  EXPECT_EQ(run({"prune", "--keep-last", "1"}).status, 0);
  EXPECT_FALSE(stands(first));
}

TEST_F(SnapshotPin, TakesTheBeginningOfANameAndNamesTheCandidates) {
  const std::string first = take();
  const std::string second = take();
  const CommandResult ambiguous = run({"pin", first.substr(0, 4)});
  EXPECT_EQ(ambiguous.status, 1);
  EXPECT_THAT(ambiguous.err, HasSubstr(first + ", " + second));
  EXPECT_EQ(run({"delete", second}).status, 0);
  EXPECT_EQ(run({"pin", first.substr(0, 4)}).status, 0);
}

TEST_F(SnapshotPin, WaitsForTheLockAsLongAsItIsTold) {
  take();
  std::thread other = holdLock(std::chrono::milliseconds(1500));
  const CommandResult patient = run({"pin", "latest", "--wait", "60"});
  other.join();
  EXPECT_EQ(patient.status, 0) << patient.err;
  EXPECT_THAT(patient.err, HasSubstr("waiting for process 1 on elsewhere"));
  other = holdLock(std::chrono::milliseconds(3000));
  EXPECT_EQ(run({"unpin", "latest", "--wait", "1"}).status, hostkit::kBusy);
  EXPECT_EQ(run({"unpin", "latest"}).status, hostkit::kBusy);
  other.join();
}

TEST_F(SnapshotPin, ASnapshotWaitsForTheBackupThatRuns) {
  root.writeFile("/etc/halyard-host/snapwheel.exclude",
                 "/usr/*\n/lib*\n/bin/*\n/sbin/*\n/proc/*\n");
  root.writeFile("/.Halyards/depotHost/file", "half");
  root.writeFile(kPidFile, std::to_string(::getpid()) + " :: backup\n");
  const CommandResult busy = run({"snapshot", "--wait", "1"});
  EXPECT_EQ(busy.status, hostkit::kBusy);
  EXPECT_THAT(busy.err, HasSubstr("still fills /.Halyards"));
  std::thread backup([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    root.writeFile("/.Halyards/.halyardSignature", "signature");
    root.remove(kPidFile);
  });
  const CommandResult patient = run({"snapshot", "--wait", "60"});
  backup.join();
  EXPECT_EQ(patient.status, 0) << patient.err;
  EXPECT_FALSE(listed()[0]["unfinishedBackup"].get<bool>());
}

TEST_F(SnapshotPin, ASnapshotInABackupIsListedAsOne) {
  root.writeFile("/data/.Halyards/depotHost/file", "half");
  EXPECT_EQ(run({"snapshot", "--source", "/data"}).status, hostkit::kPartial);
  EXPECT_TRUE(listed()[0]["unfinishedBackup"].get<bool>());
  EXPECT_THAT(run({"list"}).out, HasSubstr("carries an unfinished backup"));
}

}  // namespace
}  // namespace halyard::snapwheel

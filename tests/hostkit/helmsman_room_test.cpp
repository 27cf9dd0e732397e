// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Room, destinations that cannot be written, and data that no snapshot holds.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cstdlib>

#include "backup_test.h"
#include "common/configuration.h"
#include "helmsman/run/room.h"
#include "host/files/descriptor.h"
#include "support/mounts.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using test::kPlugin;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

class HelmsmanRoom : public test::BackupTest {
 protected:
  // The destination on a volume of its own.
  test::TestMount destination(const std::string& size) const {
    return test::TestMount::memory(root.path("/Volumes/Backup"), "size=" + size);
  }
  // What the services say that they need, in KiB each.
  void servicesNeed(const std::string& bytes) const {
    root.writePlugin(kPlugin, "[ \"$2\" = size ] && echo 'total := " + bytes + "'\n" +
                                  "[ \"$2\" = backup ] && mkdir -p \"$4/srv\"\nexit 0\n");
  }
  // Leaves so many bytes free on the volume of a file that is made for it.
  void fillUpTo(const std::string& file, std::uint64_t free) const {
    root.writeFile(file, "");
    const std::string path = root.path(file);
    struct statvfs status {};
    ASSERT_EQ(::statvfs(path.c_str(), &status), 0);
    const std::uint64_t now = status.f_bavail * status.f_frsize;
    const host::Descriptor filler(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_GT(now, free);
    ASSERT_EQ(::posix_fallocate(filler.get(), 0, static_cast<off_t>(now - free)), 0);
  }
  bool servicesWereBackedUp() const {
    for (const std::string& call : root.calls()) {
      if (call.find("-cmd|backup") != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(HelmsmanRoom, TheFirstSnapshotNeedsTheWholeVolume) {
  const test::TestMount volume = destination("1m");
  if (!volume.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the first snapshot needs "));
  EXPECT_THAT(result.err, HasSubstr(" on /Volumes/Backup, which has 1.0 MiB free\n"));
  EXPECT_FALSE(servicesWereBackedUp());
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_THAT(engineCalls(), IsEmpty());
  EXPECT_EQ(record()["result"], "failed");
}

TEST_F(HelmsmanRoom, WhatAMountHidesIsInTheFirstSnapshotToo) {
  constexpr off_t kHidden = 32 * kMiB;
  root.writeFile("/etc/halyard-host/snapwheel.exclude", "/usr/*\n/lib*\n");
  root.writeFile("/data/hidden", "");
  const host::Descriptor hidden(::open(root.path("/data/hidden").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::posix_fallocate(hidden.get(), 0, kHidden), 0);
  const test::TestMount volume = destination("16m");
  const test::TestMount above = test::TestMount::memory(root.path("/data"), "size=64k");
  if (!volume.isMounted() || !above.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_THAT(helmsman({"backup"}).err, HasSubstr("the first snapshot needs "));
}

TEST_F(HelmsmanRoom, WhatTheServicesNeedIsAddedUpAndRefused) {
  const test::TestMount volume = destination("4m");
  if (!volume.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  root.writeFile("/etc/halyard-host/snapwheel.exclude", "/*\n");
  servicesNeed("3145728");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("needs 6.0 MiB on /Volumes/Backup, which has 4.0 MiB free\n"));
  EXPECT_FALSE(servicesWereBackedUp());
}

TEST_F(HelmsmanRoom, AReadOnlyDestinationIsFoundBeforeTheServicesAreAsked) {
  const test::TestMount volume = destination("64m");
  if (!volume.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  volume.makeReadOnly();
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("/Volumes/Backup cannot be written: Read-only file system\n"));
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(HelmsmanRoom, SnapshotsThatNoRuleKeepsGoFirst) {
  const test::TestMount volume = destination("1g");
  if (!volume.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  const std::string host = "/Volumes/Backup/Archives.snapdb/files1/";
  root.makeFolder(host + "2025-01-01-020000/System/.Halyards");
  fillUpTo(host + "2025-01-01-020000/big", 24 * kMiB);
  installEngine(std::string(kCopyMetadata) + "\n;; prune) case $2 in\n" +
                "--dry-run) [ -d $host/2025-01-01-020000 ] && echo '{\"removed\": "
                "[\"2025-01-01-020000\"]}' ;;\n*) rm -rf $host/2025-01-01-020000 ;; esac");
  servicesNeed("15728640");
  root.remove("/engine-calls");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("removed what no rule keeps, to make room: "
                                    "2025-01-01-020000\n"));
  EXPECT_THAT(engineCalls(),
              ElementsAre("prune --dry-run --json", "prune", test::kSnapshotCall, "prune"));
}

TEST_F(HelmsmanRoom, WithoutANewerGoodSnapshotNothingGoes) {
  const test::TestMount volume = destination("64m");
  if (!volume.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  const std::string host = "/Volumes/Backup/Archives.snapdb/files1/";
  root.makeFolder(host + "2025-01-01-020000/System/.Halyards");
  root.writeFile(host + "2025-01-01-020000/big", std::string(40 * kMiB, 'x'));
  installEngine(std::string(kCopyMetadata) +
                "\n;; prune) echo '{\"removed\": [\"2025-01-01-020000\"]}'");
  servicesNeed("15728640");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(engineCalls(), ElementsAre("prune --dry-run --json"));
  EXPECT_TRUE(root.exists(host + "2025-01-01-020000/big"));
}

// Of the night before, of the last good run, and of a run after it.
std::vector<Snapshot> threeNights() {
  std::vector<Snapshot> snapshots(3);
  const char* const names[] = {"2026-11-19-020000", "2026-11-20-020000", "2026-11-21-020000"};
  for (std::size_t index = 0; index < snapshots.size(); ++index) {
    snapshots[index].name = names[index];
    snapshots[index].hasSignature = true;
  }
  return snapshots;
}

RunRecord goodAt(const Snapshot& snapshot) {
  RunRecord record;
  record.lastGood[""] = {*beginOf(snapshot) + 600, 0};
  return record;
}

TEST(MakingRoom, TakesWhatIsOlderThanTheLastGoodSnapshot) {
  const auto snapshots = threeNights();
  const RunRecord last = goodAt(snapshots[1]);
  EXPECT_TRUE(mayMakeRoom({snapshots[0].name}, snapshots, last));
  EXPECT_FALSE(mayMakeRoom({snapshots[0].name, snapshots[1].name}, snapshots, last));
  EXPECT_FALSE(mayMakeRoom({}, snapshots, last));
  EXPECT_FALSE(mayMakeRoom({snapshots[0].name}, snapshots, std::nullopt));
}

TEST(MakingRoom, NeedsASnapshotThatHoldsEveryServiceWhole) {
  auto snapshots = threeNights();
  const RunRecord last = goodAt(snapshots[1]);
  snapshots[1].incomplete.push_back({"depotHost", {"its backup program ended with status 7"}});
  EXPECT_FALSE(mayMakeRoom({snapshots[0].name}, snapshots, last));
  snapshots[1].incomplete.clear();
  snapshots[1].hasSignature = false;
  EXPECT_FALSE(mayMakeRoom({snapshots[0].name}, snapshots, last));
}

RoomFigures plenty() {
  RoomFigures figures;
  figures.destination = "/mnt";
  figures.services = 10 * kMiB;
  figures.volume = 100 * kMiB;
  figures.volumeIsMeasured = true;
  figures.freeOnRoot = 10 * kMiB;
  figures.freeOnDestination = 110 * kMiB;
  return figures;
}

TEST(Room, IsEnoughWhenServicesAndVolumeTogetherFit) {
  const RoomVerdict verdict = judgeRoom(plenty());
  EXPECT_THAT(verdict.refusals, IsEmpty());
  EXPECT_THAT(verdict.warnings, IsEmpty());
  EXPECT_FALSE(verdict.destinationIsShort);
}

TEST(Room, OfServicesAndVolumeAddsUpOnTheDestination) {
  RoomFigures figures = plenty();
  figures.freeOnDestination -= 1;
  const RoomVerdict verdict = judgeRoom(figures);
  EXPECT_THAT(verdict.refusals,
              ElementsAre("the first snapshot needs 110.0 MiB on /mnt, which has 110.0 MiB free"));
  EXPECT_TRUE(verdict.destinationIsShort);
}

TEST(Room, OnRootIsThatOfTheServices) {
  RoomFigures figures = plenty();
  figures.freeOnRoot -= 1;
  const RoomVerdict verdict = judgeRoom(figures);
  EXPECT_THAT(verdict.refusals,
              ElementsAre("the services need 10.0 MiB on /, which has 10.0 MiB free"));
  EXPECT_FALSE(verdict.destinationIsShort);
}

TEST(Room, OnOneVolumeTheServicesStandTwice) {
  RoomFigures figures = plenty();
  figures.sameVolume = true;
  figures.freeOnRoot = figures.freeOnDestination = 119 * kMiB;
  EXPECT_THAT(judgeRoom(figures).refusals,
              ElementsAre("the first snapshot needs 120.0 MiB on /mnt, which has 119.0 MiB free"));
}

TEST(Room, AnEstimateWarnsAndDoesNotRefuse) {
  RoomFigures figures = plenty();
  figures.volumeIsMeasured = false;
  figures.freeOnDestination = 50 * kMiB;
  const RoomVerdict verdict = judgeRoom(figures);
  EXPECT_THAT(verdict.refusals, IsEmpty());
  EXPECT_THAT(verdict.warnings,
              ElementsAre("a snapshot that copies as much as the last one needs 110.0 MiB on /mnt, "
                          "which has 50.0 MiB free"));
  EXPECT_TRUE(verdict.destinationIsShort);
}

TEST(Room, WithoutASnapshotTheDestinationDoesNotCount) {
  RoomFigures figures = plenty();
  figures.takesSnapshot = false;
  figures.freeOnDestination = 0;
  EXPECT_THAT(judgeRoom(figures).refusals, IsEmpty());
}

// ---- data that no snapshot holds

class HelmsmanVolumes : public test::BackupTest {};

TEST_F(HelmsmanVolumes, AListedLinkIsNotWhatItLeadsTo) {
  root.writeFile("/big/depot/file", "data");
  root.remove("/srv/depot");
  root.makeLink("/srv/depot", "/big/depot");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err,
              HasSubstr("depotHost: /srv/depot is a link: the service's backup holds the link, not "
                        "what it leads to; list /big/depot in its descriptor (or see: helmsman "
                        "volumes leave-out /srv/depot)\n"));
  EXPECT_EQ(record()["services"][0]["result"], "failed");
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/srv/depot"}).status, 0);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanVolumes, ALinkToWhatIsListedTooIsWhole) {
  root.writeFile("/srv/real/file", "data");
  root.remove("/srv/depot");
  root.makeLink("/srv/depot", "/srv/real/file");
  root.writeDescriptor("30-depotHost.plist",
                       depot().list("DataFiles", {"/srv/depot", "/srv/real"}));
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(HelmsmanVolumes, AVolumeOfTheFileSystemTableThatNoSnapshotHoldsIsTold) {
  root.makeFolder("/proc");
  const test::TestMount processes = test::TestMount::bind(root.path("/proc"), "/proc");
  const test::TestMount data = test::TestMount::image(root.path("/data"), "ext4", 8);
  if (!processes.isMounted() || !data.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  root.writeFile("/etc/fstab", "UUID=0815 /data ext4 defaults 0 2\n");
  auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the volume at /data is not in the snapshot (see: helmsman "
                                    "volumes leave-out /data)\n"));
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["volumes"][1]["state"], "not in the snapshot");
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("Problem of the last run: the volume at /data is not "));

  EXPECT_EQ(helmsman({"volumes", "leave-out", "/data/"}).status, 0);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["volumes"][1]["state"], "left out");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("Left out:         /data\n"));
  EXPECT_EQ(helmsmanJson({"status", "--json"})["leftOut"], nlohmann::json::array({"/data"}));
  EXPECT_EQ(helmsman({"volumes", "include", "/data"}).status, 0);
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["volumes"][1]["state"], "in the snapshot");
  EXPECT_EQ(helmsman({"backup"}).status, 0);
}

TEST_F(HelmsmanVolumes, TheRootCannotBeLeftOut) {
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/"}).status, 2);
  EXPECT_EQ(helmsman({"volumes", "leave-out", "data"}).status, 2);
  EXPECT_EQ(helmsman({"volumes", "include", "/data"}).status, 0);
  EXPECT_FALSE(root.exists("/etc/halyard-host/helmsman.conf"));
}

// ---- configuration files

TEST(Configuration, KeepsCommentsWhenALineGoes) {
  const test::Scratch scratch;
  const std::string file = scratch.write("x.conf", "# why\nleave-out = /a\nleave-out=/b");
  EXPECT_TRUE(addConfigurationLine(file, "leave-out", "/c"));
  EXPECT_TRUE(removeConfigurationLine(file, "leave-out", "/a"));
  EXPECT_EQ(test::Scratch::contents(file), "# why\nleave-out=/b\nleave-out = /c\n");
  std::string problem;
  const auto lines = readConfiguration(file, {"leave-out"}, problem);
  ASSERT_TRUE(lines);
  ASSERT_EQ(lines->size(), 2U);
  EXPECT_EQ(lines->front().value, "/b");
  EXPECT_EQ(lines->front().number, 2U);
}

TEST(Configuration, ALineWithoutAKeyIsRefused) {
  const test::Scratch scratch;
  const std::string file = scratch.write("x.conf", "leave-out /a\n");
  std::string problem;
  EXPECT_FALSE(readConfiguration(file, {"leave-out"}, problem));
  EXPECT_EQ(problem, file + ":1: is no line \"key = value\"");
}

TEST(Configuration, AMissingFileSaysNothing) {
  std::string problem;
  EXPECT_EQ(readConfiguration("/nonexistent/x.conf", {"a"}, problem)->size(), 0U);
}

}  // namespace
}  // namespace halyard::hostkit

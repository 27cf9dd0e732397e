// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which volumes of a host the backup is told to lack: mounted ones, and those that are not.
#include <gmock/gmock.h>

#include "backup_test.h"
#include "helmsman/settings/local_volumes.h"
#include "support/mounts.h"

namespace halyard::hostkit {
namespace {

using test::TestMount;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class LackingVolumes : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.makeFolder("/proc");
    processes_.emplace(TestMount::bind(root.path("/proc"), "/proc"));
    if (!processes_->isMounted()) GTEST_SKIP() << "nothing can be mounted here";
  }
  void TearDown() override {
    processes_.reset();
    BackupTest::TearDown();
  }
  // The state of what is mounted, or to be mounted, there; empty for what is not told.
  std::string stateAt(const std::string& mountPoint) const {
    const auto document = helmsmanJson({"volumes", "--json"});
    for (const auto& volume : document.value("volumes", nlohmann::json::array())) {
      if (volume.value("mountPoint", "") == mountPoint) return volume.value("state", "");
    }
    return "";
  }

 private:
  std::optional<TestMount> processes_;
};

using HostWithoutMountTable = test::BackupTest;

TEST_F(LackingVolumes, OneThatIsMountedByHandIsTold) {
  const TestMount data = TestMount::image(root.path("/data"), "ext4", 8);
  if (!data.isMounted()) GTEST_SKIP() << "no disk images can be mounted here";
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("helmsman: warning: the volume at /data is not in the snapshot "
                                    "(see: helmsman volumes leave-out /data)\n"));
  EXPECT_THAT(result.err, HasSubstr("helmsman: the volume at /data is not in the snapshot"));
  EXPECT_THAT(record()["problems"].dump(), HasSubstr("the volume at /data"));
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("warning: this host: the volume at /data is not"));
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/data"}).status, 0);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_THAT(helmsman({"check"}).out, Not(HasSubstr("/data")));
}

TEST_F(LackingVolumes, OneOfTheTableThatHoldsDataIsTaken) {
  const TestMount home = TestMount::image(root.path("/home"), "ext4", 8);
  const TestMount other = TestMount::image(root.path("/other"), "ext4", 8);
  const TestMount data = TestMount::image(root.path("/data"), "ext4", 8);
  if (!data.isMounted()) GTEST_SKIP() << "no disk images can be mounted here";
  root.writeFile("/other/depot", "");
  root.writePlugin(test::kPlugin,
                   "[ \"$2\" = size ] && echo 'total := 2048'\n"
                   "[ \"$2\" = backup ] && mkdir -p \"$4/srv\" \"$4/other\"\nexit 0\n");
  root.writeDescriptor(
      "30-depotHost.plist",
      test::descriptorOf("depotHost", test::kPlugin).list("DataFiles", {"/other/depot"}));
  root.writeFile("/etc/fstab",
                 "UUID=1 /home ext4 defaults 0 2\n"
                 "UUID=2 /other ext4 defaults 0 2\nUUID=3 /data ext4 defaults 0 2\n");
  EXPECT_EQ(stateAt("/home"), "in the snapshot");
  EXPECT_EQ(stateAt("/other"), "in the snapshot");
  EXPECT_EQ(stateAt("/data"), "not in the snapshot");
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/home"}).status, 0);
  EXPECT_EQ(stateAt("/home"), "left out");
  EXPECT_EQ(helmsman({"volumes", "include", "/home"}).status, 0);
  EXPECT_EQ(stateAt("/home"), "in the snapshot");
  const auto included = helmsman({"volumes", "include", "/data"});
  EXPECT_EQ(included.status, 0);
  EXPECT_THAT(included.err, HasSubstr("snapshots hold /data from now on\n"));
  EXPECT_EQ(stateAt("/data"), "in the snapshot");

  const auto backup = helmsman({"backup"});
  EXPECT_EQ(backup.status, 0) << backup.err;
  EXPECT_THAT(record()["problems"], IsEmpty());
  EXPECT_THAT(engineCalls(), testing::Contains(AllOf(HasSubstr("--add-volume /home "),
                                                     HasSubstr("--add-volume /other "),
                                                     HasSubstr("--add-volume /data "))));
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/data"}).status, 0);
  EXPECT_EQ(stateAt("/data"), "left out");
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "leave-out = /data\n");
}

TEST_F(LackingVolumes, OneWhereTheSnapshotHoldsNothingAnywayIsNotTold) {
  const TestMount incoming = TestMount::image(root.path("/run/host/incoming"), "ext4", 8);
  if (!incoming.isMounted()) GTEST_SKIP() << "no disk images can be mounted here";
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(stateAt("/run/host/incoming"), "left out");
}

TEST_F(LackingVolumes, OneOfTheTableThatIsNotMountedIsTold) {
  root.writeFile("/etc/fstab", "UUID=0815 /data/ ext4 defaults,nofail 0 2\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the volume at /data is not mounted, and what it holds is not "
                                    "in the snapshot (see: helmsman volumes leave-out /data)\n"));
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("Problem of the last run: the volume at /data is not mounted"));
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("the volume at /data is not mounted"));
  EXPECT_EQ(stateAt("/data"), "not mounted");
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["volumes"][1]["usedBytes"], nullptr);
  const auto shown = helmsman({"volumes"});
  EXPECT_THAT(shown.out, HasSubstr("/data    UUID=0815"));
  EXPECT_THAT(shown.err, HasSubstr("the volume at /data is not mounted"));
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/data"}).status, 0);
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(stateAt("/data"), "left out");
}

TEST_F(HostWithoutMountTable, SaysOfNoVolumeThatItIsNotMounted) {
  for (const char* table : {"/proc/self/mountinfo", "/proc/self/mounts"}) root.remove(table);
  root.writeFile("/etc/fstab", "UUID=0815 /data ext4 defaults 0 2\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(LackingVolumes, LinesThatAreNoVolumeOfThisHostAreNotTold) {
  root.writeFile("/etc/fstab",
                 "UUID=1 / ext4 defaults 0 1\n"
                 "UUID=2 none swap sw 0 0\n"
                 "/dev/sr0 /media/cdrom0 udf,iso9660 user,noauto 0 0\n"
                 "LABEL=later /later ext4 noauto 0 0\n"
                 "tmpfs /scratch tmpfs defaults 0 0\n"
                 "files:/export /export nfs defaults 0 0\n"
                 "//files/share /share cifs defaults 0 0\n"
                 "/srv /shown none bind 0 0\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["volumes"].size(), 1U);
}

TEST_F(LackingVolumes, TheVolumeOfTheBackupsIsNotToldWhileItIsAway) {
  root.writeFile("/etc/fstab", "UUID=0815 /Volumes/Backup ext4 nofail 0 2\n");
  EXPECT_EQ(stateAt("/Volumes/Backup"), "");
  root.writeEnginePreferences(1, "UUID=0815");
  root.writeFile("/etc/fstab", "UUID=0815 /mnt/backup ext4 nofail 0 2\n");
  EXPECT_EQ(stateAt("/mnt/backup"), "");
  root.writeFile("/etc/fstab", "UUID=4711 /mnt/backup ext4 nofail 0 2\n");
  EXPECT_EQ(stateAt("/mnt/backup"), "not mounted");
}

TEST_F(LackingVolumes, WhatIsMountedASecondTimeIsToldOnce) {
  const TestMount data = TestMount::image(root.path("/data"), "ext4", 8);
  root.makeFolder("/data/part");
  root.writeFile("/data/file", "");
  root.writeFile("/etc/resolv.conf", "");
  const TestMount again = TestMount::bind(root.path("/again"), root.path("/data"));
  const TestMount part = TestMount::bind(root.path("/part"), root.path("/data/part"));
  if (!part.isMounted()) GTEST_SKIP() << "no disk images can be mounted here";
  EXPECT_EQ(stateAt("/data"), "not in the snapshot");
  EXPECT_EQ(stateAt("/again"), "");
  EXPECT_EQ(stateAt("/part"), "");
}

TEST_F(LackingVolumes, AServiceThatListsWhatIsNotMountedIsNotGood) {
  root.writeFile("/etc/fstab", "UUID=0815 /srv ext4 nofail 0 2\n");
  EXPECT_EQ(helmsman({"volumes", "leave-out", "/srv"}).status, 0);
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1) << "both services list something there";
  EXPECT_THAT(result.err,
              HasSubstr("depotHost: the volume at /srv is not mounted, so what /srv/depot holds "
                        "there is not saved; mount it\n"));
  EXPECT_EQ(helmsmanJson({"snapshots", "--json"})["snapshots"][0]["incomplete"].size(), 2U);
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("the volume at /srv is not mounted, so what"));
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["unmounted"][0]["path"], "/srv/depot");
  // A folder around a mount point is copied with what is mounted there.
  root.writeFile("/etc/fstab", "UUID=0815 /srv/depot/below ext4 nofail 0 2\n");
  EXPECT_EQ(helmsmanJson({"volumes", "--json"})["unmounted"][0]["mountPoint"], "/srv/depot/below");
}

// ---- what can be left out

TEST_F(LackingVolumes, WhatIsNoVolumeAndNotListedIsNotTakenForLeftOut) {
  root.makeFolder("/home");
  for (const char* path : {"/home", "/mnt", "/srv"}) {
    const auto result = helmsman({"volumes", "leave-out", path});
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_THAT(result.err, HasSubstr(std::string(path) + " is neither the mount point of a volume "
                                                          "(see: helmsman volumes) nor listed"));
    EXPECT_THAT(result.err, HasSubstr("a line in /etc/halyard-host/snapwheel.exclude\n"));
  }
  EXPECT_FALSE(root.exists("/etc/halyard-host/helmsman.conf"));
  EXPECT_THAT(helmsman({"volumes", "include", "/home"}).err,
              HasSubstr("nothing to do: /home is not left out\n"));
}

TEST_F(LackingVolumes, ALineThatLeavesNothingOutCanBeTakenAway) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "leave-out = /home\n");
  const auto result = helmsman({"volumes", "include", "/home"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("it is neither a volume nor listed by a service\n"));
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "");
}

TEST_F(LackingVolumes, AListedPathThatIsLeftOutIsStillSavedWhileItIsThere) {
  const auto result = helmsman({"volumes", "leave-out", "/srv/depot"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("/srv/depot may be missing, or a link, from now on; what "
                                    "stands there is still backed up\n"));
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(record()["services"][0]["copied"], 1);
}

TEST_F(LackingVolumes, WhatIsLeftOutAndIncludedIsPrintedAsJson) {
  root.writeFile("/etc/fstab", "UUID=0815 /data ext4 defaults,nofail 0 2\n");
  EXPECT_EQ(helmsmanJson({"volumes", "leave-out", "/data", "--json"})["volumes"][1]["state"],
            "left out");
  EXPECT_EQ(helmsmanJson({"volumes", "include", "/data", "--json"})["volumes"][1]["state"],
            "not mounted");
}

// ---- which mounts are volumes of their own

// Places that are folders on every host.
host::Volume volumeAt(const char* mountPoint, const char* device, const char* root,
                      std::uint64_t number) {
  host::Volume volume;
  volume.mountPoint = mountPoint;
  volume.device = device;
  volume.type = "ext4";
  volume.root = root;
  volume.number = number;
  return volume;
}

std::vector<std::string> placesOf(const std::vector<host::Volume>& volumes) {
  std::vector<std::string> places;
  for (const host::Volume& volume : ownVolumes(volumes)) places.push_back(volume.mountPoint);
  return places;
}

TEST(OwnVolumes, WhatShowsAFolderOfTheRootAgainIsNone) {
  const host::Volume again = volumeAt("/usr", "/dev/sda1", "/srv", 1);
  EXPECT_THAT(placesOf({volumeAt("/", "/dev/sda1", "/", 1), again}), ElementsAre("/"));
  EXPECT_THAT(placesOf({again, volumeAt("/", "/dev/sda1", "/", 1)}), ElementsAre("/"));
  EXPECT_THAT(placesOf({volumeAt("/", "/dev/sda1", "/jail", 1), again}), ElementsAre("/", "/usr"))
      << "what lies beside the root is not in it";
  EXPECT_THAT(placesOf({volumeAt("/", "/dev/sda1", "", 1), again}), ElementsAre("/", "/usr"))
      << "nobody can say";
}

TEST(OwnVolumes, ASubvolumeIsOneOfItsOwn) {
  EXPECT_THAT(
      placesOf({volumeAt("/", "/dev/sda1", "/", 1), volumeAt("/usr", "/dev/sda1", "/x", 2)}),
      ElementsAre("/", "/usr"));
}

TEST(OwnVolumes, AnImageThatNobodyCanWriteToIsNone) {
  host::Volume image = volumeAt("/usr", "/dev/loop0", "/", 2);
  EXPECT_THAT(placesOf({image}), ElementsAre("/usr"));
  image.type = "squashfs";
  EXPECT_THAT(placesOf({image}), IsEmpty());
}

TEST(OwnVolumes, ASingleFileMemoryAndTheNetworkAreNone) {
  EXPECT_THAT(placesOf({volumeAt("/etc/passwd", "/dev/sdb1", "/hosts", 2),
                        volumeAt("/usr", "tmpfs", "/", 3), volumeAt("/etc", "overlay", "/", 4),
                        volumeAt("/var", "files:/export", "/", 5)}),
              IsEmpty());
}

}  // namespace
}  // namespace halyard::hostkit

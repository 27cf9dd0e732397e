// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a whole-system restore refuses, and what each refusal leaves behind.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

using RestoreGuard = RestoredHost;

constexpr const char* kBogusRecord =
    "\n## PROGRESS :: Halyard :: ERROR bogus restore attempt! Will delete current backup folder to "
    "avoid future attempts.\n";

TEST_F(RestoreGuard, AMissingSnapshotPathEndsWithStatus1AndLeavesThePidFile) {
  const auto result = restore({}, "/", "/nowhere");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Image path for browing does not exist.\n");
  EXPECT_TRUE(root.exists(kPidFile));
  EXPECT_EQ(root.run({"-cmd", "list"}).status, 37);
}

TEST_F(RestoreGuard, AMissingDestinationVolumeEndsWithStatus0AndLeavesThePidFile) {
  const auto result = restore({}, "/Volumes/X");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "**Destination volume /Volumes/X does not exist.\n");
  EXPECT_THAT(root.readFile(kPidFile), MatchesRegex("[0-9]+ :: restore\n"));
  EXPECT_FALSE(root.exists(kMarker));
  EXPECT_TRUE(root.exists("/.Halyards"));
}

TEST_F(RestoreGuard, AnAbsentDestinationVolumeShowsAsNull) {
  const auto result = root.run({"-cmd", "restore", "-path", kSnapshot, "-source", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "**Destination volume (null) does not exist.\n");
}

TEST_F(RestoreGuard, ASnapshotThatGoesAwayMeanwhileIsNamed) {
  root.remove("/private/var/log/halyard");
  root.remove("/bin/mkdir");
  root.writeScript("/bin/mkdir", "rm -r /Volumes/Backup/Archives.snapdb");
  const auto result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "**Restore image path /Volumes/Backup/Archives.snapdb/files1/2026-11-14 does not "
            "exist.\n");
  EXPECT_TRUE(root.exists(kPidFile));
  EXPECT_FALSE(root.exists(kMarker));
}

TEST_F(RestoreGuard, WhenBothAreMissingOnlyTheVolumeIsNamed) {
  root.remove("/private/var/log/halyard");
  root.remove("/bin/mkdir");
  root.writeScript("/bin/mkdir", "rm -r /Volumes/Backup/Archives.snapdb");
  const auto result = restore({}, "/Volumes/X");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "**Destination volume /Volumes/X does not exist.\n");
}

TEST_F(RestoreGuard, OnTheVolumeThatWasBackedUpTheMetadataFolderGoes) {
  recordVolume("9C2B9A10-4E5B-4D0E-8B57-3B6F5D1C7A01");
  root.writeFile("/.Halyards/depotHost/etc/x", "saved");
  root.writeFile(kProgressLog, "old records\n");
  const auto result = restore();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(logMessages(result), IsEmpty());
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists(kPidFile));
  EXPECT_EQ(root.readFile(kProgressLog), kBogusRecord);
}

TEST_F(RestoreGuard, WithoutARecordedIdentifierTheAttemptIsBogus) {
  root.remove("/.Halyards/ServerSourceDiskInfo.plist");
  EXPECT_EQ(restore().status, 1);
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_EQ(root.readFile(kProgressLog), kBogusRecord);
}

TEST_F(RestoreGuard, WithoutACurrentIdentifierTheAttemptIsBogus) {
  root.remove("/usr/sbin/drivectl");
  EXPECT_EQ(restore().status, 1);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoreGuard, AnUnreadableRecordedReportIsBogus) {
  root.writeFile("/.Halyards/ServerSourceDiskInfo.plist", "<plist><dict><key>Vol");
  EXPECT_EQ(restore().status, 1);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoreGuard, AnIdentifierThatIsNoTextIsBogus) {
  root.writeFile("/.Halyards/ServerSourceDiskInfo.plist",
                 plistDocument("<dict><key>VolumeUUID</key><integer>7</integer></dict>"));
  EXPECT_EQ(restore().status, 1);
}

TEST_F(RestoreGuard, IdentifiersInAnotherLetterCaseDiffer) {
  recordVolume("9c2b9a10-4e5b-4d0e-8b57-3b6f5d1c7a01");
  EXPECT_EQ(restore().status, 0);
}

TEST_F(RestoreGuard, WithoutAMetadataFolderTheAttemptIsBogusToo) {
  root.remove("/.Halyards");
  EXPECT_EQ(restore().status, 1);
  EXPECT_EQ(root.readFile(kProgressLog), kBogusRecord);
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(RestoreGuard, ABogusAttemptPrintsTheEndOfRestoreAndNoMore) {
  recordVolume("9C2B9A10-4E5B-4D0E-8B57-3B6F5D1C7A01");
  const auto lines = functionLines(restore({{"FUNCLOG", ""}}));
  ASSERT_GE(lines.size(), 6U);
  EXPECT_THAT(std::vector<std::string>(lines.end() - 6, lines.end()),
              ElementsAre("End isBootedSystemsUUIDDiffentThanSource" + std::string(55, '-') + "+",
                          started("PostBackupComplete"), ended("PostBackupComplete"),
                          started("removePidProcessFile"), ended("removePidProcessFile"),
                          ended("Restore")));
}

TEST_F(RestoreGuard, ABogusAttemptWithoutAMetadataFolderSkipsItsRemoval) {
  root.remove("/.Halyards");
  const auto lines = functionLines(restore({{"FUNCLOG", ""}}));
  EXPECT_THAT(lines, testing::Not(testing::Contains(started("PostBackupComplete"))));
}

TEST_F(RestoreGuard, AnUnfitTargetShowsTheEndOfRestoreRightAfterTheCheck) {
  root.makeFolder("/Volumes/X");
  const auto lines = functionLines(restore({{"FUNCLOG", ""}}, "/Volumes/X"));
  ASSERT_GE(lines.size(), 7U);
  EXPECT_THAT(
      std::vector<std::string>(lines.end() - 7, lines.end()),
      ElementsAre(started("isValidSystem"), ended("isValidSystem"), ended("Restore"),
                  started("removePidProcessFile"), ended("removePidProcessFile"),
                  ended("validateOptionsAndDispatch"), "End main()" + std::string(55, '-') + "+"));
}

TEST_F(RestoreGuard, AMissingVolumeShowsNoEndOfAnything) {
  const auto lines = functionLines(restore({{"FUNCLOG", ""}}, "/Volumes/X"));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), ended("validate_LogPaths"));
}

TEST_F(RestoreGuard, AnotherTargetThanTheRootRestoresNothingAndBlocksLaterRestores) {
  root.makeFolder("/Volumes/X");
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  const auto first = restore({}, "/Volumes/X");
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out + first.err, "");
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_FALSE(root.exists(kPidFile));
  EXPECT_THAT(root.readFile(kMarker), MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} "
                                                   "[0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000"));

  const auto second = restore();
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out, "");
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_THAT(root.readFile(kProgressLog),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000\n"
                           "## ERROR :: Halyard :: Restore failed.\n"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(RestoreGuard, TheMarkerNeverMakesTheProgressLog) {
  root.writeFile(kMarker, "2026-11-14 10:00:00 +0000");
  root.remove("/private/var/log/halyard");
  EXPECT_EQ(restore().status, 0);
  EXPECT_FALSE(root.exists("/private/var/log/halyard"));
}

TEST_F(RestoreGuard, PostBackupCompleteAllowsRestoresAgain) {
  root.writeFile(kMarker, "2026-11-14 10:00:00 +0000");
  EXPECT_EQ(root.run({"-cmd", "postBackupComplete"}).status, 0);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoreGuard, ATargetWithATrailingSlashIsNotTheRoot) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  EXPECT_EQ(restore({}, "//").status, 0);
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(RestoreGuard, AnOldSystemRestoresNothing) {
  root.writeFile("/System/Library/BaseKit/SystemVersion.plist",
                 plistDocument("<dict><key>ProductVersion</key><string>10.5.8</string></dict>"));
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  const auto result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(RestoreGuard, ATargetThatIsAFileRestoresNothing) {
  root.writeFile("/volume", "");
  EXPECT_EQ(restore({}, "/volume").status, 0);
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(RestoreGuard, WithoutAPathNothingRuns) {
  const auto result = root.run({"-cmd", "restore", "-target", "/", "-service", "all"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists(kPidFile));
  EXPECT_TRUE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists(kMarker));
}

TEST_F(RestoreGuard, TheSnapshotMayBeAFileForItIsNotRead) {
  root.writeFile("/snapshot", "");
  EXPECT_EQ(restore({}, "/", "/snapshot").status, 0);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoreGuard, TheProgressLogIsEmptiedFirst) {
  root.writeFile(kProgressLog, "old records\n");
  EXPECT_EQ(restore({}, "/Volumes/X").status, 0);
  EXPECT_EQ(root.readFile(kProgressLog), "");
}

}  // namespace
}  // namespace halyard::test

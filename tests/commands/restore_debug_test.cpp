// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a whole-system restore adds under the debug flag, in full and in order.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class RestoreDebug : public RestoredHost {
 protected:
  void SetUp() override {
    RestoredHost::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot", "echo listing; echo trouble >&2");
  }
};

TEST_F(RestoreDebug, EveryLineInOrder) {
  root.writeFile("/etc/depot.conf", "live");
  root.writeFile("/srv/data", "live");
  root.writeFile("/srv/data.previous", "older");
  root.writeFile("/.Halyards/depotHost/etc/depot.conf", "saved");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.writeFile("/private/etc/halyard/10-tool", "#!/bin/sh\n", 0755);
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.bak", "");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot")
                           .list("ConfigurationFiles", {"/etc/depot.conf", "/etc/none"})
                           .list("DataFiles", {"/srv/data"})
                           .dictionary("BackupActions", {{"Default", "all"}}));
  const auto result = restore({{"DEBUG", ""}});
  EXPECT_THAT(outputFrom(result, "**IMG_PATH"),
              ElementsAre("**IMG_PATH := /Volumes/Backup/Archives.snapdb/files1/2026-11-14",
                          "**DEST_VOL := /", "Different.",
                          "sourceVolumePath := ", "sanitizedLocalVersion := 1070", "MINVER := 1060",
                          "result := 1", "10-tool", "30-depotHost.plist",
                          "tStr := /private/etc/halyard/30-depotHost.plist", "target := /",
                          "tServiceName := depotHost",
                          "tRestoreLog := /private/var/log/halyard/depotHost.log",
                          "tRestoreBinaryPath := /opt/depot", "tDefaultRestoreAction := all",
                          "tConfigurationFiles 0, := /etc/depot.conf",
                          "\t/.Halyards/depotHost//etc/depot.conf", "dest file := /etc/depot.conf",
                          "Move source := /etc/depot.conf, asside to := /etc/depot.conf.previous",
                          "from := /.Halyards/depotHost//etc/depot.conf", "to   := /etc",
                          "tConfigurationFiles 1, := /etc/none", "\t/.Halyards/depotHost//etc/none",
                          "tDataFiles 0, := /srv/data", "\t/.Halyards/depotHost//srv/data",
                          "dest file := /srv/data", "Removing item at path := /srv/data.previous",
                          "Move source := /srv/data, asside to := /srv/data.previous",
                          "from := /.Halyards/depotHost//srv/data", "to   := /srv"));
}

TEST_F(RestoreDebug, ALongNameIsShownOnlyWhenItIsTaken) {
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.bak", "");
  root.writeFile("/private/etc/halyard/30-a-name-that-is-rather-long.plist", "");
  const auto lines = outputFrom(restore({{"DEBUG", ""}}), "**IMG_PATH");
  EXPECT_THAT(lines, Not(Contains("com.vantor.Halyard.plist.bak")));
  EXPECT_THAT(lines, Not(Contains("com.vantor.Halyard.plist")));
  EXPECT_THAT(lines, Contains("30-a-name-that-is-rather-long.plist"));
}

TEST_F(RestoreDebug, AbsentValuesShowAsNull) {
  root.writeFile("/private/etc/halyard/30-empty.plist", "");
  const auto lines = outputFrom(restore({{"DEBUG", ""}}), "tStr");
  EXPECT_THAT(lines,
              ElementsAre("tStr := /private/etc/halyard/30-empty.plist", "target := /",
                          "tServiceName := (null)", "tRestoreLog := (null)",
                          "tRestoreBinaryPath := (null)", "tDefaultRestoreAction := (null)"));
}

TEST_F(RestoreDebug, ADescriptorThatIsGoneStillHasItsPathShown) {
  root.makeLink("/private/etc/halyard/10-gone.plist", "/nowhere");
  const auto lines = outputFrom(restore({{"DEBUG", ""}}), "10-gone");
  EXPECT_THAT(lines, ElementsAre("10-gone.plist", "tStr := /private/etc/halyard/10-gone.plist"));
}

TEST_F(RestoreDebug, NothingIsMovedAsideWhereNothingStands) {
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data"}));
  const auto lines = outputFrom(restore({{"DEBUG", ""}}), "tDataFiles");
  EXPECT_THAT(lines, ElementsAre("tDataFiles 0, := /srv/data", "\t/.Halyards/depotHost//srv/data",
                                 "dest file := /srv/data", "from := /.Halyards/depotHost//srv/data",
                                 "to   := /srv"));
}

TEST_F(RestoreDebug, AnEntryThatIsNoLivePathIsShownAndLeftAlone) {
  root.writeFile("/.Halyards/depotHost/x", "saved");
  root.writeFile("/x", "live");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"", "x"}));
  const auto lines = outputFrom(restore({{"DEBUG", ""}}), "tDataFiles");
  EXPECT_THAT(lines, ElementsAre("tDataFiles 0, := ", "\t/.Halyards/depotHost/",
                                 "dest file := ", "from := /.Halyards/depotHost/",
                                 "to   := ", "tDataFiles 1, := x", "\t/.Halyards/depotHost/x",
                                 "dest file := x", "from := /.Halyards/depotHost/x", "to   := "));
  EXPECT_EQ(root.readFile("/x"), "live");
}

TEST_F(RestoreDebug, ThePlatformLogLinesInOrder) {
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  const auto messages = logMessages(restore({{"DEBUG", ""}}));
  ASSERT_EQ(messages.size(), 7U);
  EXPECT_EQ(messages[0], "mountedImagePath := /Volumes/Backup/Archives.snapdb/files1/2026-11-14");
  EXPECT_EQ(messages[1], "serverMetaDataPath := /.Halyards");
  EXPECT_EQ(messages[2], "tRestoreBinaryPath =: /opt/depot");
  EXPECT_THAT(messages[3], StartsWith("args =: "));
  EXPECT_EQ(messages[4], "status =: listing");
  EXPECT_THAT(messages[5], testing::MatchesRegex("error =: -?[0-9]+"));
  EXPECT_EQ(messages[6], "[RESTORE]: Removed ServerMetaDataBackupFolder at path := /Halyards!");
}

TEST_F(RestoreDebug, BothIdentifiersAreDumped) {
  const auto result = restore({{"DEBUG", ""}});
  EXPECT_THAT(result.err, HasSubstr("0A0A0A0A-0000-4000-8000-000000000000"));
  EXPECT_THAT(result.err, HasSubstr("9C2B9A10-4E5B-4D0E-8B57-3B6F5D1C7A01"));
}

TEST_F(RestoreDebug, TheSameVolumeIsNotDifferent) {
  recordVolume("9C2B9A10-4E5B-4D0E-8B57-3B6F5D1C7A01");
  EXPECT_THAT(outputFrom(restore({{"DEBUG", ""}}), "**IMG_PATH"),
              ElementsAre("**IMG_PATH := /Volumes/Backup/Archives.snapdb/files1/2026-11-14",
                          "**DEST_VOL := /", "Not Different!"));
}

TEST_F(RestoreDebug, AMissingVolumeIsNamedAfterTheTwoOptions) {
  EXPECT_THAT(outputFrom(restore({{"DEBUG", ""}}, "/gone"), "**"),
              ElementsAre("**IMG_PATH := /Volumes/Backup/Archives.snapdb/files1/2026-11-14",
                          "**DEST_VOL := /gone", "**Destination volume /gone does not exist."));
}

TEST_F(RestoreDebug, VerboseModeSaysThatTheProgramWasCalled) {
  EXPECT_EQ(restore({{"VERBOSE", ""}}).out, "Halyard was called.\n");
}

}  // namespace
}  // namespace halyard::test

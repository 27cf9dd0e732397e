// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A whole-system restore as an administrator sees it: plug-ins, records, texts, end state.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;

using Restore = RestoredHost;

TEST_F(Restore, AFullRunPrintsNothingAndLeavesNoMetadataFolder) {
  root.writeFile("/.Halyards/depotHost/etc/x", "saved");
  const auto result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists("/Halyards"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Restore, EveryPluginRunsInNameOrderWhetherEnabledOrNot) {
  root.writePreferences({{"depotHost", 0}, {"siteHost", 1}});
  root.writePlugin("/opt/site");
  root.writePlugin("/opt/depot");
  root.writePlugin("/opt/other");
  root.writeDescriptor("50-siteHost.plist", descriptorOf("siteHost", "/opt/site"));
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  root.writeDescriptor("60-otherHost.plist", descriptorOf("otherHost", "/opt/other"));
  EXPECT_EQ(restore().status, 0);
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/depotHost|-log|"
                                        "/private/var/log/halyard/depotHost.log|-target|/",
                                        "/opt/site|-cmd|restore|-path|/.Halyards/siteHost|-log|"
                                        "/private/var/log/halyard/siteHost.log|-target|/",
                                        "/opt/other|-cmd|restore|-path|/.Halyards/otherHost|-log|"
                                        "/private/var/log/halyard/otherHost.log|-target|/"));
}

TEST_F(Restore, TheDefaultBackupActionFollowsTheTarget) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").dictionary("BackupActions", {{"Default", "all"}}));
  restore();
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/depotHost|-log|"
                          "/private/var/log/halyard/depotHost.log|-target|/|-opt|all"));
}

TEST_F(Restore, WithoutALogTheListEndsAfterItsWordAndTheTargetIsMissing) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").without("RestoreLog"));
  root.writeDescriptor("31-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot")
                           .without("RestoreLog")
                           .dictionary("BackupActions", {{"Default", "all"}}));
  restore();
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/depotHost|-log",
                          "/opt/depot|-cmd|restore|-path|/.Halyards/depotHost|-log|-opt|all"));
}

TEST_F(Restore, EmptyTextsArePassedAsEmptyArguments) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot")
                                                 .text("RestoreLog", "")
                                                 .text("ServiceName", "")
                                                 .dictionary("BackupActions", {{"Default", ""}}));
  restore();
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/|-log||-target|/|-opt|"));
}

TEST_F(Restore, AnAbsentServiceNameJoinsAsNull) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").without("ServiceName"));
  restore();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/(null)|-log|"
                                        "/private/var/log/halyard/depotHost.log|-target|/"));
  EXPECT_THAT(root.progressMessages(),
              testing::Contains("## PROGRESS :: Halyard :: (null) :: Restoring data files..."));
}

TEST_F(Restore, RestoreActionsAreNotLookedAt) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").dictionary("RestoreActions", {{"Default", "no"}}));
  restore();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|restore|-path|/.Halyards/depotHost|-log|"
                                        "/private/var/log/halyard/depotHost.log|-target|/"));
}

TEST_F(Restore, AFailingOrMissingPluginStopsNothing) {
  root.writePlugin("/opt/depot", "exit 9");
  root.writePlugin("/opt/site");
  root.writeDescriptor("10-agendaHost.plist", descriptorOf("agendaHost", "/opt/missing"));
  root.writeDescriptor("20-rosterHost.plist",
                       descriptorOf("rosterHost", "").without("RestoreBinaryPath"));
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  root.writeDescriptor("50-siteHost.plist", descriptorOf("siteHost", "/opt/site"));
  const auto result = restore();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(root.calls().size(), 2U);
  EXPECT_EQ(root.progressMessages().size(), 24U);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(Restore, PluginOutputIsNotShown) {
  root.writePlugin("/opt/depot", "echo out; echo err >&2");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  const auto result = restore();
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(Restore, SixRecordsAServiceEachWithItsDate) {
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  restore();
  std::string pattern;
  for (const char* step : {"Restoring configuration files", "Configuration file restore done",
                           "Restoring data files", "Data file restore done",
                           "Calling service restore binary", "Service restore binary done"}) {
    const std::string dots = std::string_view(step).ends_with("done") ? "[.]" : "[.][.][.]";
    pattern +=
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} [+]0000\n## PROGRESS :: "
        "Halyard :: depotHost :: " +
        std::string(step) + dots + "\n";
  }
  EXPECT_THAT(root.readFile(kProgressLog), MatchesRegex(pattern));
}

TEST_F(Restore, ExecutablesAndNamesThatBeginWithThePreferencesFileAreNoDescriptors) {
  root.writePlugin("/opt/depot");
  const std::string text = descriptorOf("x", "/opt/depot").plist();
  root.writeFile("/private/etc/halyard/10-tool", text, 0755);
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.bak", text);
  root.writeFile("/private/etc/halyard/20-plain", text, 0644);
  root.writeFile("/private/etc/halyard/30-a-long-name-and-executable.plist", text, 0755);
  restore();
  EXPECT_EQ(root.calls().size(), 2U);
}

TEST_F(Restore, AFolderInTheConfigurationDirectoryIsADescriptorWithoutKeys) {
  root.makeFolder("/private/etc/halyard/10-folder");
  EXPECT_EQ(restore().status, 0);
  EXPECT_THAT(
      root.progressMessages(),
      testing::Contains("## PROGRESS :: Halyard :: (null) :: Calling service restore binary..."));
}

TEST_F(Restore, ADanglingLinkInTheConfigurationDirectoryIsSkipped) {
  root.makeLink("/private/etc/halyard/10-gone.plist", "/nowhere");
  EXPECT_EQ(restore().status, 0);
  EXPECT_THAT(root.progressMessages(), IsEmpty());
}

TEST_F(Restore, AMissingSignatureDoesNotStopIt) {
  root.remove("/.Halyards/.halyardSignature");
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(Restore, ALeftoverOfAnEarlierRunIsRemovedAndTheMetadataFolderStays) {
  root.writeFile("/Halyards/old", "");
  root.writeFile("/.Halyards/depotHost/x", "saved");
  EXPECT_EQ(restore().status, 0);
  EXPECT_FALSE(root.exists("/Halyards"));
  EXPECT_EQ(root.readFile("/.Halyards/depotHost/x"), "saved");
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(Restore, AnEmptyLeftoverFolderMakesTheMoveFailToo) {
  root.makeFolder("/Halyards");
  EXPECT_EQ(restore().status, 0);
  EXPECT_FALSE(root.exists("/Halyards"));
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(Restore, AMetadataFolderThatIsALinkLosesOnlyTheLink) {
  root.makeFolder("/elsewhere");
  root.runProgram("/bin/cp", {"-a", "/.Halyards/.", "/elsewhere"});
  root.remove("/.Halyards");
  root.makeLink("/.Halyards", "elsewhere");
  root.writeFile("/elsewhere/depotHost/srv/data", "saved");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data"}));
  root.makeFolder("/srv");
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists("/Halyards"));
  EXPECT_EQ(root.readFile("/elsewhere/depotHost/srv/data"), "saved");
}

TEST_F(Restore, APluginMayChangeTheNextDescriptor) {
  root.writePlugin("/opt/depot", "cp /new /private/etc/halyard/50-siteHost.plist");
  root.writePlugin("/opt/changed");
  root.writeFile("/new", descriptorOf("siteHost", "/opt/changed").plist());
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  root.writeDescriptor("50-siteHost.plist", descriptorOf("siteHost", "/opt/depot"));
  restore();
  ASSERT_EQ(root.calls().size(), 2U);
  EXPECT_TRUE(root.calls()[1].starts_with("/opt/changed|"));
}

TEST_F(Restore, APluginThatLeavesAServerRunningDoesNotHoldItUp) {
  root.writePlugin("/opt/depot", "sleep 40 &");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  RunOptions options;
  options.timeoutSeconds = 20;
  const auto result =
      root.run({"-cmd", "restore", "-path", kSnapshot, "-target", "/"}, {}, options);
  EXPECT_EQ(result.status, 0);
}

TEST_F(Restore, TheCopyOfTheDiskReportStaysInTmp) {
  restore();
  EXPECT_THAT(root.readFile("/tmp/ServerSourceDiskInfo.plist"),
              testing::HasSubstr("<string>9C2B9A10-4E5B-4D0E-8B57-3B6F5D1C7A01</string>"));
}

TEST_F(Restore, AnyCaseOfTheCommandWordRestores) {
  const auto result = root.run({"-cmd", "RESTORE", "-path", kSnapshot, "-target", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(Restore, TheFunctionLogShowsEveryOperationInOrder) {
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  const auto result = restore({{"FUNCLOG", ""}});
  EXPECT_THAT(linesOf(result.out),
              ElementsAreArray(wholeFunctionLog(
                  {started("setPidForProcess"), started("removePidProcessFile"),
                   ended("removePidProcessFile"), ended("setPidForProcess"), started("Restore"),
                   started("validate_LogPaths"), ended("validate_LogPaths"),
                   started("isBootedSystemsUUIDDiffentThanSource"),
                   "End isBootedSystemsUUIDDiffentThanSource" + std::string(55, '-') + "+",
                   started("isValidSystem"), ended("isValidSystem"), started("get_Helmsman_Prefs"),
                   ended("get_Helmsman_Prefs"), ended("Restore"), started("removePidProcessFile"),
                   ended("removePidProcessFile")})));
}

}  // namespace
}  // namespace halyard::test

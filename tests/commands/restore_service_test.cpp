// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The restore of one service from a snapshot: what is refused, found, run and recorded.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;

class RestoreService : public SnapshotHost {
 protected:
  void SetUp() override {
    SnapshotHost::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot");
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/srv/data"}));
    root.writeFile(inSnapshot("/depotHost/srv/data"), "saved");
    root.writeFile("/srv/data", "live");
  }

  CommandResult restoreService(const std::vector<std::string>& more = {},
                               const std::string& service = "depotHost",
                               const std::string& path = kSnapshot,
                               const std::string& target = "/") const {
    std::vector<std::string> words = {"-cmd",    "restoreService", "-path",    path,
                                      "-target", target,           "-service", service};
    words.insert(words.end(), more.begin(), more.end());
    return root.run(words);
  }

  // The one recorded call's "-path".
  void expectCalledWithPath(const std::string& path) const {
    EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|restore|-opt|all|-path|" + path +
                                          "|-log|/private/var/log/halyard/depotHost.log"));
  }
};

TEST_F(RestoreService, BringsTheServiceBackAndPrintsNothing) {
  const auto result = restoreService();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
  EXPECT_EQ(root.readFile(inSnapshot("/depotHost/srv/data")), "saved");
  EXPECT_FALSE(root.exists(kPidFile));
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoreService, WithoutAnOptionTheWordAllIsPassed) {
  restoreService();
  expectCalledWithPath(
      "/Volumes/Backup/Archives.snapdb/files1/2026-11-14/Server HD/.Halyards/depotHost");
}

TEST_F(RestoreService, TheDefaultActionFollowsAsASecondOption) {
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").dictionary("BackupActions", {{"Default", "some"}}));
  restoreService();
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-opt|all|-path|" + inSnapshot("/depotHost") +
                          "|-log|/private/var/log/halyard/depotHost.log|-opt|some"));
}

TEST_F(RestoreService, AGivenOptionIsPassedAndTheDefaultActionIsNot) {
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").dictionary("BackupActions", {{"Default", "some"}}));
  restoreService({"-opt", "points"});
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-opt|points|-path|" + inSnapshot("/depotHost") +
                          "|-log|/private/var/log/halyard/depotHost.log"));
}

TEST_F(RestoreService, AnOptionOfSeveralWordsBeginsWithABlank) {
  restoreService({"-opt", "a", "b"});
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-opt| a b|-path|" + inSnapshot("/depotHost") +
                          "|-log|/private/var/log/halyard/depotHost.log"));
}

TEST_F(RestoreService, AnEmptyOptionIsPresent) {
  restoreService({"-opt", ""});
  ASSERT_EQ(root.calls().size(), 1U);
  EXPECT_TRUE(root.calls()[0].starts_with("/opt/depot|-cmd|restore|-opt||-path|"));
}

TEST_F(RestoreService, WithoutALogTheListEndsAfterItsWord) {
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot")
                           .without("RestoreLog")
                           .dictionary("BackupActions", {{"Default", "some"}}));
  restoreService();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|restore|-opt|all|-path|" +
                                        inSnapshot("/depotHost") + "|-log|-opt|some"));
}

TEST_F(RestoreService, AConfigurationFileIsOnlySetAside) {
  root.writeFile("/etc/depot.conf", "live");
  root.writeFile(inSnapshot("/depotHost/etc/depot.conf"), "saved");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").list("ConfigurationFiles", {"/etc/depot.conf"}));
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_FALSE(root.exists("/etc/depot.conf"));
  EXPECT_EQ(root.readFile("/etc/depot.conf.previous"), "live");
}

TEST_F(RestoreService, TheSixRecordsReplaceTheOldLog) {
  root.writeFile(kProgressLog, "old\n");
  restoreService();
  EXPECT_THAT(
      root.progressMessages(),
      ElementsAre("## PROGRESS :: Halyard :: depotHost :: Restoring configuration files...",
                  "## PROGRESS :: Halyard :: depotHost :: Configuration file restore done.",
                  "## PROGRESS :: Halyard :: depotHost :: Restoring data files...",
                  "## PROGRESS :: Halyard :: depotHost :: Data file restore done.",
                  "## PROGRESS :: Halyard :: depotHost :: Calling service restore binary...",
                  "## PROGRESS :: Halyard :: depotHost :: Service restore binary done."));
  EXPECT_EQ(linesOf(root.readFile(kProgressLog)).size(), 12U);
}

TEST_F(RestoreService, AMissingSnapshotPathEndsWithStatus1) {
  const auto result = restoreService({}, "depotHost", "/nowhere");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Image path for browing does not exist.\n");
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST_F(RestoreService, AnUnknownServiceEndsWithStatus1) {
  const auto result = restoreService({}, "printHost");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Service supplied for restore (printHost) is not recognized.\n");
  EXPECT_THAT(root.readFile(kPidFile), MatchesRegex("[0-9]+ :: restoreService\n"));
}

TEST_F(RestoreService, AServiceInAnotherCaseIsUnknown) {
  const auto result = restoreService({}, "DepotHost");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Service supplied for restore (DepotHost) is not recognized.\n");
}

TEST_F(RestoreService, AnEmptyServiceIsUnknown) {
  EXPECT_EQ(restoreService({}, "").out, "Service supplied for restore () is not recognized.\n");
}

TEST_F(RestoreService, AnAbsentServiceShowsAsNull) {
  const auto result = root.run({"-cmd", "restoreService", "-path", kSnapshot, "-target", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Service supplied for restore ((null)) is not recognized.\n");
}

TEST_F(RestoreService, TheWordAllIsNoService) { EXPECT_EQ(restoreService({}, "all").status, 1); }

TEST_F(RestoreService, AMissingDestinationVolumeEndsWithStatus0AndLeavesThePidFile) {
  const auto result = restoreService({}, "depotHost", kSnapshot, "/Volumes/X");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Destination volume /Volumes/X does not exist.\n");
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST_F(RestoreService, AnAbsentDestinationVolumeShowsAsNull) {
  const auto result =
      root.run({"-cmd", "restoreService", "-path", kSnapshot, "-service", "depotHost"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Destination volume (null) does not exist.\n");
}

TEST_F(RestoreService, ASnapshotThatGoesAwayMeanwhileIsNamed) {
  root.remove("/private/var/log/halyard");
  root.remove("/bin/mkdir");
  root.writeScript("/bin/mkdir", "rm -r /Volumes/Backup/Archives.snapdb");
  const auto result = restoreService();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "Restore image path /Volumes/Backup/Archives.snapdb/files1/2026-11-14 does not "
            "exist.\n");
  EXPECT_TRUE(root.exists(kPidFile));
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(RestoreService, WithoutAPathNothingRuns) {
  const auto result = root.run({"-cmd", "restoreService", "-target", "/", "-service", "depotHost"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(RestoreService, AWrongWordCountIsShown) {
  const auto result = root.run({"-cmd", "restoreService", "-path", kSnapshot});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("Wrong number of parameters for restoreService. 5\nUsage:\n"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(RestoreService, AnotherTargetRunsThePluginOnAFolderAtTheRoot) {
  root.makeFolder("/Volumes/X");
  const auto result = restoreService({}, "depotHost", kSnapshot, "/Volumes/X");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(root.readFile("/srv/data"), "live");
  EXPECT_FALSE(root.exists("/srv/data.previous"));
  expectCalledWithPath("/depotHost");
}

TEST_F(RestoreService, AnOldSystemRunsThePluginOnAFolderAtTheRoot) {
  root.remove("/System/Library/BaseKit/SystemVersion.plist");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "live");
  expectCalledWithPath("/depotHost");
}

TEST_F(RestoreService, ASourceThatIsMissingCountsBeforeTheTarget) {
  restoreService({"-source", "/nowhere"});
  EXPECT_EQ(root.readFile("/srv/data"), "live");
  expectCalledWithPath("/depotHost");
}

TEST_F(RestoreService, WithAnEmptyMetadataRootDataComesFromAFolderAtTheRoot) {
  root.remove(kMetadata);
  root.writeFile("/depotHost/srv/data", "at the root");
  restoreService();
  EXPECT_EQ(root.readFile("/srv/data"), "at the root");
}

TEST_F(RestoreService, EveryDescriptorWhoseNameHoldsTheServiceIsRestoredInOrder) {
  root.writePlugin("/opt/old");
  root.writePlugin("/opt/longer");
  root.writeDescriptor("30-depotHost.plist.old", descriptorOf("oldName", "/opt/old"));
  root.writeDescriptor("10-mydepotHosts.plist", descriptorOf("longer", "/opt/longer"));
  root.writeDescriptor("20-DepotHost.plist", descriptorOf("other", "/opt/old"));
  restoreService();
  const std::vector<std::string> calls = root.calls();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_TRUE(calls[0].starts_with("/opt/longer|"));
  EXPECT_TRUE(calls[1].starts_with("/opt/depot|"));
  EXPECT_TRUE(calls[2].starts_with("/opt/old|"));
}

TEST_F(RestoreService, ExecutablesAndThePreferencesFileAreReadAsDescriptorsToo) {
  root.writePreferences({{"Halyard", 1}, {"tool", 1}});
  root.writeFile("/private/etc/halyard/10-tool", descriptorOf("t", "/opt/depot").plist(), 0755);
  restoreService({}, "tool");
  EXPECT_EQ(root.calls().size(), 1U);
  restoreService({}, "Halyard");
  EXPECT_THAT(
      root.progressMessages(),
      testing::Contains("## PROGRESS :: Halyard :: (null) :: Calling service restore binary..."));
}

TEST_F(RestoreService, AnEmptyServiceThatIsAKeySelectsEveryEntry) {
  root.writePreferences({{"", 1}});
  EXPECT_EQ(restoreService({}, "").status, 0);
  EXPECT_EQ(root.progressMessages().size(), 12U);
}

TEST_F(RestoreService, AServiceWithBlanksIsTakenAsItStands) {
  root.writePreferences({{"depot host", 1}});
  root.writeDescriptor("40-depot host.plist", descriptorOf("depot host", "/opt/depot"));
  restoreService({}, "depot host");
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|restore|-opt|all|-path|" + inSnapshot("/depot host") +
                          "|-log|/private/var/log/halyard/depot host.log"));
}

TEST_F(RestoreService, AServiceWithASlashMatchesNoFileName) {
  root.writePreferences({{"halyard/30-depotHost", 1}});
  EXPECT_EQ(restoreService({}, "halyard/30-depotHost").status, 0);
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_EQ(root.readFile(kProgressLog), "");
}

TEST_F(RestoreService, NoMatchingDescriptorDoesNothing) {
  root.remove("/private/etc/halyard/30-depotHost.plist");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(RestoreService, TheAttemptMarkerIsNeitherReadNorWritten) {
  root.writeFile("/.Halyards/restoreWasAttempted", "2026-11-14 10:00:00 +0000");
  restoreService();
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/.Halyards/restoreWasAttempted"), "2026-11-14 10:00:00 +0000");
}

TEST_F(RestoreService, AnotherTargetSkipsThePreferencesInTheFunctionLog) {
  root.makeFolder("/Volumes/X");
  const auto lines = functionLines(root.run({"-cmd", "restoreService", "-path", kSnapshot,
                                             "-target", "/Volumes/X", "-service", "depotHost"},
                                            {{"FUNCLOG", ""}}));
  ASSERT_GE(lines.size(), 7U);
  EXPECT_THAT(std::vector<std::string>(lines.end() - 7, lines.end() - 2),
              ElementsAre(started("isValidSystem"), ended("isValidSystem"), ended("RestoreService"),
                          started("removePidProcessFile"), ended("removePidProcessFile")));
}

TEST_F(RestoreService, AnUnknownServiceShowsNoEndOfTheDispatcher) {
  const auto lines = functionLines(root.run(
      {"-cmd", "restoreService", "-path", kSnapshot, "-target", "/", "-service", "printHost"},
      {{"FUNCLOG", ""}}));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), ended("isValidService"));
}

TEST_F(RestoreService, TheFunctionLogShowsEveryOperationInOrder) {
  const auto result = root.run(
      {"-cmd", "restoreService", "-path", kSnapshot, "-target", "/", "-service", "depotHost"},
      {{"FUNCLOG", ""}});
  EXPECT_THAT(
      linesOf(result.out),
      ElementsAreArray(wholeFunctionLog(
          {started("setPidForProcess"), started("removePidProcessFile"),
           ended("removePidProcessFile"), ended("setPidForProcess"), started("isValidService"),
           ended("isValidService"), started("RestoreService"), started("validate_LogPaths"),
           ended("validate_LogPaths"), started("isValidSystem"), ended("isValidSystem"),
           started("get_Helmsman_Prefs"), ended("get_Helmsman_Prefs"), ended("RestoreService"),
           started("removePidProcessFile"), ended("removePidProcessFile")})));
}

}  // namespace
}  // namespace halyard::test

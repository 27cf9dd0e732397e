// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The start and end lines of operations, in the order of a whole run of each command.
#include <gmock/gmock.h>

#include "support/private_root.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAreArray;

using Lines = std::vector<std::string>;

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Lines kPreferences{"Start get_Helmsman_Prefs", "End   get_Helmsman_Prefs"};
const Lines kBeforeTheCount =
    Lines{"Start IsStandardServer", "End   IsStandardServer", "Start Prefs"} + kPreferences +
    Lines{"End   Prefs"};
const Lines kBegin = kBeforeTheCount + Lines{"Start ParseOptions", "End   ParseOptions",
                                             "Start validateOptionsAndDispatch"};
const Lines kEnd{"End   validateOptionsAndDispatch", "End main()"};
const Lines kRemovePid{"Start removePidProcessFile", "End   removePidProcessFile"};
const Lines kSetPid =
    Lines{"Start setPidForProcess"} + kRemovePid + Lines{"End   setPidForProcess"};
const Lines kLogPaths{"Start validate_LogPaths", "End   validate_LogPaths"};

class FunctionLog : public PrivateRootTest {
 protected:
  Lines linesOfRun(const std::vector<std::string>& words) {
    return functionSteps(root.run(words, {{"FUNCLOG", ""}}));
  }
};

TEST_F(FunctionLog, IsOffWithoutTheVariable) {
  EXPECT_EQ(functionSteps(root.run({"-cmd", "help"}, {{"DEBUG", ""}, {"VERBOSE", ""}})), Lines{});
}

TEST_F(FunctionLog, EveryLineHasFiftyFiveDashesAndAPlus) {
  const auto result = root.run({"-cmd", "services"}, {{"FUNCLOG", "0"}});
  const std::string services =
      "agendaHost\nparleyHost\nrosterHost\ndepotHost\npostHost\nhostProfile\nsiteHost\n";
  const std::string dashes = std::string(55, '-') + "+\n";
  EXPECT_EQ(result.out, "Start IsStandardServer" + dashes + "End   IsStandardServer" + dashes +
                            "Start Prefs" + dashes + "Start get_Helmsman_Prefs" + dashes +
                            "End   get_Helmsman_Prefs" + dashes + "End   Prefs" + dashes +
                            "Start ParseOptions" + dashes + "End   ParseOptions" + dashes +
                            "Start validateOptionsAndDispatch" + dashes + "Start Services" +
                            dashes + services + "End   Services" + dashes +
                            "End   validateOptionsAndDispatch" + dashes + "End main()" + dashes);
}

TEST_F(FunctionLog, EachPlainCommandShowsItsOwnOperation) {
  for (const auto& [command, name] :
       std::map<std::string, std::string>{{"help", "Usage"},
                                          {"version", "Version"},
                                          {"services", "Services"},
                                          {"postBackupComplete", "PostBackupComplete"}}) {
    EXPECT_THAT(linesOfRun({"-cmd", command}),
                ElementsAreArray(kBegin + Lines{"Start " + name, "End   " + name} + kEnd));
  }
}

TEST_F(FunctionLog, PrefsLoadsThePreferences) {
  EXPECT_THAT(
      linesOfRun({"-cmd", "prefs"}),
      ElementsAreArray(kBegin + Lines{"Start Prefs"} + kPreferences + Lines{"End   Prefs"} + kEnd));
}

TEST_F(FunctionLog, SizeStartsAFreshProgressLog) {
  EXPECT_THAT(linesOfRun({"-cmd", "size"}),
              ElementsAreArray(kBegin + Lines{"Start SizeRequired"} + kLogPaths +
                               Lines{"End   SizeRequired"} + kEnd));
}

TEST_F(FunctionLog, AWholeBackupShowsItsOperationsInOrder) {
  root.writePlugin("/opt/plugin");
  root.writeFile("/data/a/b", "x");
  root.writeDescriptor("60-siteHost.plist",
                       descriptorOf("siteHost", "/opt/plugin").list("DataFiles", {"/data/a/b"}));
  const Lines room = Lines{"Start haveRoomForBackup", "Start SizeRequired"} + kLogPaths +
                     Lines{"End   SizeRequired", "Start get_Images_Volume_Size"} + kPreferences +
                     Lines{"End   get_Images_Volume_Size", "End   haveRoomForBackup"};
  const Lines backup =
      Lines{"Start Backup"} + kPreferences +
      Lines{"Start isValidSystem", "End   isValidSystem", "Start validate_FullPath"} +
      kPreferences + Lines{"End   validate_FullPath"} + kLogPaths + kPreferences +
      Lines{"Start get_Boot_Volume_Size", "End   get_Boot_Volume_Size",
            "Start CreateMasterBrowse"} +
      kPreferences + Lines{"End   CreateMasterBrowse", "End   Backup"};
  EXPECT_THAT(linesOfRun({"-cmd", "backup", "-source", "/"}),
              ElementsAreArray(kBegin + kSetPid + Lines{"Start willDoBackup"} + kPreferences +
                               Lines{"End   willDoBackup"} + room + backup + kRemovePid + kEnd));
}

TEST_F(FunctionLog, ABackupOfAnotherSourceSkipsToTheCatalogue) {
  root.makeFolder("/.Halyards");
  const auto lines = linesOfRun({"-cmd", "backup", "-source", "/Volumes/Backup"});
  const Lines backup =
      Lines{"Start Backup"} + kPreferences +
      Lines{"Start isValidSystem", "End   isValidSystem", "Start CreateMasterBrowse"} +
      kPreferences + Lines{"End   CreateMasterBrowse", "End   Backup"} + kRemovePid + kEnd;
  ASSERT_GE(lines.size(), backup.size());
  EXPECT_THAT(Lines(lines.end() - static_cast<std::ptrdiff_t>(backup.size()), lines.end()),
              ElementsAreArray(backup));
}

TEST_F(FunctionLog, ARefusedWordCountPrintsNoEndOfMain) {
  EXPECT_THAT(linesOfRun({}),
              ElementsAreArray(kBeforeTheCount + Lines{"Start Usage", "End   Usage"}));
}

TEST_F(FunctionLog, ARunningInstancePrintsNoEndOfMain) {
  root.writeFile("/private/var/run/HalyardRunning.pid", "");
  EXPECT_THAT(linesOfRun({"-cmd", "help"}), ElementsAreArray(kBeforeTheCount));
}

TEST_F(FunctionLog, AHostThatIsNotSetUpPrintsNoEndOfTheDispatcher) {
  root.remove("/private/var/db/.VantorSetupDone");
  EXPECT_THAT(linesOfRun({"-cmd", "help"}), ElementsAreArray(kBegin));
}

TEST_F(FunctionLog, ABackupThatIsNotEnabledEndsAfterThePidFileIsGone) {
  root.writeEnginePreferences(0, "");
  EXPECT_THAT(linesOfRun({"-cmd", "backup", "-source", "/"}),
              ElementsAreArray(kBegin + kSetPid + Lines{"Start willDoBackup"} + kPreferences +
                               Lines{"End   willDoBackup"} + kRemovePid));
}

TEST_F(FunctionLog, AMissingImagePathEndsWithThePidFileThere) {
  EXPECT_THAT(linesOfRun({"-cmd", "verify", "-path", "/gone", "-service", "siteHost"}),
              ElementsAreArray(kBegin + kSetPid));
}

TEST_F(FunctionLog, AnUnknownServiceEndsInTheDispatcher) {
  EXPECT_THAT(
      linesOfRun({"-cmd", "restoreService", "-path", "/", "-service", "none"}),
      ElementsAreArray(kBegin + kSetPid + Lines{"Start isValidService", "End   isValidService"}));
}

TEST_F(FunctionLog, AWrongWordCountOfACommandGoesOnToTheEnd) {
  EXPECT_THAT(
      linesOfRun({"-cmd", "verify"}),
      ElementsAreArray(kBegin + kSetPid + Lines{"Start Usage", "End   Usage"} + kRemovePid + kEnd));
}

}  // namespace
}  // namespace halyard::test

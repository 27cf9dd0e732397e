// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The verify command: what the plug-in is asked and what is read from its answer.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Verify : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.makeFolder("/snapshot");
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  }

  CommandResult verify(const std::string& service = "depotHost",
                       const Environment& environment = {}) const {
    return root.run({"-cmd", "verify", "-path", "/snapshot", "-service", service}, environment);
  }

  // "binRet" of a run whose plug-in prints the file's bytes.
  std::string resultOf(const std::string& answer) const {
    root.writeFile("/answer", answer);
    root.writePlugin("/opt/depot", "cat /answer");
    const auto lines = outputFrom(verify("depotHost", {{"DEBUG", ""}}), "binRet := ");
    return lines.size() == 1 ? lines[0] : "<no single binRet line>";
  }
};

TEST_F(Verify, RunsThePluginOnTheFolderDirectlyBelowTheSnapshot) {
  root.writePlugin("/opt/depot", "echo 'Number of failures to match := 3'; exit 1");
  const auto result = verify();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|verify|-path|/snapshot/depotHost|-log|"
                                        "/private/var/log/halyard/depotHost.log"));
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(Verify, WithoutALogTheListEndsAfterItsWord) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").without("VerifyLog"));
  verify();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|verify|-path|/snapshot/depotHost|-log"));
}

TEST_F(Verify, AnEmptyLogIsAnEmptyArgument) {
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").text("VerifyLog", ""));
  verify();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|verify|-path|/snapshot/depotHost|-log|"));
}

TEST_F(Verify, ThePidFileStandsWhileThePluginRuns) {
  root.writePlugin("/opt/depot", "cp /private/var/run/HalyardRunning.pid /seen");
  root.run({"-cmd", "Verify", "-path", "/snapshot", "-service", "depotHost"});
  EXPECT_THAT(root.readFile("/seen"), testing::MatchesRegex("[0-9]+ :: Verify\n"));
}

TEST_F(Verify, ReadsTheNumberAfterTheSummaryWords) {
  EXPECT_EQ(resultOf("Number of failures to match := 0\n"), "binRet := 0");
  EXPECT_EQ(resultOf("Number of failures to match := 12\n"), "binRet := 12");
  EXPECT_EQ(resultOf("Number of failures to match := -4\n"), "binRet := -4");
}

TEST_F(Verify, TheLastSummaryLineWins) {
  EXPECT_EQ(resultOf("Number of failures to match := 12\nx\nNumber of failures to match := 5\n"),
            "binRet := 5");
}

TEST_F(Verify, WithoutASummaryLineTheResultIs99) {
  EXPECT_EQ(resultOf(""), "binRet := 99");
  EXPECT_EQ(resultOf("all is well\n"), "binRet := 99");
  EXPECT_EQ(resultOf(" Number of failures to match := 1\n"), "binRet := 99");
  EXPECT_EQ(resultOf("number of failures to match := 1\n"), "binRet := 99");
}

TEST_F(Verify, LettersInPlaceOfTheNumberGive0) {
  EXPECT_EQ(resultOf("Number of failures to match := many\n"), "binRet := 0");
}

TEST_F(Verify, TheValueIsReadFromTheThirtySecondCharacterWhateverStandsBefore) {
  EXPECT_EQ(resultOf("Number of failures to match: 1234\n"), "binRet := 34");
  EXPECT_EQ(resultOf("Number of failures to match____ 77 more\n"), "binRet := 77");
  EXPECT_EQ(resultOf("Number of failures to match\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4"
                     "8\n"),
            "binRet := 8");
}

TEST_F(Verify, ALineTooShortForAValueGives0) {
  EXPECT_EQ(resultOf("Number of failures to match\n"), "binRet := 0");
  EXPECT_EQ(resultOf("Number of failures to match := "), "binRet := 0");
}

TEST_F(Verify, ALineWithoutAnEndCounts) {
  EXPECT_EQ(resultOf("Number of failures to match := 6"), "binRet := 6");
}

TEST_F(Verify, NumbersBeyondTheLimitsStayAtThem) {
  EXPECT_EQ(resultOf("Number of failures to match := 3000000000\n"), "binRet := 2147483647");
  EXPECT_EQ(resultOf("Number of failures to match := -3000000000\n"), "binRet := -2147483648");
}

TEST_F(Verify, BytesThatAreNoUtf8AndNulDoNotDisturb) {
  EXPECT_EQ(resultOf(std::string("\xff\xfe\0\n", 4) + "Number of failures to match := 2\n"),
            "binRet := 2");
}

TEST_F(Verify, AHugeAnswerIsRead) {
  std::string answer;
  for (int line = 0; line < 200000; ++line) answer += "compared one more file\n";
  EXPECT_EQ(resultOf(answer + std::string(1000000, 'x') + "\nNumber of failures to match := 7\n"),
            "binRet := 7");
}

TEST_F(Verify, AnAnswerOnStandardErrorDoesNotCount) {
  root.writePlugin("/opt/depot", "echo 'Number of failures to match := 1' >&2");
  EXPECT_THAT(outputFrom(verify("depotHost", {{"DEBUG", ""}}), "binRet"),
              ElementsAre("binRet := 99"));
}

TEST_F(Verify, AMissingPluginLeaves99) {
  EXPECT_THAT(outputFrom(verify("depotHost", {{"DEBUG", ""}}), "binRet"),
              ElementsAre("binRet := 99"));
}

TEST_F(Verify, AnUnknownServiceIsNamed) {
  const auto result = verify("printHost");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Service := printHost, does not match a valid service for verification!\n");
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(Verify, AnotherCaseAnEmptyNameAllAndBlanksAreNotKnown) {
  root.writePlugin("/opt/depot");
  for (const char* service : {"depothost", "DEPOTHOST", "", "all", "depotHost ", "depot/Host"}) {
    EXPECT_EQ(verify(service).out, "Service := " + std::string(service) +
                                       ", does not match a valid service for verification!\n");
  }
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Verify, AnAbsentServiceShowsAsNull) {
  const auto result = root.run({"-cmd", "verify", "-path", "/snapshot", "-target", "/"});
  EXPECT_EQ(result.out, "Service := (null), does not match a valid service for verification!\n");
}

TEST_F(Verify, WithoutPreferencesNoServiceIsKnown) {
  root.remove("/private/etc/halyard/com.vantor.Halyard.plist");
  EXPECT_TRUE(verify().out.ends_with(
      "Service := depotHost, does not match a valid service for verification!\n"));
}

TEST_F(Verify, TheLastDescriptorWhoseNameHoldsTheServiceIsUsed) {
  root.writePlugin("/opt/depot");
  root.writePlugin("/opt/later");
  root.writeDescriptor("40-my-depotHost.plist", descriptorOf("later", "/opt/later"));
  root.writeDescriptor("50-DepotHost.plist", descriptorOf("other", "/opt/depot"));
  verify();
  EXPECT_THAT(root.calls(), ElementsAre("/opt/later|-cmd|verify|-path|/snapshot/later|-log|"
                                        "/private/var/log/halyard/later.log"));
}

TEST_F(Verify, WithoutADescriptorNothingCanRun) {
  const auto result = verify("siteHost", {{"DEBUG", ""}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(outputFrom(result, "serviceConfFilePath"),
              ElementsAre("serviceConfFilePath := ", "VerifyBinaryPath := (null)",
                          "ServiceName := (null)", "VerifyLog := (null)", "binRet := 99"));
}

TEST_F(Verify, AMissingSnapshotEndsWithStatus1AndLeavesThePidFile) {
  const auto result = root.run({"-cmd", "verify", "-path", "/nowhere", "-service", "depotHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Image path for verifying does not exist.\n");
  EXPECT_TRUE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(Verify, TheSnapshotMayBeAFileForItsFolderIsNotTested) {
  root.remove("/snapshot");
  root.writeFile("/snapshot", "");
  root.writePlugin("/opt/depot");
  verify();
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(Verify, WithoutAPathNothingRuns) {
  root.writePlugin("/opt/depot");
  const auto result = root.run({"-cmd", "verify", "-service", "depotHost", "-target", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Verify, NineWordsAreTooMany) {
  const auto result =
      root.run({"-cmd", "verify", "-path", "/snapshot", "-service", "depotHost", "-opt", "x"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("Wrong number of parameters for verify.\nUsage:\n"));
}

TEST_F(Verify, DebugShowsEveryLineInOrder) {
  root.writePlugin("/opt/depot",
                   "echo checking; echo 'Number of failures to match := 3'; echo "
                   "'Number of failures to match := 0'");
  const auto result = verify("depotHost", {{"DEBUG", ""}, {"VERBOSE", ""}});
  EXPECT_THAT(outputFrom(result, "IMAGE_PATH"),
              ElementsAre("IMAGE_PATH := /snapshot", "SERVICE := depotHost", "depotHost",
                          "serviceConfFilePath := /private/etc/halyard/30-depotHost.plist",
                          "VerifyBinaryPath := /opt/depot", "ServiceName := depotHost",
                          "VerifyLog := /private/var/log/halyard/depotHost.log",
                          "Number of failures to match := 3", "Number of failures to match := 0",
                          "binRet := 0"));
}

TEST_F(Verify, DebugShows99ForAnUnknownService) {
  EXPECT_THAT(outputFrom(verify("printHost", {{"DEBUG", ""}}), "Service"),
              ElementsAre("Service := printHost, does not match a valid service for verification!",
                          "binRet := 99"));
}

TEST_F(Verify, VerboseShowsTheTwoOptions) {
  root.writePlugin("/opt/depot");
  EXPECT_EQ(verify("depotHost", {{"VERBOSE", ""}}).out,
            "Halyard was called.\nIMAGE_PATH := /snapshot\nSERVICE := depotHost\n");
}

TEST_F(Verify, TheFunctionLogShowsEveryOperationInOrder) {
  EXPECT_THAT(linesOf(verify("depotHost", {{"FUNCLOG", ""}}).out),
              ElementsAreArray(wholeFunctionLog(
                  {started("setPidForProcess"), started("removePidProcessFile"),
                   ended("removePidProcessFile"), ended("setPidForProcess"), started("Verify"),
                   started("get_Helmsman_Prefs"), ended("get_Helmsman_Prefs"), ended("Verify"),
                   started("removePidProcessFile"), ended("removePidProcessFile")})));
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The browse of one service: which folder and plug-in, and how the answer is shown.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Browse : public SnapshotHost {
 protected:
  void SetUp() override {
    SnapshotHost::SetUp();
    if (IsSkipped()) return;
    root.makeFolder(inSnapshot("/depotHost"));
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
    root.writePlugin("/opt/depot", "echo listing");
  }

  CommandResult browse(const std::string& service = "depotHost",
                       const Environment& environment = {},
                       const std::string& path = kSnapshot) const {
    return root.run({"-cmd", "browse", "-path", path, "-service", service}, environment);
  }

  // Standard output when the plug-in answers with these bytes.
  std::string shown(const std::string& answer) const {
    root.writeFile("/answer", answer);
    root.writePlugin("/opt/depot", "cat /answer");
    return browse().out;
  }
};

TEST_F(Browse, RunsTheRestorePluginAndShowsItsAnswer) {
  const auto result = browse();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "listing\n\n");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|browse|-path|" + inSnapshot("/depotHost") +
                                        "|-log|/private/var/log/halyard/depotHost.log"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Browse, AnOptionIsPassedOn) {
  const auto result =
      root.run({"-cmd", "browse", "-path", kSnapshot, "-service", "depotHost", "-opt", "points"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/depot|-cmd|browse|-path|" + inSnapshot("/depotHost") +
                          "|-log|/private/var/log/halyard/depotHost.log|-opt|points"));
}

TEST_F(Browse, AnEmptyOptionIsPassedOnToo) {
  root.run({"-cmd", "browse", "-path", kSnapshot, "-service", "depotHost", "-opt", ""});
  ASSERT_EQ(root.calls().size(), 1U);
  EXPECT_TRUE(root.calls()[0].ends_with("|-opt|"));
}

TEST_F(Browse, WithoutALogTheListEndsAfterItsWordAndTheOptionFollows) {
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "/opt/depot").without("RestoreLog"));
  browse();
  root.run({"-cmd", "browse", "-path", kSnapshot, "-service", "depotHost", "-opt", "x"});
  EXPECT_THAT(
      root.calls(),
      ElementsAre("/opt/depot|-cmd|browse|-path|" + inSnapshot("/depotHost") + "|-log",
                  "/opt/depot|-cmd|browse|-path|" + inSnapshot("/depotHost") + "|-log|-opt|x"));
}

TEST_F(Browse, AnAnswerIsShownPieceByPiece) {
  EXPECT_EQ(shown("a\nb"), "a\nb\n");
  EXPECT_EQ(shown("a\n\n b \n"), "a\n\n b \n\n");
  EXPECT_EQ(shown("\n"), "\n\n");
}

TEST_F(Browse, AnEmptyAnswerShowsOneEmptyLine) { EXPECT_EQ(shown(""), "\n"); }

TEST_F(Browse, AnAnswerThatIsNoUtf8ComesThrough) { EXPECT_EQ(shown("\xff\xfe\n"), "\xff\xfe\n\n"); }

TEST_F(Browse, AnAnswerWithANulComesThrough) {
  const std::string answer("a\0b", 3);
  EXPECT_EQ(shown(answer), answer + "\n");
}

TEST_F(Browse, AHugeAnswerComesThrough) {
  const std::string answer(3000000, 'x');
  EXPECT_EQ(shown(answer).size(), answer.size() + 1);
}

TEST_F(Browse, StatusAndErrorOutputOfThePluginAreNotLookedAt) {
  root.writePlugin("/opt/depot", "echo listing; echo trouble >&2; exit 5");
  const auto result = browse();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "listing\n\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Browse, APluginThatIsMissingAnswersWithNothing) {
  root.remove("/opt/depot");
  const auto result = browse();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "\n");
}

TEST_F(Browse, AMissingServiceFolderIsAWarning) {
  root.remove(inSnapshot("/depotHost"));
  EXPECT_EQ(browse().out, "WARNING: Service depotHost folder does not exist for browsing.\n");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Browse, ASnapshotWithoutAMetadataFolderLooksAtTheRoot) {
  root.makeFolder("/empty");
  EXPECT_EQ(browse("depotHost", {}, "/empty").out,
            "WARNING: Service depotHost folder does not exist for browsing.\n");
  root.makeFolder("/depotHost");
  EXPECT_EQ(browse("depotHost", {}, "/empty").out, "listing\n\n");
  EXPECT_THAT(root.calls(), ElementsAre("/opt/depot|-cmd|browse|-path|/depotHost|-log|"
                                        "/private/var/log/halyard/depotHost.log"));
}

TEST_F(Browse, OfTwoMetadataFoldersTheLaterIsUsed) {
  root.makeFolder(std::string(kSnapshot) + "/Zulu/.Halyards/depotHost");
  browse();
  ASSERT_EQ(root.calls().size(), 1U);
  EXPECT_TRUE(root.calls()[0].starts_with("/opt/depot|-cmd|browse|-path|" + std::string(kSnapshot) +
                                          "/Zulu/.Halyards/depotHost|"));
}

TEST_F(Browse, ASnapshotWithoutASignatureAndOneInProgressAreBrowsed) {
  root.remove(inSnapshot("/.halyardSignature"));
  EXPECT_EQ(browse().out, "listing\n\n");
  root.makeFolder("/x.inProgress/HD/.Halyards/depotHost");
  EXPECT_EQ(browse("depotHost", {}, "/x.inProgress").out, "listing\n\n");
}

TEST_F(Browse, AMissingSnapshotOrAFileEndsWithStatus2) {
  root.writeFile("/file", "");
  for (const char* path : {"/nowhere", "/file", ""}) {
    const auto result = browse("depotHost", {}, path);
    EXPECT_EQ(result.status, 2) << path;
    EXPECT_EQ(result.out, "Snapshot path for browing does not exist.\n") << path;
  }
}

TEST_F(Browse, ALinkToASnapshotIsFollowed) {
  root.makeLink("/latest", kSnapshot);
  EXPECT_EQ(browse("depotHost", {}, "/latest").out, "listing\n\n");
}

TEST_F(Browse, WithoutAPathNothingRuns) {
  const auto result = root.run({"-cmd", "browse", "-target", "/", "-service", "depotHost"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(Browse, AnUnknownServiceIsNamed) {
  for (const char* service :
       {"printHost", "depothost", "", "depotHost ", "all ", "depot/Host", "alls"}) {
    const auto result = browse(service);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Service := " + std::string(service) +
                              ", does not match a valid service for browsing!\n");
  }
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Browse, AnAbsentServiceShowsAsNull) {
  const auto result = root.run({"-cmd", "browse", "-path", kSnapshot, "-target", "/"});
  EXPECT_EQ(result.out, "Service := (null), does not match a valid service for browsing!\n");
}

TEST_F(Browse, WithoutPreferencesNoServiceIsKnown) {
  root.remove("/private/etc/halyard/com.vantor.Halyard.plist");
  EXPECT_TRUE(browse().out.ends_with(
      "Service := depotHost, does not match a valid service for browsing!\n"));
}

TEST_F(Browse, AServiceWithoutADescriptorShowsAsNull) {
  EXPECT_EQ(browse("siteHost").out,
            "WARNING: Service (null) folder does not exist for browsing.\n");
}

TEST_F(Browse, TheLastDescriptorWhoseNameHoldsTheServiceIsUsed) {
  root.writePlugin("/opt/later", "echo later");
  root.makeFolder(inSnapshot("/later"));
  root.writeFile("/private/etc/halyard/90-depotHost.old",
                 descriptorOf("later", "/opt/later").plist(), 0755);
  EXPECT_EQ(browse().out, "later\n\n");
}

TEST_F(Browse, ThePreferencesFileIsConsideredToo) {
  root.writePreferences({{"vantor", 1}});
  EXPECT_EQ(browse("vantor").out, "WARNING: Service (null) folder does not exist for browsing.\n");
}

TEST_F(Browse, ElevenWordsAreTooMany) {
  const auto result = root.run(
      {"-cmd", "browse", "-path", kSnapshot, "-service", "depotHost", "-opt", "x", "-target", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("Wrong number of parameters for browse.\nUsage:\n"));
}

TEST_F(Browse, DebugShowsEveryLineInOrder) {
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").dictionary("RestoreActions", {{"Browse", "look"}}));
  const auto result = browse("depotHost", {{"DEBUG", ""}, {"VERBOSE", ""}});
  EXPECT_THAT(
      outputFrom(result, "mountedImagePath"),
      ElementsAre("mountedImagePath := " + std::string(kSnapshot), "service := depotHost",
                  "depotHost", "serviceConfFilePath := /private/etc/halyard/30-depotHost.plist",
                  "RestoreBinaryPath := /opt/depot", "BrowseCMD := look",
                  "ServiceName := depotHost", "listing", ""));
  EXPECT_THAT(logMessages(result), testing::Contains("serverMetaDataPath := " + inSnapshot("")));
}

TEST_F(Browse, DebugShowsAbsentValuesAsNullAndNoPath) {
  EXPECT_THAT(outputFrom(browse("siteHost", {{"DEBUG", ""}}), "serviceConfFilePath"),
              ElementsAre("serviceConfFilePath := ", "RestoreBinaryPath := (null)",
                          "BrowseCMD := (null)", "ServiceName := (null)",
                          "WARNING: Service (null) folder does not exist for browsing."));
}

TEST_F(Browse, VerboseShowsTheTwoOptions) {
  EXPECT_EQ(browse("printHost", {{"VERBOSE", ""}}).out,
            "Halyard was called.\nmountedImagePath := "
            "/Volumes/Backup/Archives.snapdb/files1/2026-11-14\nservice := printHost\nService := "
            "printHost, does not match a valid service for browsing!\n");
}

TEST_F(Browse, TheFunctionLogShowsEveryOperationInOrder) {
  EXPECT_THAT(functionLines(browse("depotHost", {{"FUNCLOG", ""}})),
              ElementsAreArray(wholeFunctionLog({started("Browse"), started("get_Helmsman_Prefs"),
                                                 ended("get_Helmsman_Prefs"), ended("Browse")})));
}

TEST_F(Browse, TheProgressLogGetsNoRecord) {
  root.writeFile(kProgressLog, "old\n");
  browse();
  browse("all");
  EXPECT_EQ(root.readFile(kProgressLog), "old\n");
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The two listings of this host's snapshots.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;

class List : public PrivateRootTest {
 protected:
  static constexpr const char* kHostFolder = "/Volumes/Backup/Archives.snapdb/files1";
  static constexpr const char* kHostPreferences =
      "/Library/Preferences/HostConfig/preferences.plist";

  void makeSnapshots(const std::vector<std::string>& names) const {
    root.makeFolder(kHostFolder);
    for (const std::string& name : names) root.makeFolder(kHostFolder + ("/" + name));
  }

  CommandResult list(const Environment& environment = {}) const {
    return root.run({"-cmd", "list"}, environment);
  }
  CommandResult listVerbose(const Environment& environment = {}) const {
    return root.run({"-cmd", "listVerbose"}, environment);
  }
};

TEST_F(List, EveryNameButLatestWithTheFolderInFront) {
  makeSnapshots({"2026-11-14-100000", "2026-11-13-100000", "Latest", ".hidden", "x.inProgress"});
  const auto result = list();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "/Volumes/Backup/Archives.snapdb/files1/.hidden\n"
            "/Volumes/Backup/Archives.snapdb/files1/2026-11-13-100000\n"
            "/Volumes/Backup/Archives.snapdb/files1/2026-11-14-100000\n"
            "/Volumes/Backup/Archives.snapdb/files1/x.inProgress\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(List, NamesThatBeginWithTotalAreDropped) {
  makeSnapshots({"total", "totally", "subtotal", "Total"});
  EXPECT_EQ(list().out,
            "/Volumes/Backup/Archives.snapdb/files1/Total\n"
            "/Volumes/Backup/Archives.snapdb/files1/subtotal\n");
}

TEST_F(List, OnlyExactlyLatestIsDropped) {
  makeSnapshots({"Latest", "latest", "Latest.old", "My Latest"});
  EXPECT_EQ(list().out,
            "/Volumes/Backup/Archives.snapdb/files1/Latest.old\n"
            "/Volumes/Backup/Archives.snapdb/files1/My Latest\n"
            "/Volumes/Backup/Archives.snapdb/files1/latest\n");
}

TEST_F(List, BlanksStayAndNothingIsQuoted) {
  makeSnapshots({"a  b", " lead", "it's"});
  EXPECT_EQ(list().out,
            "/Volumes/Backup/Archives.snapdb/files1/ lead\n"
            "/Volumes/Backup/Archives.snapdb/files1/a  b\n"
            "/Volumes/Backup/Archives.snapdb/files1/it's\n");
}

TEST_F(List, ANameWithALineBreakIsTwoPieces) {
  makeSnapshots({"one\ntwo", "three\nLatest"});
  EXPECT_EQ(list().out,
            "/Volumes/Backup/Archives.snapdb/files1/one\n"
            "/Volumes/Backup/Archives.snapdb/files1/two\n"
            "/Volumes/Backup/Archives.snapdb/files1/three\n");
}

TEST_F(List, BytesThatAreNoUtf8ComeThrough) {
  makeSnapshots({"\xff\xfe"});
  EXPECT_EQ(list().out, "/Volumes/Backup/Archives.snapdb/files1/\xff\xfe\n");
}

TEST_F(List, TheOrderIsThatOfBytesWhateverTheLocale) {
  makeSnapshots({"b", "B", "a", "_"});
  EXPECT_EQ(list({{"LC_ALL", "en_US.UTF-8"}}).out,
            "/Volumes/Backup/Archives.snapdb/files1/B\n"
            "/Volumes/Backup/Archives.snapdb/files1/_\n"
            "/Volumes/Backup/Archives.snapdb/files1/a\n"
            "/Volumes/Backup/Archives.snapdb/files1/b\n");
}

TEST_F(List, AnEmptyFolderPrintsNothingInEitherListing) {
  makeSnapshots({});
  EXPECT_EQ(list().out, "");
  EXPECT_EQ(listVerbose().out, "");
}

TEST_F(List, OnlyLatestPrintsNothing) {
  makeSnapshots({"Latest"});
  EXPECT_EQ(list().out, "");
}

TEST_F(List, VerboseKeepsLatestAndShowsTheLongLineAfterTheFolder) {
  makeSnapshots({"Latest"});
  const auto result = listVerbose();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(
      linesOf(result.out),
      ElementsAre(MatchesRegex("/Volumes/Backup/Archives[.]snapdb/files1/drwxr-xr-x +[0-9]+ "
                               "root +root +[0-9.]+K? [A-Z][a-z][a-z] [ 0-9]+:[0-9]+ "
                               "Latest")));
}

TEST_F(List, VerboseShowsHiddenNamesAndNoTotal) {
  makeSnapshots({".hidden", "2026-11-14"});
  const auto lines = linesOf(listVerbose().out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0].ends_with(" .hidden"));
  EXPECT_TRUE(lines[1].ends_with(" 2026-11-14"));
}

TEST_F(List, VerboseKeepsANameThatBeginsWithTotalForItsLineDoesNot) {
  makeSnapshots({"totally"});
  EXPECT_EQ(linesOf(listVerbose().out).size(), 1U);
}

TEST_F(List, VerboseShowsWhereALinkLeads) {
  makeSnapshots({"2026-11-14"});
  root.makeLink(std::string(kHostFolder) + "/Latest", "2026-11-14");
  const auto lines = linesOf(listVerbose().out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[1].ends_with(" Latest -> 2026-11-14"));
  EXPECT_EQ(list().out, "/Volumes/Backup/Archives.snapdb/files1/2026-11-14\n");
}

TEST_F(List, AMissingFolderIsNamed) {
  for (const auto& result : {list(), listVerbose()}) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "Error: snapShotPath /Volumes/Backup/Archives.snapdb/files1 does not exist!\n");
  }
}

TEST_F(List, AFileInPlaceOfTheFolderIsNoFolder) {
  root.writeFile(kHostFolder, "");
  EXPECT_EQ(list().out,
            "Error: snapShotPath /Volumes/Backup/Archives.snapdb/files1 does not exist!\n");
}

TEST_F(List, WithoutABackupVolumeThePathBeginsWithNull) {
  root.writeEnginePreferences(1, "/Volumes/Gone");
  for (const char* command : {"list", "listVerbose"}) {
    EXPECT_EQ(root.run({"-cmd", command}).out,
              "Error: snapShotPath (null)/Archives.snapdb/files1 does not exist!\n");
  }
}

TEST_F(List, WithoutANameTheHostIsUnknownComputer) {
  const std::string expected =
      "Error: snapShotPath /Volumes/Backup/Archives.snapdb/Unknown_Computer does not exist!\n";
  for (const char* content :
       {"<dict/>", "<dict><key>System</key><dict/></dict>",
        "<dict><key>System</key><dict><key>System</key><dict/></dict></dict>",
        "<dict><key>System</key><dict><key>ComputerName</key><string>x</string></dict></dict>",
        "<dict><key>System</key><string>x</string></dict>", "<array/>"}) {
    root.writeFile(kHostPreferences, plistDocument(content));
    EXPECT_EQ(list().out, expected) << content;
  }
  root.writeFile(kHostPreferences, "not a property list");
  EXPECT_EQ(list().out, expected);
  root.remove(kHostPreferences);
  EXPECT_EQ(list().out, expected);
}

TEST_F(List, TheFolderOfAnUnknownComputerIsListed) {
  root.remove(kHostPreferences);
  root.makeFolder("/Volumes/Backup/Archives.snapdb/Unknown_Computer/one");
  EXPECT_EQ(list().out, "/Volumes/Backup/Archives.snapdb/Unknown_Computer/one\n");
}

TEST_F(List, AFailingToolShowsWhatItPrinted) {
  makeSnapshots({"one"});
  root.remove("/bin/ls");
  root.writeScript("/bin/ls", "echo half; echo trouble >&2; exit 2");
  const auto result = list();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "/Volumes/Backup/Archives.snapdb/files1/half\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(List, AMissingToolShowsNothing) {
  makeSnapshots({"one"});
  root.remove("/bin/ls");
  EXPECT_EQ(list().out, "");
  EXPECT_EQ(list().status, 0);
}

TEST_F(List, TheToolGetsOneOptionAndTheFolder) {
  makeSnapshots({"one"});
  root.remove("/bin/ls");
  root.writePlugin("/bin/ls");
  list();
  listVerbose();
  EXPECT_THAT(root.calls(), ElementsAre("/bin/ls|-A|/Volumes/Backup/Archives.snapdb/files1",
                                        "/bin/ls|-Alh|/Volumes/Backup/Archives.snapdb/files1"));
}

TEST_F(List, OnlyTheLastPathComponentDecidesAboutLatest) {
  makeSnapshots({"one"});
  root.remove("/bin/ls");
  root.writeScript("/bin/ls", "printf 'a/Latest\\n\\n\\nLatest/\\nLatest/b\\nlast'");
  EXPECT_EQ(linesOf(list().out).front(), "/Volumes/Backup/Archives.snapdb/files1/Latest/b");
}

TEST_F(List, AFiveWordLineIsAcceptedToo) {
  makeSnapshots({"one"});
  const auto result = root.run({"-cmd", "LIST", "-path", "/nowhere"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "/Volumes/Backup/Archives.snapdb/files1/one\n");
}

TEST_F(List, DebugLogsThePathAndPrintsTheWholeText) {
  makeSnapshots({"one", "Latest"});
  const auto result = list({{"DEBUG", ""}});
  EXPECT_THAT(logMessages(result),
              ElementsAre("List:snapShotPath =: /Volumes/Backup/Archives.snapdb/files1"));
  EXPECT_THAT(outputFrom(result, "dirItemsReturned"),
              ElementsAre("dirItemsReturned Latest", "one", "",
                          "/Volumes/Backup/Archives.snapdb/files1/one"));
}

TEST_F(List, VerboseDebugUsesTheSameLabel) {
  makeSnapshots({});
  EXPECT_THAT(logMessages(listVerbose({{"DEBUG", ""}})),
              ElementsAre("List:snapShotPath =: /Volumes/Backup/Archives.snapdb/files1"));
}

TEST_F(List, TheFunctionLogShowsTheTwoOperations) {
  EXPECT_THAT(functionLines(list({{"FUNCLOG", ""}})),
              ElementsAreArray(wholeFunctionLog({started("List"), started("get_Helmsman_Prefs"),
                                                 ended("get_Helmsman_Prefs"), ended("List")})));
  EXPECT_THAT(
      functionLines(listVerbose({{"FUNCLOG", ""}})),
      ElementsAreArray(wholeFunctionLog({started("ListVerbose"), started("get_Helmsman_Prefs"),
                                         ended("get_Helmsman_Prefs"), ended("ListVerbose")})));
}

TEST_F(List, NoPidFileIsWrittenAndAnExistingOneStopsTheListing) {
  root.writeFile("/private/var/run/HalyardRunning.pid", "1 :: backup\n");
  const auto result = list();
  EXPECT_EQ(result.status, 37);
  EXPECT_EQ(result.out, "Backup process is already running.\n");
}

}  // namespace
}  // namespace halyard::test

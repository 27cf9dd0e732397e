// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The browse of all services at once: one property list of every answer.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class BrowseAll : public SnapshotHost {
 protected:
  static constexpr const char* kTemporaryFile = "/tmp/.halyardTmpFile";
  static constexpr const char* kNothing =
      "WARNING:2: Service depotHost did not return any data when browsing.\n";

  void SetUp() override {
    SnapshotHost::SetUp();
    if (IsSkipped()) return;
    addService("30-depotHost.plist", "depotHost", "<array><string>point</string></array>");
  }

  // A service of the snapshot whose plug-in answers with this value.
  void addService(const std::string& file, const std::string& name,
                  const std::string& value) const {
    root.makeFolder(inSnapshot("/" + name));
    root.writeDescriptor(file, descriptorOf(name, "/opt/" + file));
    answer(file, plistDocument(value));
  }

  void answer(const std::string& file, const std::string& bytes) const {
    root.writeFile("/answers/" + file, bytes);
    root.writePlugin("/opt/" + file, "cat /answers/" + file);
  }

  CommandResult browseAll(const std::string& word = "all",
                          const Environment& environment = {}) const {
    return root.run({"-cmd", "browse", "-path", kSnapshot, "-service", word}, environment);
  }

  // The output without what a property list has before and after its root value.
  static std::string rootValue(const std::string& out) {
    const std::size_t start = out.find("<dict");
    const std::size_t end = out.find("</plist>");
    if (start == std::string::npos || end == std::string::npos) return "<no property list>";
    return out.substr(start, end - start);
  }

  static constexpr const char* kEmptyResult = "<dict/>\n";
};

TEST_F(BrowseAll, OneListHoldsEveryAnswerInDescriptorOrder) {
  addService("50-siteHost.plist", "siteHost", "<dict><key>b</key><integer>1</integer></dict>");
  const auto result = browseAll();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n")) << result.out;
  EXPECT_EQ(rootValue(result.out),
            "<dict>\n\t<key>depotHost</key>\n\t<array>\n\t\t<string>point</string>\n\t</array>\n"
            "\t<key>siteHost</key>\n\t<dict>\n\t\t<key>b</key>\n\t\t<integer>1</integer>\n"
            "\t</dict>\n</dict>\n");
  EXPECT_TRUE(result.out.ends_with("</plist>\n"));
  EXPECT_EQ(result.err, "");
}

TEST_F(BrowseAll, ThePluginGetsNoLogAndNoOption) {
  root.run({"-cmd", "browse", "-path", kSnapshot, "-service", "all", "-opt", "x"});
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/30-depotHost.plist|-cmd|browse|-path|" + inSnapshot("/depotHost")));
}

TEST_F(BrowseAll, AnyCaseOfTheWordBrowsesEveryService) {
  const std::string expected = browseAll("all").out;
  EXPECT_EQ(browseAll("ALL").out, expected);
  EXPECT_EQ(browseAll("All").out, expected);
  EXPECT_THAT(expected, HasSubstr("<string>point</string>"));
}

TEST_F(BrowseAll, PreferencesAreNotNeeded) {
  root.remove("/private/etc/halyard/com.vantor.Halyard.plist");
  EXPECT_THAT(browseAll().out, HasSubstr("<string>point</string>"));
}

TEST_F(BrowseAll, DisabledAndUnknownServicesAreBrowsed) {
  root.writePreferences({{"depotHost", 0}});
  addService("60-otherHost.plist", "otherHost", "<array><true/></array>");
  const auto result = browseAll();
  EXPECT_THAT(result.out, HasSubstr("<key>depotHost</key>"));
  EXPECT_THAT(result.out, HasSubstr("<key>otherHost</key>"));
}

TEST_F(BrowseAll, AMissingFolderIsAWarningAndTheOthersAreStillBrowsed) {
  root.writeDescriptor("10-agendaHost.plist", descriptorOf("agendaHost", "/opt/agenda"));
  const auto result = browseAll();
  EXPECT_TRUE(result.out.starts_with(
      "WARNING: Service agendaHost folder does not exist for browsing.\n<?xml"));
  EXPECT_THAT(result.out, HasSubstr("<string>point</string>"));
}

TEST_F(BrowseAll, AnAnswerWithoutEntriesIsAWarning) {
  for (const char* value : {"<array/>", "<dict/>", "<dict></dict>"}) {
    answer("30-depotHost.plist", plistDocument(value));
    const auto result = browseAll();
    EXPECT_TRUE(result.out.starts_with(kNothing)) << value;
    EXPECT_EQ(rootValue(result.out), kEmptyResult);
  }
}

TEST_F(BrowseAll, AnAnswerThatIsNoPropertyListIsAWarning) {
  const std::string good = plistDocument("<array><true/></array>");
  for (const std::string& bytes :
       {std::string(), std::string("listing\n"), good.substr(0, good.size() / 2), good + "x",
        plistDocument("<array><string>\xff</string></array>"),
        plistDocument("<array><string>a" + std::string(1, '\0') + "b</string></array>"),
        plistDocument("<array><string>&unknown;</string></array>"),
        std::string("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><array><true/></array></plist>"),
        std::string("bplist00\xd1\x01\x02")}) {
    answer("30-depotHost.plist", bytes);
    const auto result = browseAll();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.starts_with(kNothing)) << bytes;
    EXPECT_EQ(rootValue(result.out), kEmptyResult);
  }
}

TEST_F(BrowseAll, AnAnswerNestedBeyondReasonIsAWarning) {
  std::string deep;
  for (int level = 0; level < 100000; ++level) deep += "<array>";
  answer("30-depotHost.plist", "<plist>" + deep);
  EXPECT_TRUE(browseAll().out.starts_with(kNothing));
}

TEST_F(BrowseAll, ARootThatIsNeitherDictionaryNorArrayIsSkippedSilently) {
  for (const char* value : {"<string>point</string>", "<integer>1</integer>", "<true/>"}) {
    answer("30-depotHost.plist", plistDocument(value));
    const auto result = browseAll();
    EXPECT_THAT(result.out, Not(HasSubstr("WARNING"))) << value;
    EXPECT_EQ(rootValue(result.out), kEmptyResult);
  }
}

TEST_F(BrowseAll, AHugeAnswerComesThrough) {
  std::string value = "<array>";
  for (int entry = 0; entry < 100000; ++entry) value += "<string>one more entry</string>";
  answer("30-depotHost.plist", plistDocument(value + "</array>"));
  const auto lines = linesOf(browseAll().out);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "\t\t<string>one more entry</string>"), 100000);
}

TEST_F(BrowseAll, AFailingPluginsAnswerCountsAndAMissingPluginHasNone) {
  root.writePlugin("/opt/30-depotHost.plist", "cat /answers/30-depotHost.plist; exit 4");
  EXPECT_THAT(browseAll().out, HasSubstr("<string>point</string>"));
  root.remove("/opt/30-depotHost.plist");
  EXPECT_TRUE(browseAll().out.starts_with(kNothing));
}

TEST_F(BrowseAll, ALaterDescriptorOfTheSameNameReplacesTheAnswerInItsPlace) {
  addService("50-siteHost.plist", "siteHost", "<array><true/></array>");
  addService("60-depotHost.plist", "depotHost", "<array><string>later</string></array>");
  EXPECT_EQ(rootValue(browseAll().out),
            "<dict>\n\t<key>depotHost</key>\n\t<array>\n\t\t<string>later</string>\n\t</array>\n"
            "\t<key>siteHost</key>\n\t<array>\n\t\t<true/>\n\t</array>\n</dict>\n");
}

TEST_F(BrowseAll, SpecialLettersAreEscaped) {
  addService("30-depotHost.plist", "depotHost",
             "<array><string>a&lt;b &amp; c&gt;</string></array>");
  EXPECT_THAT(browseAll().out, HasSubstr("<string>a&lt;b &amp; c&gt;</string>"));
}

TEST_F(BrowseAll, ADescriptorWithoutANameShowsAsNull) {
  root.writeFile("/private/etc/halyard/10-plain", "no property list");
  EXPECT_TRUE(browseAll().out.starts_with(
      "WARNING: Service (null) folder does not exist for browsing.\n<?xml"));
}

TEST_F(BrowseAll, ExecutablesAndTheNamesOfThePreferencesFileAreNoDescriptors) {
  const std::string text = descriptorOf("x", "/opt/x").plist();
  root.writeFile("/private/etc/halyard/10-tool", text, 0755);
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.old", text);
  EXPECT_THAT(browseAll().out, Not(HasSubstr("WARNING")));
}

TEST_F(BrowseAll, TheTemporaryFileDoesNotRemain) {
  browseAll();
  EXPECT_FALSE(root.exists(kTemporaryFile));
  EXPECT_THAT(root.list("/tmp"), testing::IsEmpty());
}

TEST_F(BrowseAll, APlantedLinkIsReplacedAndNotFollowed) {
  root.writeFile("/etc/victim", "kept");
  root.makeLink(kTemporaryFile, "/etc/victim");
  EXPECT_THAT(browseAll().out, HasSubstr("<string>point</string>"));
  EXPECT_EQ(root.readFile("/etc/victim"), "kept");
  EXPECT_FALSE(root.exists(kTemporaryFile));
}

TEST_F(BrowseAll, APlantedPipeHoldsNobodyUp) {
  ASSERT_EQ(mkfifo(root.path(kTemporaryFile).c_str(), 0666), 0);
  EXPECT_THAT(browseAll().out, HasSubstr("<string>point</string>"));
  EXPECT_FALSE(root.exists(kTemporaryFile));
}

TEST_F(BrowseAll, APlantedFolderMakesTheWriteFailAndShowsNull) {
  root.writeFile(std::string(kTemporaryFile) + "/kept", "kept");
  const auto result = browseAll();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "(null)");
}

TEST_F(BrowseAll, WithoutTmpTheResultShowsAsNull) {
  root.remove("/tmp");
  EXPECT_EQ(browseAll().out, "(null)");
}

TEST_F(BrowseAll, ADescriptorWithoutAPluginAnswersWithNothing) {
  root.writeDescriptor("30-depotHost.plist",
                       descriptorOf("depotHost", "").without("RestoreBinaryPath"));
  EXPECT_TRUE(browseAll().out.starts_with(kNothing));
}

TEST_F(BrowseAll, TheFunctionLogShowsTheSameOperationsAsForOneService) {
  EXPECT_THAT(
      functionLines(browseAll("all", {{"FUNCLOG", ""}})),
      testing::ElementsAreArray(wholeFunctionLog({started("Browse"), started("get_Helmsman_Prefs"),
                                                  ended("get_Helmsman_Prefs"), ended("Browse")})));
}

TEST_F(BrowseAll, DebugShowsNamesAndPluginsOnly) {
  const auto result = browseAll("all", {{"DEBUG", ""}, {"VERBOSE", ""}});
  const auto lines = outputFrom(result, "mountedImagePath");
  ASSERT_GE(lines.size(), 5U);
  EXPECT_EQ(lines[0], "mountedImagePath := " + std::string(kSnapshot));
  EXPECT_EQ(lines[1], "service := all");
  EXPECT_THAT(lines, testing::Contains("tServiceName := depotHost"));
  EXPECT_THAT(lines, testing::Contains("tRestoreBinaryPath := /opt/30-depotHost.plist"));
  EXPECT_THAT(result.out, Not(HasSubstr("tStr")));
}

}  // namespace
}  // namespace halyard::test

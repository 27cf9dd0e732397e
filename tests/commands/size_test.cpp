// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The size command, and the room that a backup measures.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> kSize{"-cmd", "size"};
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};
const Environment kDebug{{"DEBUG", "1"}};
constexpr const char* kPipeline = "/bin/df -k / | /usr/bin/grep / | /usr/bin/awk '{ print $2 }'";

class Size : public PrivateRootTest {
 protected:
  void add(const std::string& fileName, const std::string& service, const std::string& answer) {
    const std::string plugin = "/opt/" + fileName;
    root.writeFile(plugin + ".answer", answer);
    root.writePlugin(plugin, "cat " + plugin + ".answer");
    root.writeDescriptor(fileName, descriptorOf(service, plugin));
  }

  void expectTotal(const std::string& answer, const std::string& kilobytes) {
    add("10-siteHost.plist", "siteHost", answer);
    const auto result = root.run(kSize);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "total := " + kilobytes + "\n") << answer;
  }

  // A df that reports this number of blocks for "/".
  void writeDiskUsage(const std::string& blocks) {
    root.remove("/bin/df");
    root.writePlugin("/bin/df",
                     "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                     "echo '/dev/root " +
                         blocks + " 1 1 1% /'");
  }
};

TEST_F(Size, AddsTheAnswersOfEnabledServicesInKilobytes) {
  add("10-siteHost.plist", "siteHost", "total := 1048576\n");
  add("20-postHost.plist", "postHost", "total := 2048\ntotal := 1024\n");
  const auto result = root.run(kSize);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "total := 1027\n");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(root.calls(), ElementsAre("/opt/10-siteHost.plist|-cmd|size|-opt|all",
                                        "/opt/20-postHost.plist|-cmd|size|-opt|all"));
}

TEST_F(Size, UnderDebugEachAdditionIsShownInBytes) {
  add("10-siteHost.plist", "siteHost", "total := 1048576\n");
  add("20-postHost.plist", "postHost", "total := 2048\ntotal := 1024\n");
  EXPECT_THAT(root.run(kSize, kDebug).out,
              EndsWith("10-siteHost.plist\nServiceName := siteHost\n"
                       "ServiceBinary := /opt/10-siteHost.plist\ngrandTotal := 1048576\n"
                       "20-postHost.plist\nServiceName := postHost\n"
                       "ServiceBinary := /opt/20-postHost.plist\ngrandTotal := 1050624\n"
                       "grandTotal := 1051648\ntotal := 1027\n"));
}

TEST_F(Size, UnderDebugShortNamesAreShownBeforeTheirTestAndLongOnesWhenTaken) {
  root.writeScript("/private/etc/halyard/tool", "");
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.old", "");
  root.writeFile("/private/etc/halyard/notes-with-a-rather-long-name", "");
  const std::string skipped =
      "ServiceName := (null)\n"
      "Skipping size calculation for ServiceName := (null) because it is disabled.\n";
  EXPECT_THAT(
      root.run(kSize, kDebug).out,
      EndsWith("siteData := 1\nnotes-with-a-rather-long-name\n" + skipped + "tool\ntotal := 0\n"));
}

TEST_F(Size, NegativeTotalsTruncateTowardsZero) { expectTotal("total := -1536\n", "-1"); }
TEST_F(Size, LessThanAKilobyteIsNone) { expectTotal("total := 1023\n", "0"); }
TEST_F(Size, LargeAnswersSaturate) { expectTotal("total := 3000000000\n", "2097151"); }
TEST_F(Size, SaturatedAnswersAddUpIn64Bits) {
  expectTotal("total := 3000000000\ntotal := 3000000000\ntotal := 2\n", "4194304");
}
TEST_F(Size, ALeadingBlankHidesALine) { expectTotal(" total := 4096\ntotal := 1024\n", "1"); }
TEST_F(Size, AnotherLetterCaseHidesALine) { expectTotal("Total := 4096\nTOTAL := 4096\n", "0"); }
TEST_F(Size, ThePrefixIsWhole) { expectTotal("total :=4096\ntotal = 4096\ntotal: 4096\n", "0"); }
TEST_F(Size, BlanksBeforeTheNumberAreSkipped) { expectTotal("total :=  \t 4096 KB\n", "4"); }
TEST_F(Size, ALineWithoutANumberAddsNothing) { expectTotal("total := \ntotal := x1\n", "0"); }
TEST_F(Size, ALastLineWithoutALineFeedCounts) { expectTotal("hello\ntotal := 4096", "4"); }
TEST_F(Size, CarriageReturnsAreNoLineEnds) { expectTotal("a\rtotal := 4096\n", "0"); }
TEST_F(Size, OtherLinesAreIgnored) {
  expectTotal("note: total := 1\n\nsize 9\ntotal := 2048\n", "2");
}

TEST_F(Size, AFailingQueryStillCounts) {
  root.writePlugin("/opt/fail", "echo 'total := 4096'; echo 'total := 9999' >&2; exit 9");
  root.writeDescriptor("10-siteHost.plist", descriptorOf("siteHost", "/opt/fail"));
  EXPECT_EQ(root.run(kSize).out, "total := 4\n");
}

TEST_F(Size, WithoutServicesTheTotalIsZero) { EXPECT_EQ(root.run(kSize).out, "total := 0\n"); }

TEST_F(Size, OnlyAFlagOfExactlyOneCounts) {
  for (const auto& [flag, total] :
       std::map<int, std::string>{{0, "0"}, {1, "4"}, {2, "0"}, {-1, "0"}}) {
    root.writePreferences({{"siteHost", flag}});
    expectTotal("total := 4096\n", total);
  }
}

TEST_F(Size, NamesMatchInAnyCase) {
  root.writePreferences({{"agendaHost", 1}});
  add("10-x.plist", "AGENDAHOST", "total := 4096\n");
  EXPECT_EQ(root.run(kSize).out, "total := 4\n");
  root.writePreferences({{"agendaHost", 2}});
  EXPECT_EQ(root.run(kSize).out, "total := 0\n");
}

TEST_F(Size, UnknownServicesAreLeftOut) {
  root.writePreferences({{"otherHost", 1}, {"siteHost", 1}});
  add("10-x.plist", "otherHost", "total := 4096\n");
  const auto result = root.run(kSize, kDebug);
  EXPECT_THAT(result.out, HasSubstr("Skipping size calculation for ServiceName := otherHost "
                                    "because it is disabled.\n"));
  EXPECT_THAT(result.out, EndsWith("total := 0\n"));
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Size, AMissingPluginAddsThePreviousAnswerAgain) {
  // Kept: the captured answer is not cleared between services.
  add("10-siteHost.plist", "siteHost", "total := 4096\ntotal := 1024\n");
  root.writeDescriptor("20-postHost.plist", descriptorOf("postHost", "/opt/missing"));
  EXPECT_EQ(root.run(kSize).out, "total := 10\n");
}

TEST_F(Size, APluginThatIsNotExecutableIsMissingToo) {
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  root.writeFile("/opt/plain", "echo 'total := 1'\n");
  root.makeFolder("/opt/folder");
  root.writeDescriptor("20-postHost.plist", descriptorOf("postHost", "/opt/plain"));
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/folder"));
  EXPECT_EQ(root.run(kSize).out, "total := 12\n");
}

TEST_F(Size, ASilentPluginClearsThePreviousAnswer) {
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  add("20-postHost.plist", "postHost", "");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/missing"));
  EXPECT_EQ(root.run(kSize).out, "total := 4\n");
}

TEST_F(Size, APluginThatCannotBeStartedAfterAllLeavesAnEmptyAnswer) {
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  root.writeFile("/opt/odd", "#!/no/such/shell\n", 0755);
  root.writeDescriptor("20-postHost.plist", descriptorOf("postHost", "/opt/odd"));
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/missing"));
  EXPECT_EQ(root.run(kSize).out, "total := 4\n");
}

TEST_F(Size, AnEntryThatIsGoneKeepsThePreviousService) {
  // A dangling link: the service before it stays in force and is asked again.
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  root.makeLink("/private/etc/halyard/20-gone.plist", "/nowhere");
  EXPECT_EQ(root.run(kSize).out, "total := 8\n");
  EXPECT_EQ(root.calls().size(), 2U);
}

TEST_F(Size, AnUnreadableDescriptorIsASkippedNamelessService) {
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  root.writeFile("/private/etc/halyard/20-odd.plist", "no list");
  EXPECT_THAT(root.run(kSize, kDebug).out,
              HasSubstr("20-odd.plist\nServiceName := (null)\nSkipping size calculation for "
                        "ServiceName := (null) because it is disabled.\n"));
  EXPECT_EQ(root.run(kSize).out, "total := 4\n");
}

TEST_F(Size, VerboseEchoesTheConfigurationFolder) {
  EXPECT_EQ(root.run(kSize, {{"VERBOSE", ""}}).out,
            "Halyard was called.\nHALYARD_CONF := /private/etc/halyard\ntotal := 0\n");
}

TEST_F(Size, AnAnswerWithoutEndCostsNoTime) {
  root.writeScript("/opt/long",
                   "printf 'total := 4096'; head -c 20000000 /dev/zero; echo; "
                   "echo; echo 'total := 1024'");
  root.writeDescriptor("10-siteHost.plist", descriptorOf("siteHost", "/opt/long"));
  EXPECT_EQ(root.run(kSize).out, "total := 5\n");
}

TEST_F(Size, ABackupMeasuresTheVolumeThroughThePipeline) {
  add("10-siteHost.plist", "siteHost", "total := 1048576\n");
  writeDiskUsage("2000");
  const auto result = root.run(kBackup, kDebug);
  EXPECT_THAT(result.out, HasSubstr("sourceVolume := /\ntotalRequired := 1048576\n"
                                    "IMAGE_VOLUME_FREE_SPACE := 2048000\n"
                                    "We have enough room for a backup. := -49152\n"
                                    "size := 1048576\nslush := 1048576\n"));
  EXPECT_THAT(result.out, HasSubstr("SPARSE_IMAGE_SIZE := 2000\n"));
  EXPECT_THAT(root.calls(), testing::Contains("/bin/df|-k|/").Times(2));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(Size, TheShellGetsTheFixedCommandLine) {
  root.remove("/bin/sh");
  // A program that records its words, and no shell script: the shell itself is replaced.
  root.makeLink("/bin/sh", "/usr/bin/echo");
  const auto result = root.run(kBackup, kDebug);
  EXPECT_THAT(result.out, HasSubstr("SPARSE_IMAGE_SIZE := -c " + std::string(kPipeline) + "\n"));
  EXPECT_THAT(result.err, HasSubstr("] args := "));
  EXPECT_THAT(result.err, HasSubstr(kPipeline));
}

TEST_F(Size, AHugeVolumeSaturatesBeforeTheMultiplication) {
  writeDiskUsage("9999999999");
  const auto result = root.run(kBackup, kDebug);
  EXPECT_THAT(result.out, HasSubstr("IMAGE_VOLUME_FREE_SPACE := 2199023254528\n"));
  EXPECT_THAT(result.out, HasSubstr("SPARSE_IMAGE_SIZE := 9999999999\n"));
}

TEST_F(Size, AFailingPipelineMeasuresNothing) {
  root.remove("/bin/df");
  const auto result = root.run(kBackup, kDebug);
  EXPECT_THAT(result.out, HasSubstr("IMAGE_VOLUME_FREE_SPACE := 0\n"
                                    "We have enough room for a backup. := 0\n"));
  EXPECT_THAT(result.out, HasSubstr("SPARSE_IMAGE_SIZE := \n"));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(Size, ABackupDoesNotPrintTheTotal) {
  add("10-siteHost.plist", "siteHost", "total := 4096\n");
  EXPECT_THAT(root.run(kBackup).out, Not(HasSubstr("total := ")));
}

}  // namespace
}  // namespace halyard::test

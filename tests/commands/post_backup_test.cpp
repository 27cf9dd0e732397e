// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The postBackupComplete command, and the comparison of volumes that a restore makes.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kDiskInfo = "/.Halyards/ServerSourceDiskInfo.plist";
constexpr const char* kCopy = "/tmp/ServerSourceDiskInfo.plist";
const std::vector<std::string> kComplete{"-cmd", "postBackupComplete"};
const std::vector<std::string> kRestore{"-cmd", "restore", "-path", "/snapshot", "-target", "/"};

std::string report(const std::string& identifier) {
  return plistDocument("<dict><key>VolumeUUID</key><string>" + identifier + "</string></dict>");
}

class PostBackup : public PrivateRootTest {};

TEST_F(PostBackup, RemovesTheFolderOfABackup) {
  root.run({"-cmd", "backup", "-source", "/"});
  root.writeFile("/.Halyards/service/deep/er/file", "x", 0400);
  const auto result = root.run(kComplete);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(PostBackup, TwiceDoesNothingMore) {
  root.makeFolder("/.Halyards");
  root.run(kComplete);
  const auto result = root.run(kComplete);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(PostBackup, APlainFileStays) {
  root.writeFile("/.Halyards", "plain");
  EXPECT_EQ(root.run(kComplete).status, 0);
  EXPECT_EQ(root.readFile("/.Halyards"), "plain");
}

TEST_F(PostBackup, ALinkIsRemovedAndNotWhatItLeadsTo) {
  root.writeFile("/precious/file", "x");
  root.makeLink("/.Halyards", "/precious");
  root.run(kComplete);
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_THAT(root.list("/precious"), ElementsAre("file"));
}

TEST_F(PostBackup, LinksInsideAreNotFollowed) {
  root.writeFile("/precious/file", "x");
  root.makeFolder("/.Halyards");
  root.makeLink("/.Halyards/link", "/precious");
  root.run(kComplete);
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_THAT(root.list("/precious"), ElementsAre("file"));
}

class VolumeComparison : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (!IsSkipped()) root.makeFolder("/snapshot");
  }

  // What a restore under debug says of the two volumes.
  void expectAnswer(const std::string& answer) {
    const auto result = root.run(kRestore, {{"DEBUG", ""}});
    for (const char* word : {"Different.", "Not Different!"}) {
      if (answer == word) {
        EXPECT_THAT(result.out, HasSubstr(std::string("\n") + word + "\n"));
      } else {
        EXPECT_THAT(result.out, Not(HasSubstr(std::string("\n") + word + "\n")));
      }
    }
    root.remove("/private/var/run/HalyardRunning.pid");
  }
};

TEST_F(VolumeComparison, AnotherIdentifierIsDifferent) {
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("B");
  expectAnswer("Different.");
}

TEST_F(VolumeComparison, TheSameIdentifierIsNot) {
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("A");
  expectAnswer("Not Different!");
}

TEST_F(VolumeComparison, LetterCaseMakesADifference) {
  root.writeFile(kDiskInfo, report("a"));
  root.setVolumeIdentifier("A");
  expectAnswer("Different.");
}

TEST_F(VolumeComparison, WithoutARecordNothingIsKnown) {
  expectAnswer("Not Different!");
  EXPECT_THAT(root.readFile(kCopy), HasSubstr("<key>VolumeUUID</key>"));
}

TEST_F(VolumeComparison, ARecordThatCannotBeReadIsNone) {
  for (const std::string& content :
       {std::string(), std::string("no list"), plistDocument("<array/>"),
        plistDocument("<dict><key>VolumeUUID</key><integer>1</integer></dict>"),
        plistDocument("<dict><key>volumeuuid</key><string>A</string></dict>")}) {
    root.writeFile(kDiskInfo, content);
    expectAnswer("Not Different!");
  }
}

TEST_F(VolumeComparison, WithoutTheVolumeToolNothingIsKnown) {
  root.writeFile(kDiskInfo, report("A"));
  root.remove("/usr/sbin/drivectl");
  expectAnswer("Not Different!");
  EXPECT_EQ(root.readFile(kCopy), "");
}

TEST_F(VolumeComparison, TheCopyHoldsTheReportByteForByte) {
  root.writeFile(kDiskInfo, report("A"));
  root.writePlugin("/usr/sbin/drivectl", "printf 'x\\000y'; exit 5");
  expectAnswer("Not Different!");
  EXPECT_EQ(root.readFile(kCopy), std::string("x\0y", 3));
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/drivectl|info|-plist|/"));
}

TEST_F(VolumeComparison, APlantedLinkIsReplacedAndNotFollowed) {
  root.writeFile("/precious", "x");
  root.makeLink(kCopy, "/precious");
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("B");
  expectAnswer("Different.");
  EXPECT_EQ(root.readFile("/precious"), "x");
  EXPECT_THAT(root.readFile(kCopy), HasSubstr("<string>B</string>"));
}

TEST_F(VolumeComparison, APlantedFifoIsNeverWaitedFor) {
  root.runProgram("/usr/bin/mkfifo", {kCopy});
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("B");
  expectAnswer("Different.");
}

TEST_F(VolumeComparison, APlantedFolderDoesNotHideTheBootedVolume) {
  root.makeFolder(std::string(kCopy) + "/full");
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("B");
  expectAnswer("Different.");
}

TEST_F(VolumeComparison, ItsEndLineHasOneBlank) {
  root.writeFile(kDiskInfo, report("A"));
  root.setVolumeIdentifier("A");
  const std::string dashes(55, '-');
  const auto result = root.run(kRestore, {{"FUNCLOG", ""}});
  EXPECT_THAT(result.out,
              HasSubstr("\nStart isBootedSystemsUUIDDiffentThanSource" + dashes +
                        "+\nEnd isBootedSystemsUUIDDiffentThanSource" + dashes + "+\n"));
}

}  // namespace
}  // namespace halyard::test

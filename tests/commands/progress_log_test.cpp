// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The progress log: its records, their form, and what becomes of it during a run.
#include <gmock/gmock.h>

#include <ctime>
#include <regex>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr const char* kLog = "/private/var/log/halyard/server_progress.log";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

class ProgressLog : public PrivateRootTest {
 protected:
  void addService(const std::string& name, const std::string& body) {
    root.writePlugin("/opt/plugin", body);
    root.writeDescriptor("10-x.plist", descriptorOf(name, "/opt/plugin"));
  }

  // The log with each date replaced.
  std::string undated() const {
    static const std::regex date("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000\n");
    return std::regex_replace(root.readFile(kLog), date, "<date>\n");
  }
};

TEST_F(ProgressLog, ABackupLeavesEveryRecordAfterItsStart) {
  addService("siteHost", "");
  root.run(kBackup);
  EXPECT_EQ(undated(),
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Calling service pre-backup items...\n"
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Calling service backup binary...\n"
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Calling service post-backup items...\n"
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Service backup binary done.\n"
            "<date>\n## PROGRESS :: Halyard :: Creating server boot disk info file...\n"
            "<date>\n## PROGRESS :: Halyard :: Server boot disk info file creation done.\n"
            "<date>\n## PROGRESS :: Halyard :: Writting backup signature...\n"
            "<date>\n## PROGRESS :: Halyard :: Backup signature writing done.\n"
            "<date>\n## PROGRESS :: Halyard :: Done.\n");
}

TEST_F(ProgressLog, SizeLeavesItsTwoRecordsAService) {
  addService("siteHost", "");
  root.run({"-cmd", "size"});
  EXPECT_EQ(undated(),
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Calculating size requirements for "
            "backup...\n"
            "<date>\n## PROGRESS :: Halyard :: siteHost :: Size requirements calculation for "
            "backup done.\n");
}

TEST_F(ProgressLog, DatesAreUniversalTimeWhateverTheZone) {
  addService("siteHost", "");
  const std::time_t before = std::time(nullptr);
  root.run({"-cmd", "size"}, {{"TZ", "UTC-14"}, {"LC_ALL", "de_DE.UTF-8"}});
  std::tm date{};
  const std::string text = root.readFile(kLog);
  ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S +0000\n", &date), nullptr) << text;
  EXPECT_GE(timegm(&date), before);
  EXPECT_LE(timegm(&date), std::time(nullptr));
}

TEST_F(ProgressLog, TheProgressVariableChangesNothing) {
  addService("siteHost", "");
  root.run({"-cmd", "size"}, {{"PROGRESS", "0"}});
  EXPECT_EQ(root.progressMessages().size(), 2U);
}

TEST_F(ProgressLog, OfAnotherSourceKeepsTheStartRecord) {
  root.run({"-cmd", "backup", "-source", "/Volumes/Backup"});
  EXPECT_EQ(undated(),
            "<date>\n## PROGRESS :: Halyard :: Starting...\n"
            "<date>\n## PROGRESS :: Halyard :: Done.\n");
}

TEST_F(ProgressLog, StartsAfreshWithEachSizeRun) {
  root.writeFile(kLog, "old\n", 0600);
  root.run({"-cmd", "size"});
  EXPECT_EQ(root.readFile(kLog), "");
  EXPECT_EQ(root.modeOf(kLog), 0600U);
}

TEST_F(ProgressLog, IsMadeWithMode0770WhateverTheUmask) {
  RunOptions options;
  options.umask = 077;
  root.run({"-cmd", "size"}, {}, options);
  EXPECT_EQ(root.modeOf(kLog), 0770U);
}

TEST_F(ProgressLog, AMissingFolderIsMadeWithMode0770) {
  root.remove("/private/var/log");
  EXPECT_EQ(root.run({"-cmd", "size"}).status, 0);
  EXPECT_EQ(root.modeOf("/private/var/log/halyard"), 0770U);
  EXPECT_EQ(root.readFile(kLog), "");
}

TEST_F(ProgressLog, TheFolderIsMadeByMkdir) {
  root.remove("/private/var/log/halyard");
  root.remove("/bin/mkdir");
  root.writePlugin("/bin/mkdir");
  root.run({"-cmd", "size"});
  EXPECT_THAT(root.calls(), ElementsAre("/bin/mkdir|-p|-m|0770|/private/var/log/halyard"));
}

TEST_F(ProgressLog, AnExistingFolderIsNotMadeAgain) {
  root.remove("/bin/mkdir");
  root.writePlugin("/bin/mkdir");
  root.run({"-cmd", "size"});
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(ProgressLog, APlainFileInThePlaceOfTheFolderIsLeftAlone) {
  root.remove("/private/var/log/halyard");
  root.writeFile("/private/var/log/halyard", "plain");
  root.remove("/bin/mkdir");
  root.writePlugin("/bin/mkdir");
  const auto result = root.run({"-cmd", "size"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "total := 0\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(root.readFile("/private/var/log/halyard"), "plain");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(ProgressLog, AFolderInItsPlaceFailsNoCommand) {
  root.makeFolder(kLog);
  addService("siteHost", "echo 'total := 2048'");
  EXPECT_EQ(root.run({"-cmd", "size"}).out, "total := 2\n");
  EXPECT_THAT(root.run(kBackup).status, 0);
}

TEST_F(ProgressLog, AFifoInItsPlaceIsNeverWaitedFor) {
  root.runProgram("/usr/bin/mkfifo", {kLog});
  EXPECT_EQ(root.run({"-cmd", "size"}).out, "total := 0\n");
}

TEST_F(ProgressLog, ARemovedLogIsNotMadeAgainDuringTheRun) {
  addService("siteHost", "[ \"$2\" = backup ] && rm /private/var/log/halyard/server_progress.log");
  EXPECT_EQ(root.run(kBackup).status, 0);
  EXPECT_FALSE(root.exists(kLog));
}

TEST_F(ProgressLog, AReplacedLogKeepsItsFile) {
  addService("siteHost",
             "cd /private/var/log/halyard; [ \"$2\" = backup ] && mv server_progress.log 1 && "
             "echo new >server_progress.log");
  root.run(kBackup);
  EXPECT_EQ(root.readFile(kLog), "new\n");
  EXPECT_THAT(root.readFile("/private/var/log/halyard/1"),
              HasSubstr("## PROGRESS :: Halyard :: Done.\n"));
}

TEST_F(ProgressLog, RecordsGoToTheCurrentEnd) {
  addService("siteHost", "echo mine >>/private/var/log/halyard/server_progress.log");
  root.run(kBackup);
  EXPECT_THAT(undated(), HasSubstr("siteHost :: Calling service backup binary...\nmine\n<date>\n"
                                   "## PROGRESS :: Halyard :: siteHost :: Calling service "
                                   "post-backup items...\n"));
}

TEST_F(ProgressLog, ALogThatIsEmptiedDuringTheRunGoesOnAtItsStart) {
  addService("siteHost", "[ \"$2\" = backup ] && : >/private/var/log/halyard/server_progress.log");
  root.run(kBackup);
  EXPECT_THAT(undated(), StartsWith("<date>\n## PROGRESS :: Halyard :: siteHost :: Calling "
                                    "service post-backup items...\n"));
}

TEST_F(ProgressLog, ARecordWithLettersOutsideAsciiLosesItsLastBytes) {
  // Kept: two letters of two bytes each, so the last two bytes are not written.
  addService("d\xC3\xA9p\xC3\xB4t", "");
  root.run(kBackup);
  EXPECT_THAT(undated(),
              StartsWith("<date>\n## PROGRESS :: Halyard :: d\xC3\xA9p\xC3\xB4t :: Calling "
                         "service pre-backup items..<date>\n## PROGRESS"));
}

TEST_F(ProgressLog, PlainCommandsLeaveItAlone) {
  root.writeFile(kLog, "old\n");
  for (const char* command : {"help", "version", "services", "prefs", "postBackupComplete", "list",
                              "listVerbose", "nonsense"})
    root.run({"-cmd", command});
  EXPECT_EQ(root.readFile(kLog), "old\n");
}

TEST_F(ProgressLog, ARestoreAttemptMarkerAddsAnErrorRecord) {
  root.writeFile("/.Halyards/restoreWasAttempted", "");
  root.writeFile(kLog, "");
  const auto result = root.run({"-cmd", "restore", "-path", "/", "-target", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(undated(), "<date>\n## ERROR :: Halyard :: Restore failed.\n");
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(ProgressLog, WithoutALogARestoreFailureLeavesNoRecord) {
  root.writeFile("/.Halyards/restoreWasAttempted", "");
  EXPECT_EQ(root.run({"-cmd", "restore", "-path", "/", "-target", "/"}).status, 0);
  EXPECT_FALSE(root.exists(kLog));
}

}  // namespace
}  // namespace halyard::test

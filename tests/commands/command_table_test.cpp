// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Every row of the command table: word counts, preconditions, what is called, exit statuses.
#include <gmock/gmock.h>

#include "commands/usage_text.h"
#include "support/private_root.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
constexpr const char* kImageMissing = "Image path for browing does not exist.\n";

// A command line of `count` words, the program's name among them.
Words padded(Words words, std::size_t count) {
  while (words.size() + 1 < count) words.insert(words.end(), {"-x", "y"});
  return words;
}

class Table : public PrivateRootTest {
 protected:
  void expectWrongCount(const std::string& command, std::set<std::size_t> allowed) {
    for (const std::size_t count : {3U, 5U, 7U, 9U, 11U, 13U}) {
      if (allowed.contains(count)) continue;
      const auto result = root.run(padded({"-cmd", command}, count));
      EXPECT_EQ(result.status, 0) << command << ' ' << count;
      EXPECT_EQ(result.out,
                "Wrong number of parameters for " + command + ".\n" + std::string(kUsageText))
          << command << ' ' << count;
      EXPECT_EQ(result.err, "");
      EXPECT_FALSE(root.exists(kPidFile)) << command << ' ' << count;
    }
  }

  // Whether the operation ran, told by its function-log line.
  bool runs(const Words& words, const std::string& operation) {
    const auto lines = functionSteps(root.run(words, {{"FUNCLOG", ""}}));
    return std::find(lines.begin(), lines.end(), "Start " + operation) != lines.end();
  }
};

TEST_F(Table, BackupTakesFiveWords) { expectWrongCount("backup", {5}); }
TEST_F(Table, BrowseTakesSevenOrNineWords) { expectWrongCount("Browse", {7, 9}); }
TEST_F(Table, HelpTakesThreeWords) { expectWrongCount("help", {3}); }
TEST_F(Table, ListTakesThreeOrFiveWords) { expectWrongCount("list", {3, 5}); }
TEST_F(Table, ListVerboseTakesThreeOrFiveWords) { expectWrongCount("listVerbose", {3, 5}); }
TEST_F(Table, PostBackupCompleteTakesThreeWords) { expectWrongCount("postBackupComplete", {3}); }
TEST_F(Table, PrefsTakesThreeWords) { expectWrongCount("PREFS", {3}); }
TEST_F(Table, PurgeSnapShotTakesFiveWords) { expectWrongCount("purgeSnapShot", {5}); }
TEST_F(Table, RestoreTakesSevenWords) { expectWrongCount("restore", {7}); }
TEST_F(Table, ServicesTakesThreeWords) { expectWrongCount("services", {3}); }
TEST_F(Table, SizeTakesThreeWords) { expectWrongCount("size", {3}); }
TEST_F(Table, VersionTakesThreeWords) { expectWrongCount("version", {3}); }
TEST_F(Table, VerifyTakesSevenWords) { expectWrongCount("verify", {7}); }

TEST_F(Table, RestoreServiceTellsItsWrongWordCount) {
  for (const std::size_t count : {3U, 5U, 13U}) {
    const auto result = root.run(padded({"-cmd", "RestoreService"}, count));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Wrong number of parameters for RestoreService. " +
                              std::to_string(count) + "\n" + kUsageText);
    EXPECT_FALSE(root.exists(kPidFile));
  }
}

TEST_F(Table, RestoreServiceTakesSevenNineElevenOrTwelveWords) {
  Words words{"-cmd", "restoreService", "-path", "/nowhere", "-service", "siteHost"};
  for (const Words& more : {Words{}, Words{"-target", "/"}, Words{"-opt", "a"}, Words{"b"}}) {
    words.insert(words.end(), more.begin(), more.end());
    const auto result = root.run(words);
    EXPECT_EQ(result.status, 1) << words.size() + 1;
    EXPECT_EQ(result.out, kImageMissing) << words.size() + 1;
    root.remove(kPidFile);
  }
}

TEST_F(Table, AnUnknownCommandPrintsUsageAndEndsWithStatusZero) {
  for (const std::size_t count : {3U, 5U, 13U}) {
    const auto result = root.run(padded({"-cmd", "backups"}, count));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string("Legal options were not supplied!\n") + kUsageText);
  }
}

TEST_F(Table, AnEmptyCommandWordIsUnknown) {
  const auto result = root.run({"-cmd", ""});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, std::string("Legal options were not supplied!\n") + kUsageText);
}

TEST_F(Table, LettersOutsideAsciiDoNotFold) {
  EXPECT_THAT(root.run({"-cmd", "l\xC4\xB0st"}).out,
              StartsWith("Legal options were not supplied!\n"));
}

TEST_F(Table, EachCommandCallsItsOperation) {
  root.makeFolder("/there");
  EXPECT_TRUE(runs({"-cmd", "BACKUP", "-source", "/"}, "Backup"));
  EXPECT_TRUE(runs({"-cmd", "BROWSE", "-path", "/there", "-service", "x"}, "Browse"));
  EXPECT_TRUE(runs({"-cmd", "BROWSE", "-path", "/there", "-service", "x", "-opt", "y"}, "Browse"));
  EXPECT_TRUE(runs({"-cmd", "HELP"}, "Usage"));
  EXPECT_TRUE(runs({"-cmd", "LIST"}, "List"));
  EXPECT_TRUE(runs({"-cmd", "LIST", "-path", "/there"}, "List"));
  EXPECT_TRUE(runs({"-cmd", "LISTVERBOSE"}, "ListVerbose"));
  EXPECT_TRUE(runs({"-cmd", "LISTVERBOSE", "-path", "/there"}, "ListVerbose"));
  EXPECT_TRUE(runs({"-cmd", "POSTBACKUPCOMPLETE"}, "PostBackupComplete"));
  EXPECT_TRUE(runs({"-cmd", "PURGESNAPSHOT", "-path", "/there"}, "PurgeSnapShot"));
  EXPECT_TRUE(runs({"-cmd", "RESTORE", "-path", "/there", "-target", "/"}, "Restore"));
  EXPECT_TRUE(
      runs({"-cmd", "RESTORESERVICE", "-path", "/there", "-target", "/", "-service", "siteHost"},
           "RestoreService"));
  EXPECT_TRUE(runs({"-cmd", "SERVICES"}, "Services"));
  EXPECT_TRUE(runs({"-cmd", "SIZE"}, "SizeRequired"));
  EXPECT_TRUE(runs({"-cmd", "VERSION"}, "Version"));
  EXPECT_TRUE(runs({"-cmd", "VERIFY", "-path", "/there", "-service", "x"}, "Verify"));
}

TEST_F(Table, PrefsIsCalledOnceMoreByItsCommand) {
  const auto lines = functionSteps(root.run({"-cmd", "prefs"}, {{"FUNCLOG", ""}}));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Start Prefs"), 2);
}

TEST_F(Table, BackupWithoutASourceDoesNothing) {
  const auto result = root.run({"-cmd", "backup", "-target", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Table, BackupOfAMissingSourceEndsWithUsageAndStatusZero) {
  const auto result = root.run({"-cmd", "backup", "-source", "/Volumes/Gone"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            std::string("Source volume /Volumes/Gone for backup does not exist.\n") + kUsageText);
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Table, BackupThatIsNotEnabledEndsWithStatusOneAndWithoutPidFile) {
  root.writeEnginePreferences(0, "/Volumes/Backup");
  const auto result = root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Backups are not enabled or no services are enabled for backup!\n");
  EXPECT_FALSE(root.exists(kPidFile));
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(Table, BackupWithoutAnyServiceEntryIsNotEnabled) {
  root.writePreferences({{"otherHost", 1}});
  const auto result = root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Backups are not enabled or no services are enabled for backup!\n");
}

TEST_F(Table, BackupMeasuresTheRoomFirst) {
  const auto lines = functionSteps(root.run({"-cmd", "backup", "-source", "/"}, {{"FUNCLOG", ""}}));
  const auto room = std::find(lines.begin(), lines.end(), "End   haveRoomForBackup");
  const auto backup = std::find(lines.begin(), lines.end(), "Start Backup");
  EXPECT_LT(room, backup);
  EXPECT_NE(backup, lines.end());
}

TEST_F(Table, BrowseWithoutAPathDoesNothing) {
  const auto result = root.run({"-cmd", "browse", "-service", "all", "-x", "y"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(Table, BrowseOfAMissingPathEndsWithStatusTwo) {
  const auto result = root.run({"-cmd", "browse", "-path", "/gone", "-service", "all"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "Snapshot path for browing does not exist.\n");
}

TEST_F(Table, BrowseOfAFileEndsWithStatusTwo) {
  root.writeFile("/plain", "");
  const auto result = root.run({"-cmd", "browse", "-path", "/plain", "-service", "all"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "Snapshot path for browing does not exist.\n");
}

TEST_F(Table, RestoreWithoutAPathDoesNothingButItsPidFile) {
  const auto result = root.run({"-cmd", "restore", "-target", "/", "-service", "all"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Table, RestoreOfAMissingPathLeavesThePidFile) {
  const auto result = root.run({"-cmd", "restore", "-path", "/gone", "-target", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, kImageMissing);
  EXPECT_THAT(root.readFile(kPidFile), EndsWith(" :: restore\n"));
  EXPECT_EQ(root.run({"-cmd", "services"}).status, 37);
}

TEST_F(Table, RestoreServiceWithoutAPathDoesNothing) {
  const auto result = root.run({"-cmd", "restoreService", "-target", "/", "-service", "none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Table, RestoreServiceOfAMissingPathLeavesThePidFile) {
  const auto result =
      root.run({"-cmd", "restoreService", "-path", "/gone", "-service", "siteHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, kImageMissing);
  EXPECT_THAT(root.readFile(kPidFile), EndsWith(" :: restoreService\n"));
}

TEST_F(Table, RestoreServiceOfAnUnknownServiceLeavesThePidFile) {
  const auto result = root.run({"-cmd", "restoreService", "-path", "/", "-service", "SiteHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Service supplied for restore (SiteHost) is not recognized.\n");
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST_F(Table, RestoreServiceWithoutAServiceShowsNull) {
  const auto result = root.run({"-cmd", "restoreService", "-path", "/", "-target", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Service supplied for restore ((null)) is not recognized.\n");
}

TEST_F(Table, VerifyWithoutAPathDoesNothing) {
  const auto result = root.run({"-cmd", "verify", "-service", "siteHost", "-x", "y"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Table, VerifyOfAMissingPathLeavesThePidFile) {
  const auto result = root.run({"-cmd", "verify", "-path", "/gone", "-service", "siteHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "Image path for verifying does not exist.\n");
  EXPECT_THAT(root.readFile(kPidFile), EndsWith(" :: verify\n"));
}

TEST_F(Table, AWrongWordCountOfAPidFileCommandLeavesNone) {
  for (const char* command : {"backup", "restore", "restoreService", "verify"}) {
    const auto lines = functionSteps(root.run({"-cmd", command}, {{"FUNCLOG", ""}}));
    EXPECT_THAT(lines, Contains("Start setPidForProcess")) << command;
    EXPECT_FALSE(root.exists(kPidFile)) << command;
  }
}

TEST_F(Table, TheResultOfPurgeSnapShotIsTheExitStatus) {
  EXPECT_EQ(root.run({"-cmd", "purgeSnapShot", "-path", "/nowhere"}).status, 74);
}

}  // namespace
}  // namespace halyard::test

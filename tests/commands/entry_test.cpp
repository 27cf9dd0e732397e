// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// From the words on the command line to the dispatcher, whatever the command.
#include <gmock/gmock.h>

#include "commands/usage_text.h"
#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";

const std::string kWrongCount = std::string("Wrong number of parameters supplied.\n") + kUsageText;

class Entry : public PrivateRootTest {
 protected:
  void expectRefused(const std::vector<std::string>& words) {
    const auto result = root.run(words);
    EXPECT_EQ(result.status, 1) << words.size();
    EXPECT_EQ(result.out, kWrongCount) << words.size();
    EXPECT_EQ(result.err, "") << words.size();
  }
};

TEST_F(Entry, NoWordsAtAllAreTheWrongNumber) { expectRefused({}); }

TEST_F(Entry, EachOtherWordCountIsRefusedEvenForAValidCommand) {
  std::vector<std::string> words{"-cmd"};
  expectRefused(words);  // Two words with the program's name.
  words.insert(words.end(), {"version", "-a"});
  expectRefused(words);  // Four.
  words.insert(words.end(), {"b", "-c"});
  expectRefused(words);  // Six.
  words.insert(words.end(), {"d", "-e"});
  expectRefused(words);  // Eight.
  words.insert(words.end(), {"f", "-g"});
  expectRefused(words);  // Ten.
  words.insert(words.end(), {"h", "-i", "j", "-k"});
  expectRefused(words);  // Fourteen.
  words.emplace_back("l");
  expectRefused(words);  // Fifteen.
}

TEST_F(Entry, AllowedWordCountsReachTheDispatcher) {
  root.writeDescriptor("45-hostProfile.plist", DescriptorText().text("Version", "x"));
  for (const std::size_t count : {5U, 7U, 9U, 11U, 13U}) {
    std::vector<std::string> words{"-cmd", "version"};
    while (words.size() + 1 < count) words.insert(words.end(), {"-x", "y"});
    const auto result = root.run(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string("Wrong number of parameters for version.\n") + kUsageText);
  }
}

TEST_F(Entry, TwelveWordsWithoutOptAsTheTenthAreTheWrongNumber) {
  expectRefused({"-cmd", "restoreService", "-path", "/", "-target", "/", "-service", "siteHost",
                 "-a", "b", "-c"});
  expectRefused({"-cmd", "restoreService", "-path", "/", "-target", "/", "-service", "siteHost",
                 "-OPT", "a", "b"});
}

TEST_F(Entry, TwelveWordsWithOptAsTheTenthReachTheDispatcher) {
  const auto result = root.run(
      {"-cmd", "version", "-path", "/", "-target", "/", "-service", "siteHost", "-opt", "a", "b"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, StartsWith("Wrong number of parameters for version.\n"));
}

TEST_F(Entry, UnderDebugARefusedWordListIsDumped) {
  const auto result = root.run({"-cmd", "version", "third"}, {{"DEBUG", ""}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("-cmd"));
  EXPECT_THAT(result.err, HasSubstr("version"));
  EXPECT_THAT(result.err, HasSubstr("third"));
  EXPECT_THAT(linesOf(result.err).size(), testing::Ge(3U));
}

TEST_F(Entry, APidFileStopsEveryCommand) {
  root.writeFile(kPidFile, "");
  for (const char* command : {"backup", "browse", "help", "list", "listVerbose",
                              "postBackupComplete", "prefs", "purgeSnapShot", "restore",
                              "restoreService", "services", "size", "version", "verify", "other"}) {
    const auto result = root.run({"-cmd", command});
    EXPECT_EQ(result.status, 37) << command;
    EXPECT_EQ(result.out, "Backup process is already running.\n") << command;
    EXPECT_EQ(result.err, "") << command;
  }
  EXPECT_EQ(root.readFile(kPidFile), "");
}

TEST_F(Entry, AFolderInThePlaceOfThePidFileStopsThemToo) {
  root.makeFolder(kPidFile);
  EXPECT_EQ(root.run({"-cmd", "services"}).status, 37);
}

TEST_F(Entry, TheWordCountIsTestedBeforeThePidFile) {
  root.writeFile(kPidFile, "1 :: backup\n");
  expectRefused({"-cmd", "list", "more"});
}

TEST_F(Entry, ThePidFileIsTestedBeforeTheSetupMarker) {
  root.writeFile(kPidFile, "1 :: backup\n");
  root.remove("/private/var/db/.VantorSetupDone");
  EXPECT_EQ(root.run({"-cmd", "services"}).status, 37);
}

TEST_F(Entry, NothingHappensUntilSetupIsDone) {
  root.remove("/private/var/db/.VantorSetupDone");
  for (const char* command : {"help", "version", "prefs", "services", "Backup", "nonsense"}) {
    const auto result = root.run({"-cmd", command});
    EXPECT_EQ(result.status, 1) << command;
    EXPECT_EQ(result.out,
              "WARNING: The server is not setup so there are no actions to be performed until "
              "setup is complete.\n");
  }
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Entry, CommandWordsMatchInAnyCase) {
  root.writePreferences({{"siteHost", 1}});
  EXPECT_EQ(root.run({"-cmd", "SERVICES"}).out, "siteHost\n");
  EXPECT_EQ(root.run({"-cmd", "sErViCeS"}).out, "siteHost\n");
}

TEST_F(Entry, ListMatchesInAnyCase) {
  const auto lower = root.run({"-cmd", "list"});
  const auto upper = root.run({"-cmd", "LIST"});
  EXPECT_EQ(upper.out, lower.out);
  EXPECT_EQ(upper.status, 0);
  EXPECT_THAT(lower.out, Not(HasSubstr("Wrong number")));
}

TEST_F(Entry, AnOptionWordInAnotherCaseIsNoCommandAndActsAsBackup) {
  const auto result = root.run({"-Cmd", "list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, std::string("Wrong number of parameters for (null).\n") + kUsageText);
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Entry, WithoutACommandFiveWordsWithASourceStartABackup) {
  const auto result = root.run({"-source", "/", "-x", "y"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, StartsWith("*** nextPath := com.vantor.Halyard.plist\n"));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Entry, WithoutACommandThePidFileNamesNull) {
  root.writeScript("/usr/sbin/drivectl", "cat /private/var/run/HalyardRunning.pid >/seen");
  root.run({"-source", "/", "-x", "y"});
  EXPECT_THAT(root.readFile("/seen"), MatchesRegex("[0-9]+ :: \\(null\\)\n"));
}

TEST_F(Entry, ThePidFileHoldsTheIdentifierAndTheWordAsTyped) {
  // The plug-in's parent is the program itself.
  root.writeScript("/usr/sbin/drivectl",
                   "cat /private/var/run/HalyardRunning.pid >/seen; echo $PPID >/parent");
  root.run({"-cmd", "bAcKuP", "-source", "/"});
  const std::string parent = root.readFile("/parent");
  EXPECT_EQ(root.readFile("/seen"), parent.substr(0, parent.size() - 1) + " :: bAcKuP\n");
  EXPECT_FALSE(root.exists(kPidFile));
}

TEST_F(Entry, ReadOnlyCommandsWriteNoPidFile) {
  root.writeScript("/usr/sbin/helmsman",
                   "[ -e /private/var/run/HalyardRunning.pid ] && touch /seen");
  root.remove("/private/etc/halyard/com.vantor.Halyard.plist");
  root.makeFolder("/private/var/run", 0555);
  for (const char* command : {"services", "prefs", "size", "list", "listVerbose"})
    EXPECT_EQ(root.run({"-cmd", command}).status, 0);
  EXPECT_FALSE(root.exists("/seen"));
}

TEST_F(Entry, OptionPairsComeInAnyOrderAndTheLastOfAWordWins) {
  root.makeFolder("/there");
  EXPECT_EQ(root.run({"-source", "/nowhere", "-cmd", "Backup"}).out,
            std::string("Source volume /nowhere for backup does not exist.\n") + kUsageText);
  const auto result =
      root.run({"-path", "/nowhere", "-cmd", "browse", "-path", "/there", "-service", "none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr("Snapshot path")));
}

TEST_F(Entry, AnOptionValueThatLooksLikeAnOptionIsAValue) {
  EXPECT_EQ(root.run({"-cmd", "backup", "-source", "-cmd"}).out,
            std::string("Source volume -cmd for backup does not exist.\n") + kUsageText);
}

TEST_F(Entry, AnEmptySourceIsPresentAndDoesNotExist) {
  const auto result = root.run({"-cmd", "backup", "-source", ""});
  EXPECT_EQ(result.out, std::string("Source volume  for backup does not exist.\n") + kUsageText);
  EXPECT_EQ(result.status, 0);
}

TEST_F(Entry, VerboseSaysThatItWasCalledBeforeTheWordsAreCounted) {
  const auto result = root.run({}, {{"VERBOSE", "0"}});
  EXPECT_EQ(result.out, "Halyard was called.\n" + kWrongCount);
}

TEST_F(Entry, PreferencesAreRepairedOnEveryRunWhateverTheCommand) {
  root.remove("/Library/Preferences/com.vantor.Snapwheel.plist");
  root.writePlugin("/usr/sbin/helmsman");
  EXPECT_EQ(root.run({}).out, "Fixing up default prefs by calling plugin...done.\n" + kWrongCount);
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/helmsman|settings|backup"));
}

TEST_F(Entry, ARunningInstanceIsToldAfterTheRepair) {
  root.writeFile(kPidFile, "");
  root.remove("/Library/Preferences/com.vantor.Snapwheel.plist");
  EXPECT_EQ(root.run({"-cmd", "help"}).out,
            "Fixing up default prefs by calling plugin...done.\n"
            "Backup process is already running.\n");
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a backup does for each service: which take part, what is run, with which arguments.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};
const Environment kDebug{{"DEBUG", "1"}};
const std::vector<std::string> kSeven{"agendaHost", "parleyHost",  "rosterHost", "depotHost",
                                      "postHost",   "hostProfile", "siteHost"};

// Occurrences of a text.
std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

class BackupServices : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/plugin");
    root.writePlugin("/opt/pre");
    root.writePlugin("/opt/post");
    root.writePlugin("/opt/fail", "exit 5");
  }

  CommandResult backUp(const DescriptorText& descriptor, const Environment& environment = {}) {
    root.writeDescriptor("10-x.plist", descriptor);
    return root.run(kBackup, environment);
  }

  // Calls of a backup, without the size queries that come before it.
  std::vector<std::string> backupCalls() const {
    std::vector<std::string> calls = root.calls();
    std::erase_if(calls, [](const std::string& call) { return call.ends_with("|-opt|all"); });
    return calls;
  }
};

TEST_F(BackupServices, ThePluginGetsItsFolderAndLog) {
  backUp(descriptorOf("siteHost", "/opt/plugin"));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|size|-opt|all",
                                        "/opt/plugin|-cmd|backup|-path|/.Halyards/siteHost|-log|"
                                        "/private/var/log/halyard/siteHost.log"));
  EXPECT_TRUE(root.isFolder("/.Halyards/siteHost"));
  EXPECT_EQ(root.modeOf("/.Halyards/siteHost"), 0755U);
}

TEST_F(BackupServices, TheDefaultActionFollowsOpt) {
  backUp(descriptorOf("x", "/opt/plugin")
             .dictionary("BackupActions", {{"Other", "no"}, {"Default", "all files"}}));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|"
                                        "/private/var/log/halyard/x.log|-opt|all files"));
}

TEST_F(BackupServices, AnEmptyDefaultActionIsPresent) {
  backUp(descriptorOf("x", "/opt/plugin").dictionary("BackupActions", {{"Default", ""}}));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|"
                                        "/private/var/log/halyard/x.log|-opt|"));
}

TEST_F(BackupServices, ActionsWithoutADefaultGiveNoOpt) {
  backUp(descriptorOf("x", "/opt/plugin").dictionary("BackupActions", {{"default", "a"}}));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|"
                                        "/private/var/log/halyard/x.log"));
}

TEST_F(BackupServices, WithoutALogTheListGoesOnWithTheAction) {
  backUp(descriptorOf("x", "/opt/plugin")
             .without("BackupLog")
             .dictionary("BackupActions", {{"Default", "all"}}));
  EXPECT_THAT(root.calls(),
              ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|-opt|all"));
}

TEST_F(BackupServices, WithoutLogAndActionTheListEndsWithLog) {
  backUp(descriptorOf("x", "/opt/plugin").without("BackupLog"));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log"));
}

TEST_F(BackupServices, AnEmptyLogIsAnEmptyArgument) {
  backUp(descriptorOf("x", "/opt/plugin").text("BackupLog", ""));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|"));
}

TEST_F(BackupServices, AnAbsentNameShowsAsNull) {
  backUp(descriptorOf("x", "/opt/plugin").without("ServiceName"));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/(null)|-log|"
                                        "/private/var/log/halyard/x.log"));
  EXPECT_TRUE(root.isFolder("/.Halyards/(null)"));
}

TEST_F(BackupServices, AnEmptyNameIsTheMetadataFolderItself) {
  backUp(descriptorOf("x", "/opt/plugin").text("ServiceName", ""));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/plugin|-cmd|backup|-path|/.Halyards/|-log|"
                                        "/private/var/log/halyard/x.log"));
}

TEST_F(BackupServices, ANameIsJoinedAsText) {
  backUp(descriptorOf("../elsewhere", "/opt/plugin"));
  EXPECT_THAT(root.calls().back(),
              testing::StartsWith("/opt/plugin|-cmd|backup|-path|/.Halyards/../elsewhere|"));
  EXPECT_TRUE(root.isFolder("/elsewhere"));
}

TEST_F(BackupServices, OnlyAFlagOfZeroSkipsAKnownService) {
  root.writePreferences({{"agendaHost", 0},
                         {"parleyHost", 1},
                         {"rosterHost", 2},
                         {"depotHost", -1},
                         {"siteHost", 1}});  // "postHost" and "hostProfile" are absent.
  for (const std::string& service : kSeven)
    root.writeDescriptor("10-" + service + ".plist", descriptorOf(service, "/opt/plugin"));
  root.run(kBackup);
  EXPECT_THAT(root.list("/.Halyards"),
              ElementsAre(".halyardSignature", "ServerSourceDiskInfo.plist", "depotHost",
                          "master.browse.plist", "parleyHost", "rosterHost", "siteHost"));
}

TEST_F(BackupServices, AKnownNameInAnotherCaseIsUnknownAndSoAlwaysBackedUp) {
  root.writePreferences({{"siteHost", 0}});
  backUp(descriptorOf("SITEHOST", "/opt/plugin"));
  EXPECT_TRUE(root.isFolder("/.Halyards/SITEHOST"));
}

TEST_F(BackupServices, AnUnknownServiceIsBackedUpWhateverTheFlags) {
  root.writePreferences({{"siteHost", 0}, {"otherHost", 0}});
  backUp(descriptorOf("otherHost", "/opt/plugin"));
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(BackupServices, CommandsRunBeforeAndAfterThePluginInOrder) {
  backUp(descriptorOf("x", "/opt/plugin")
             .list("PreBackupServiceCommands", {"/opt/pre stop now", "/opt/pre  a "})
             .list("PostBackupServiceCommands", {"/opt/post", "/opt/post start"}));
  EXPECT_THAT(root.calls(), ElementsAre("/opt/pre|stop|now", "/opt/pre||a|",
                                        "/opt/plugin|-cmd|backup|-path|/.Halyards/x|-log|"
                                        "/private/var/log/halyard/x.log",
                                        "/opt/post", "/opt/post|start"));
}

TEST_F(BackupServices, CommandLinesKnowNoQuotes) {
  backUp(descriptorOf("x", "/opt/plugin")
             .list("PreBackupServiceCommands", {"/opt/pre 'a b' \"c\" $HOME ;x\ty"}));
  EXPECT_THAT(root.calls().front(), "/opt/pre|'a|b'|\"c\"|$HOME|;x\ty");
}

TEST_F(BackupServices, CommandLinesAreDumpedInEveryMode) {
  const auto result = backUp(descriptorOf("x", "/opt/plugin")
                                 .list("PreBackupServiceCommands", {"/opt/pre stop"})
                                 .list("PostBackupServiceCommands", {"/opt/post start"}));
  for (const char* part : {"/opt/pre", "stop", "/opt/post", "start"})
    EXPECT_THAT(result.err, HasSubstr(part));
}

TEST_F(BackupServices, AFailingPreBackupCommandIsNotReported) {
  const auto result =
      backUp(descriptorOf("x", "/opt/plugin").list("PreBackupServiceCommands", {"/opt/fail"}));
  EXPECT_THAT(result.err, Not(HasSubstr("Error in calling")));
}

TEST_F(BackupServices, AFailingPluginIsLoggedAndTheRunGoesOn) {
  const auto result =
      backUp(descriptorOf("x", "/opt/fail").list("PostBackupServiceCommands", {"/opt/post"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err,
              HasSubstr("] Error in calling backup command for service x, error :=5\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("Error in calling")));
  EXPECT_THAT(root.calls(), Contains("/opt/post"));
}

TEST_F(BackupServices, AFailingPostBackupCommandIsLogged) {
  const auto result = backUp(descriptorOf("x", "/opt/plugin")
                                 .list("PostBackupServiceCommands", {"/opt/fail", "/opt/post"}));
  EXPECT_THAT(result.err,
              HasSubstr("] Error in calling post-backup command for service x, error :=5\n"));
  EXPECT_EQ(count(result.err, "Error in calling"), 1U);
  EXPECT_THAT(root.calls().back(), "/opt/post");
}

TEST_F(BackupServices, AFailureIsReportedByEachPreBackupCommandOfTheNext) {
  root.writeDescriptor("10-a.plist", descriptorOf("a", "/opt/fail"));
  root.writeDescriptor("20-b.plist",
                       descriptorOf("b", "/opt/plugin")
                           .list("PreBackupServiceCommands", {"/opt/pre 1", "/opt/pre 2"}));
  const auto result = root.run(kBackup);
  EXPECT_EQ(count(result.err, "] Error in calling pre-backup command for service b, error :=5\n"),
            2U);
}

TEST_F(BackupServices, APostBackupCommandThatSucceedsClearsTheStatus) {
  root.writeDescriptor(
      "10-a.plist",
      descriptorOf("a", "/opt/fail").list("PostBackupServiceCommands", {"/opt/post"}));
  root.writeDescriptor(
      "20-b.plist",
      descriptorOf("b", "/opt/plugin").list("PreBackupServiceCommands", {"/opt/pre"}));
  EXPECT_THAT(root.run(kBackup).err, Not(HasSubstr("pre-backup command for")));
}

TEST_F(BackupServices, AFailingServiceDoesNotStopTheOthers) {
  root.writeDescriptor("10-a.plist", descriptorOf("a", "/opt/fail"));
  root.writeDescriptor("20-b.plist", descriptorOf("b", "/opt/plugin"));
  EXPECT_EQ(root.run(kBackup).status, 0);
  EXPECT_EQ(backupCalls().size(), 2U);
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(BackupServices, DebugShowsTheDescriptorAndTheCall) {
  root.writePlugin("/opt/plugin", "echo answer");
  const auto result = backUp(
      descriptorOf("x", "/opt/plugin").dictionary("BackupActions", {{"Default", "all"}}), kDebug);
  EXPECT_THAT(result.out, HasSubstr("*** nextPath := 10-x.plist\nnextPath := 10-x.plist\n"
                                    "serviceConfFilePath := /private/etc/halyard/10-x.plist\n"
                                    "tServiceName := x\n"
                                    "tBackupLog := /private/var/log/halyard/x.log\n"
                                    "tBackupBinaryPath := /opt/plugin\n"
                                    "tDefaultBackupAction := all\n"
                                    "pStr := /.Halyards/x\n"
                                    "ret of /opt/plugin := 0\n"));
  EXPECT_THAT(result.err, HasSubstr("answer"));
}

TEST_F(BackupServices, DebugShowsALongNameAlone) {
  root.writeDescriptor("10-a-rather-long-name.plist", descriptorOf("x", "/opt/plugin"));
  EXPECT_THAT(root.run(kBackup, kDebug).out,
              HasSubstr("*** nextPath := 10-a-rather-long-name.plist\n"
                        "10-a-rather-long-name.plist\n"
                        "serviceConfFilePath := /private/etc/halyard/"
                        "10-a-rather-long-name.plist\n"));
}

TEST_F(BackupServices, DebugLogsTheSevenFlagsForAServiceThatIsProcessed) {
  root.writePreferences({{"agendaHost", 1}, {"siteHost", 7}});
  const auto result = backUp(descriptorOf("x", "/opt/plugin"), kDebug);
  std::string flags;
  for (const std::string& line : linesOf(result.err)) {
    if (const auto at = line.find("] Skipping: "); at != std::string::npos)
      flags += line.substr(at + 2) + "\n";
  }
  EXPECT_EQ(flags,
            "Skipping: agendaHost : 1\nSkipping: parleyHost : 0\nSkipping: rosterHost : 0\n"
            "Skipping: depotHost : 0\nSkipping: postHost : 0\nSkipping: hostProfile : 0\n"
            "Skipping: siteHost : 7\n");
}

TEST_F(BackupServices, DebugLogsNoFlagsForASkippedService) {
  root.writePreferences({{"agendaHost", 1}, {"siteHost", 0}});
  EXPECT_THAT(backUp(descriptorOf("siteHost", "/opt/plugin"), kDebug).err,
              Not(HasSubstr("Skipping: ")));
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Standard output that is closed, broken or full, and other odd starts: the run ends as usual.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
constexpr const char* kLog = "/private/var/log/halyard/server_progress.log";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

class Output : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/plugin");
    root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/plugin"));
  }

  // A whole backup was made, and nothing of its text went into its files.
  void expectWholeBackup(const CommandResult& result) {
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(root.exists(kPidFile));
    EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
    EXPECT_TRUE(root.exists("/.Halyards/master.browse.plist"));
    EXPECT_EQ(root.calls().size(), 1U);
    EXPECT_THAT(root.readFile(kLog), Not(HasSubstr("nextPath")));
    EXPECT_THAT(root.progressMessages(), Contains("## PROGRESS :: Halyard :: Done."));
  }
};

TEST_F(Output, ABrokenPipeEndsNoBackup) {
  RunOptions options;
  options.stdoutPipeIsBroken = true;
  expectWholeBackup(root.run(kBackup, {{"DEBUG", ""}}, options));
}

TEST_F(Output, AFullDeviceEndsNoBackup) {
  RunOptions options;
  options.stdoutFile = "/dev/full";
  expectWholeBackup(root.run(kBackup, {{"FUNCLOG", ""}}, options));
}

TEST_F(Output, ClosedDescriptorsEndNoBackup) {
  for (const std::set<int>& closed : {std::set<int>{1}, {2}, {0}, {1, 2}, {0, 1, 2}}) {
    RunOptions options;
    options.closedDescriptors = closed;
    root.remove("/plugin-calls");
    root.remove("/.Halyards");
    expectWholeBackup(root.run(kBackup, {{"DEBUG", ""}, {"VERBOSE", ""}}, options));
  }
}

TEST_F(Output, PluginsOfAClosedStartGetAllThreeDescriptors) {
  root.writeScript("/opt/plugin", "echo out && echo err >&2 && touch /fine");
  RunOptions options;
  options.closedDescriptors = {0, 1, 2};
  root.run(kBackup, {}, options);
  EXPECT_TRUE(root.exists("/fine"));
}

TEST_F(Output, PluginsGetTheDefaultSignalDispositions) {
  // With SIGPIPE ignored the first program of the pipe would tell its failed write.
  root.writeScript("/opt/plugin", "{ dd if=/dev/zero bs=65536 count=100 2>/told; } | true");
  root.run(kBackup);
  EXPECT_THAT(root.readFile("/told"), IsEmpty());
}

TEST_F(Output, ABrokenPipeEndsNoOtherCommand) {
  RunOptions options;
  options.stdoutPipeIsBroken = true;
  for (const char* command : {"help", "version", "services", "prefs", "size", "list"})
    EXPECT_EQ(root.run({"-cmd", command}, {}, options).status, 0) << command;
  EXPECT_EQ(root.run({}, {}, options).status, 1);
}

TEST_F(Output, AnotherWorkingFolderChangesNothing) {
  root.makeFolder("/elsewhere");
  RunOptions options;
  options.workingFolder = "/elsewhere";
  expectWholeBackup(root.run(kBackup, {}, options));
  EXPECT_THAT(root.list("/elsewhere"), IsEmpty());
}

TEST_F(Output, TheUmaskIsInheritedWhereNoModeIsNamed) {
  RunOptions options;
  options.umask = 077;
  expectWholeBackup(root.run(kBackup, {}, options));
  EXPECT_EQ(root.modeOf("/.Halyards"), 0700U);
  EXPECT_EQ(root.modeOf("/.Halyards/x"), 0700U);
  EXPECT_EQ(root.modeOf("/.Halyards/.halyardSignature"), 0600U);
}

TEST_F(Output, APidFileThatCannotBeWrittenStopsNothing) {
  root.remove("/private/var/run");
  expectWholeBackup(root.run(kBackup));
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the three programs of the kit do alike: versions, refusals, statuses, errors as JSON.
#include "common/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host_kit_root.h"

namespace halyard::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::vector<std::string> kPrograms = {"drivectl", "helmsman", "snapwheel"};

struct Refusal {
  std::string program;
  std::vector<std::string> words;
  std::string message;
};

class KitProgram : public HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (!IsSkipped()) install("snapwheel", root);
  }
};

TEST_F(KitProgram, TellsItsVersion) {
  for (const std::string& program : kPrograms) {
    const CommandResult result = refused(program, {"--version"});
    EXPECT_EQ(result.status, 0) << program;
    EXPECT_THAT(result.out, StartsWith(program + " 1."));
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(KitProgram, HelpNamesEveryExitStatus) {
  for (const std::string& program : kPrograms) {
    const CommandResult result = refused(program, {"--help"});
    EXPECT_EQ(result.status, 0) << program;
    EXPECT_THAT(result.out,
                HasSubstr("0 done; 1 failed, or a check found an error; 2 wrong usage"));
    EXPECT_THAT(result.out, HasSubstr("3 busy, try again later; 4 done in part"));
  }
}

TEST_F(KitProgram, RefusesAWrongCommandLineByTheWordThatIsWrong) {
  static const std::string kSnapwheel =
      "; there are: snapshot, list, delete, pin, unpin, latest, prune, restore, diff, find, check "
      "(see: snapwheel --help)";
  static const std::string kDrivectl = "; there are: info, list (see: drivectl --help)";
  const std::vector<Refusal> refusals = {
      {"snapwheel", {}, "a subcommand is missing" + kSnapwheel},
      {"drivectl", {}, "a subcommand is missing" + kDrivectl},
      {"snapwheel", {"lsit"}, "there is no subcommand \"lsit\"" + kSnapwheel},
      {"snapwheel", {"--quiet", "lsit", "x"}, "there is no subcommand \"lsit\"" + kSnapwheel},
      {"drivectl", {"infos", "/"}, "there is no subcommand \"infos\"" + kDrivectl},
      {"helmsman",
       {"check", "--nonsense"},
       "there is no option \"--nonsense\"; there are: --help, --json, --no-size (see: helmsman "
       "check --help)"},
      {"helmsman",
       {"--nonsense"},
       "there is no option \"--nonsense\"; there are: --help, --version, --quiet, --wait (see: "
       "helmsman "
       "--help)"},
      {"snapwheel",
       {"list", "--nonsense", "x"},
       "there is no option \"--nonsense\"; there are: --help, --json, --all (see: snapwheel list "
       "--help)"},
      {"drivectl",
       {"info", "-x", "/"},
       "there is no option \"-x\"; there are: --help, --plist, --json (see: drivectl info --help)"},
      {"helmsman",
       {"snapshots", "backup"},
       "the word \"backup\" has no meaning here; snapshots takes options only (see: helmsman "
       "snapshots --help)"},
      {"helmsman",
       {"undo", "web", "mail"},
       "the word \"mail\" has no meaning here; undo takes SERVICE (see: helmsman undo --help)"},
      {"helmsman", {"restore"}, "SERVICE is missing (see: helmsman restore --help)"},
      {"snapwheel",
       {"snapshot", "--keep-last", "x"},
       "--keep-last cannot be \"x\" (see: snapwheel snapshot --help)"},
      {"snapwheel",
       {"list", "--wait", "ten minutes"},
       "--wait cannot be \"ten minutes\": it is a whole number from 0 to 86400 (see: snapwheel "
       "list --help)"},
      {"helmsman",
       {"scrub", "--part", "0"},
       "--part cannot be \"0\": it is a whole number from 1 to 366 (see: helmsman scrub --help)"},
      {"helmsman",
       {"schedule", "--at"},
       "--at needs a value, HH:MM (see: helmsman schedule --help)"},
      {"helmsman",
       {"volumes", "drop", "/x"},
       "\"drop\" has no meaning here; there are: leave-out,include (see: helmsman volumes --help)"},
      {"helmsman",
       {"restore", "web", "--from", "a", "--from", "b"},
       "--from takes one value, not 2 (see: helmsman restore --help)"},
      {"helmsman",
       {"destination", "--show", "--list"},
       "--show and --list exclude each other (see: helmsman destination --help)"},
      {"helmsman",
       {"metrics", "--folder", "/x"},
       "--folder needs --write (see: helmsman metrics --help)"},
  };
  for (const Refusal& refusal : refusals) {
    const CommandResult result = refused(refusal.program, refusal.words);
    EXPECT_EQ(result.status, 2) << refusal.message;
    EXPECT_EQ(result.out, "") << refusal.message;
    EXPECT_EQ(result.err, refusal.program + ": " + refusal.message + "\n");
  }
}

TEST_F(KitProgram, NamesEverySubcommandWhereOneIsMissing) {
  EXPECT_THAT(refused("helmsman", {"bakcup"}).err,
              StartsWith("helmsman: there is no subcommand \"bakcup\"; there are: setup, "));
  EXPECT_THAT(refused("helmsman", {}).err, HasSubstr(", backup, volumes, snapshots, "));
}

TEST_F(KitProgram, TellsAWrongCommandLineAsJsonWhenJsonIsWanted) {
  const std::vector<Refusal> refusals = {
      {"helmsman", {"status", "--json", "--nonsense"}, "there is no option \"--nonsense\""},
      {"snapwheel", {"lsit", "--json"}, "there is no subcommand \"lsit\""},
      {"drivectl", {"info", "--plist", "--json", "/"}, "--plist"},
  };
  for (const Refusal& refusal : refusals) {
    const CommandResult result = refused(refusal.program, refusal.words);
    EXPECT_EQ(result.status, 2) << refusal.message;
    const auto document = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(document.is_object()) << result.out;
    EXPECT_EQ(document["format"], 1);
    EXPECT_EQ(document["error"]["status"], 2);
    EXPECT_THAT(document["error"]["message"].get<std::string>(), HasSubstr(refusal.message));
    EXPECT_THAT(result.err, StartsWith(refusal.program + ": "));
  }
}

TEST_F(KitProgram, TellsAFailureAsJsonAndOnStandardError) {
  const CommandResult result = drivectl({"info", "--json", "/nowhere"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "{\"error\":{\"message\":\"/nowhere: No such file or directory\",\"status\":1},"
            "\"format\":1}\n");
  EXPECT_EQ(result.err, "drivectl: /nowhere: No such file or directory\n");
}

TEST_F(KitProgram, AFailureOfTheEngineIsTheOnlyObjectOnItsStandardOutput) {
  const CommandResult result = refused("snapwheel", {"check", "--json", "--destination", "/none"});
  EXPECT_EQ(result.status, 1);
  const auto document = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(document.is_object()) << result.out;
  EXPECT_EQ(document["error"]["status"], 1);
  EXPECT_EQ(result.err, "snapwheel: " + document["error"]["message"].get<std::string>() + "\n");
}

TEST_F(KitProgram, AnAnswerThatEndsWithAFailureIsNotFollowedByAnError) {
  root.remove("/Volumes/Backup");
  const CommandResult result = helmsman({"destination", "--show", "--json"});
  EXPECT_EQ(result.status, 1);
  const auto document = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_TRUE(document.is_object()) << result.out;
  EXPECT_FALSE(document.contains("error"));
  EXPECT_EQ(document["format"], 1);
}

TEST_F(KitProgram, WithoutJsonAFailurePrintsNothingOnStandardOutput) {
  const CommandResult result = refused("snapwheel", {"check", "--destination", "/none"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
}

TEST_F(KitProgram, AnAnswerThatCannotBeWrittenIsAFailureAndSaidOnce) {
  const CommandResult result =
      root.runProgram("/bin/sh", {"-c", "/usr/sbin/drivectl list --json >/dev/full"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "drivectl: standard output could not be written\n");
}

}  // namespace
}  // namespace halyard::test

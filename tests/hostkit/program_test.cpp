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
  const std::vector<Refusal> refusals = {
      {"helmsman", {}, "a subcommand is missing (see: helmsman --help)"},
      {"snapwheel", {}, "a subcommand is missing (see: snapwheel --help)"},
      {"drivectl", {}, "a subcommand is missing (see: drivectl --help)"},
      {"helmsman", {"bakcup"}, "there is no subcommand \"bakcup\" (see: helmsman --help)"},
      {"helmsman",
       {"-q", "bakcup", "x"},
       "there is no subcommand \"bakcup\" (see: helmsman --help)"},
      {"snapwheel", {"lsit"}, "there is no subcommand \"lsit\" (see: snapwheel --help)"},
      {"drivectl", {"infos", "/"}, "there is no subcommand \"infos\" (see: drivectl --help)"},
      {"helmsman",
       {"restore", "--nonsense"},
       "there is no option \"--nonsense\" (see: helmsman restore --help)"},
      {"helmsman", {"--nonsense"}, "there is no option \"--nonsense\" (see: helmsman --help)"},
      {"snapwheel",
       {"list", "--nonsense", "x"},
       "there is no option \"--nonsense\" (see: snapwheel list --help)"},
      {"drivectl", {"info", "-x", "/"}, "there is no option \"-x\" (see: drivectl info --help)"},
      {"helmsman",
       {"snapshots", "backup"},
       "the word \"backup\" has no meaning here (see: helmsman snapshots --help)"},
      {"snapwheel",
       {"list", "prune"},
       "the word \"prune\" has no meaning here (see: snapwheel list --help)"},
  };
  for (const Refusal& refusal : refusals) {
    const CommandResult result = refused(refusal.program, refusal.words);
    EXPECT_EQ(result.status, 2) << refusal.message;
    EXPECT_EQ(result.out, "") << refusal.message;
    EXPECT_EQ(result.err, refusal.program + ": " + refusal.message + "\n");
  }
}

TEST_F(KitProgram, NamesTheArgumentThatIsMissingOrWrong) {
  EXPECT_THAT(refused("helmsman", {"restore"}).err, HasSubstr("SERVICE"));
  EXPECT_THAT(refused("snapwheel", {"list", "--keep-last", "x"}).err, HasSubstr("--keep-last"));
  EXPECT_THAT(refused("drivectl", {"info"}).err, HasSubstr("PATH"));
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

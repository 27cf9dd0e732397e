// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/snapshot_choice.h"

#include <gtest/gtest.h>

namespace halyard::hostkit {
namespace {

const std::vector<std::string> kNames = {"2026-11-20-020000", "2026-11-21-020000",
                                         "2026-11-21-030000", "2026-11-22-020000.inProgress",
                                         "notes"};

std::string chosen(const std::string& word) {
  std::string problem;
  return chooseName(kNames, word, problem).value_or(problem);
}

TEST(ChooseName, TakesANameOrTheBeginningOfOne) {
  EXPECT_EQ(chosen("2026-11-20-020000"), "2026-11-20-020000");
  EXPECT_EQ(chosen("2026-11-20"), "2026-11-20-020000");
  EXPECT_EQ(chosen("2026-11-21-03"), "2026-11-21-030000");
}

TEST(ChooseName, LatestIsTheLastCompleteOneThatTheEngineNamed) {
  EXPECT_EQ(chosen("latest"), "2026-11-21-030000");
  EXPECT_EQ(chosen("Latest"), "2026-11-21-030000");
}

TEST(ChooseName, NamesTheCandidatesOfABeginningThatFitsSeveral) {
  EXPECT_EQ(chosen("2026-11-21"),
            "\"2026-11-21\" is the beginning of 2 snapshots: 2026-11-21-020000, 2026-11-21-030000");
}

TEST(ChooseName, NamesFiveCandidatesAtTheMost) {
  std::vector<std::string> names;
  for (char hour = '1'; hour <= '9'; ++hour) {
    names.push_back(std::string("2026-11-21-0") + hour + "0000");
  }
  std::string problem;
  EXPECT_FALSE(chooseName(names, "2026", problem));
  EXPECT_TRUE(problem.ends_with("2026-11-21-050000 and 4 more")) << problem;
}

TEST(ChooseName, OneThatIsNotCompleteStandsBackBehindThoseThatAre) {
  EXPECT_EQ(chosen("2026-11-22"), "2026-11-22-020000.inProgress");
}

TEST(ChooseName, SaysThatThereIsNone) {
  EXPECT_EQ(chosen("2025"), "there is no snapshot \"2025\"");
  EXPECT_EQ(chosen(""), "there is no snapshot \"\"");
  std::string problem;
  EXPECT_FALSE(chooseName({"2026-11-22-020000.inProgress"}, "latest", problem));
  EXPECT_EQ(problem, "there is no snapshot yet");
}

}  // namespace
}  // namespace halyard::hostkit

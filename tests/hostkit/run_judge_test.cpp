// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a run printed and logged, and what is kept of it, without a run.
#include "helmsman/run/run_judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helmsman/run/run_display.h"
#include "helmsman/run/run_record.h"

namespace halyard::hostkit {
namespace {

using testing::Contains;
using testing::ElementsAre;

InstalledDescriptor descriptorWith(const std::string& fileName, const std::string& service,
                                   const std::vector<std::string>& data) {
  InstalledDescriptor descriptor;
  descriptor.fileName = fileName;
  descriptor.readable = true;
  descriptor.content.set("ServiceName", service);
  PropertyArray files;
  for (const std::string& file : data) files.emplace_back(file);
  descriptor.content.set("DataFiles", files);
  return descriptor;
}

std::optional<std::string> everyCopyMatters(const std::string& /*service*/,
                                            const std::string& file) {
  return "lost " + file;
}

TEST(RunJudge, AServiceIsGoodOnceItsLastStepIsLogged) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {"/x"})});
  judge.outputLine("*** nextPath := 10-a.plist");
  judge.progressLine("## PROGRESS :: Halyard :: a :: Service backup binary done.");
  judge.progressLine("## PROGRESS :: Halyard :: Done.");
  EXPECT_TRUE(judge.sawEnd());
  const auto results = judge.results(everyCopyMatters);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_TRUE(results[0].done);
  EXPECT_EQ(results[0].copied, 1);
}

TEST(RunJudge, AServiceThatWasNotReachedOrNotEndedIsNotGood) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {}), descriptorWith("20-b.plist", "b", {})});
  judge.outputLine("*** nextPath := 10-a.plist");
  EXPECT_FALSE(judge.sawEnd());
  const auto results = judge.results(everyCopyMatters);
  EXPECT_THAT(results[0].problems, ElementsAre("the run ended within it"));
  EXPECT_THAT(results[1].problems, ElementsAre("the run did not come to it"));
}

TEST(RunJudge, KnowsWhatARunThatWasKilledCameTo) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {}), descriptorWith("20-b.plist", "b", {}),
                  descriptorWith("30-c.plist", "c", {})});
  for (const char* service : {"a", "b", "c"}) {
    judge.progressLine(std::string("## PROGRESS :: Halyard :: ") + service +
                       " :: Calculating size requirements for backup...");
  }
  judge.progressLine("## PROGRESS :: Halyard :: a :: Calling service pre-backup items...");
  judge.progressLine("## PROGRESS :: Halyard :: a :: Service backup binary done.");
  judge.progressLine("## PROGRESS :: Halyard :: b :: Calling service backup binary...");
  const auto results = judge.results(everyCopyMatters);
  EXPECT_TRUE(results[0].done);
  EXPECT_THAT(results[1].problems, ElementsAre("the run ended within it"));
  EXPECT_THAT(results[2].problems, ElementsAre("the run did not come to it"));
}

TEST(RunJudge, FailedCopiesBelongToTheServiceThatIsWorkedOn) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {"/x to y"}),
                  descriptorWith("20-b.plist", "b", {"/x to y"})});
  judge.outputLine("*** nextPath := 10-a.plist");
  judge.outputLine("*** nextPath := 20-b.plist");
  judge.outputLine("Failed to copy /x to y to /.Halyards/b/x to y; ret -> 0");
  EXPECT_EQ(judge.results(everyCopyMatters)[0].copied, std::nullopt) << "more may have failed";
  judge.progressLine("## PROGRESS :: Halyard :: Done.");
  const auto results = judge.results(everyCopyMatters);
  EXPECT_EQ(results[0].copied, 1);
  EXPECT_EQ(results[1].copied, 0);
  EXPECT_THAT(results[1].problems, Contains("lost /x to y"));
}

TEST(RunJudge, AFileListedTwiceAndCopiedOnceIsThere) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {"/x", "/x"})});
  judge.outputLine("*** nextPath := 10-a.plist");
  judge.outputLine("Failed to copy /x to /.Halyards/a/x; ret -> 0");
  judge.progressLine("## PROGRESS :: Halyard :: a :: Service backup binary done.");
  EXPECT_TRUE(judge.results(everyCopyMatters)[0].done);
}

TEST(RunJudge, ReadsThePlatformLog) {
  RunJudge judge({descriptorWith("10-a.plist", "a", {})});
  judge.outputLine("*** nextPath := 10-a.plist");
  judge.progressLine("## PROGRESS :: Halyard :: a :: Service backup binary done.");
  judge.errorLine(
      "2026-11-21 05:53:29 +0000 Halyard[12] Error in calling pre-backup command for "
      "service a, error :=3");
  EXPECT_TRUE(judge.results(everyCopyMatters)[0].done);
  judge.errorLine(
      "2026-11-21 05:53:29 +0000 Halyard[12] Error in calling backup command for "
      "service a, error :=126");
  EXPECT_THAT(judge.results(everyCopyMatters)[0].problems,
              ElementsAre("its backup program cannot be executed"));
}

TEST(ProgressLine, IsTakenApart) {
  const auto step = parseProgressLine("## PROGRESS :: Halyard :: a :: b :: Doing it...");
  ASSERT_TRUE(step);
  EXPECT_EQ(step->service, "a :: b");
  EXPECT_EQ(step->message, "Doing it...");
  EXPECT_EQ(parseProgressLine("## PROGRESS :: Halyard :: Done.")->service, "");
  EXPECT_TRUE(parseProgressLine("## ERROR :: Halyard :: Restore failed.")->isError);
  EXPECT_FALSE(parseProgressLine("2026-11-21 05:53:29 +0000"));
}

TEST(ProgressBar, FillsFromLeftToRight) {
  EXPECT_EQ(progressBar(0, 4), "[----]");
  EXPECT_EQ(progressBar(0.5, 4), "[##--]");
  EXPECT_EQ(progressBar(1, 4), "[####]");
  EXPECT_EQ(progressFraction(0, 0, 0), 0);
  EXPECT_NEAR(progressFraction(2, 0, 2), 0.1, 1e-9);
  EXPECT_NEAR(progressFraction(2, 2, 2), 1, 1e-9);
}

TEST(RunRecord, ReadsBackWhatItWrote) {
  RunRecord record;
  record.started = 1000;
  record.finished = 1060;
  record.result = RunRecord::Result::partial;
  record.services = {{"a", true, 3, 42, {"/gone"}, {}}, {"b", false, 0, 0, {}, {"broke"}}};
  record.problems = {"general"};
  record.snapshot = "/s";
  record.estimateBytes = 5;
  inheritGood(record, std::nullopt);
  const auto read = recordFrom(recordJson(record));
  ASSERT_TRUE(read);
  EXPECT_EQ(recordJson(*read), recordJson(record));
  EXPECT_EQ(read->lastGood.size(), 1U);
  EXPECT_EQ(read->lastGood.at("a").time, 1060);
}

TEST(RunRecord, NonsenseIsNoRecord) {
  EXPECT_FALSE(recordFrom(nlohmann::json::array()));
  EXPECT_FALSE(recordFrom(nlohmann::json::object()));
  EXPECT_FALSE(recordFrom({{"finished", "soon"}}));
  EXPECT_TRUE(recordFrom({{"finished", "2026-11-21T05:53:29Z"}, {"services", {1, 2}}}));
}

}  // namespace
}  // namespace halyard::hostkit

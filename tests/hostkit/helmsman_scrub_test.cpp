// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Reading the repository in parts, and what status and metrics say of it.
#include <gmock/gmock.h>

#include "helmsman/run/scrub_record.h"
#include "restore_test.h"

namespace halyard::hostkit {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr char kState[] = "/var/lib/halyard/scrub.json";

// One snapshot, and a stand-in for the engine that answers what a test writes.
class Scrub : public test::RestoreTest {
 protected:
  void SetUp() override {
    RestoreTest::SetUp();
    if (IsSkipped()) return;
    root.writeScript(
        "/usr/sbin/snapwheel",
        "echo \"$*\" >>/engine-calls\ncat /answer\ncat /said >&2\nexit $(cat /status)");
    answer("[]", 0);
  }
  void answer(const std::string& damaged, int status, const std::string& findings = "[]") const {
    root.writeFile("/answer",
                   R"({"format":1,"snapshots":1,"items":0,"bytesRead":4096,"problems":0,)"
                   R"("findings":)" +
                       findings + R"(,"damaged":)" + damaged + "}");
    root.writeFile("/status", std::to_string(status));
    root.writeFile("/said", "");
  }
  void answerDamage() const {
    answer(R"([{"path":"srv/depot","reason":"does not hold what was put there",)"
           R"("snapshots":["2026-11-20-020000"]}])",
           1,
           R"([{"severity":"problem","path":"srv/depot","text":"told twice"},)"
           R"({"severity":"problem","path":"/x","text":"its index is damaged"},)"
           R"({"severity":"note","path":"/y","text":"of no matter"}])");
  }
  std::string lastCall() const { return test::linesOf(root.readFile("/engine-calls")).back(); }
};

TEST_F(Scrub, ReadsPartAfterPart) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub-parts = 3\n");
  for (const char* part : {"1/3", "2/3", "3/3", "1/3"}) {
    const auto result = helmsman({"scrub"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(lastCall(), std::string("check --json --part ") + part);
    // What was read in the same second is as old as the other.
    auto state = nlohmann::json::parse(root.readFile(kState));
    for (auto& entry : state["partsRead"]) {
      entry["time"] = "2026-01-0" + std::to_string(entry["part"].get<int>()) + "T00:00:00Z";
    }
    root.writeFile(kState, state.dump());
  }
  EXPECT_EQ(helmsman({"scrub", "--part", "2"}).status, 0);
  EXPECT_EQ(lastCall(), "check --json --part 2/3");
  EXPECT_EQ(helmsman({"scrub", "--part", "4"}).status, 2);
}

TEST_F(Scrub, DamageIsKeptShownAndNotWell) {
  answerDamage();
  const auto result = helmsman({"scrub"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("damaged: srv/depot: does not hold what was put there, in "
                                    "2026-11-20-020000"));
  EXPECT_THAT(result.err, HasSubstr("/x: its index is damaged"));
  EXPECT_THAT(result.err, Not(HasSubstr("told twice")));
  const auto status = helmsman({"status", "--check"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.out, HasSubstr("1 file in the snapshots cannot be relied on: srv/depot"));
  EXPECT_THAT(status.out, HasSubstr("the last check of the repository: /x: its index is damaged"));
  EXPECT_THAT(helmsman({"metrics"}).out, HasSubstr("halyard_snapshot_damaged_files 1\n"));
  EXPECT_THAT(helmsman({"metrics"}).out, HasSubstr("halyard_scrub_result 0\n"));
}

TEST_F(Scrub, AnotherPartForgetsNothingAndTheSameOneLearns) {
  answerDamage();
  ASSERT_EQ(helmsman({"scrub", "--part", "1"}).status, 1);
  answer("[]", 0);
  EXPECT_EQ(helmsman({"scrub", "--part", "2"}).status, 0);
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("srv/depot"));
  EXPECT_EQ(helmsman({"scrub", "--part", "1"}).status, 0);
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("srv/depot")));
}

TEST_F(Scrub, DamageOfASnapshotThatIsGoneIsOver) {
  answerDamage();
  ASSERT_EQ(helmsman({"scrub"}).status, 1);
  root.remove(std::string(kHostFolder) + "/2026-11-20-020000");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("cannot be relied on")));
}

TEST_F(Scrub, AnEngineThatGivesNoAnswerIsAFailure) {
  root.writeFile("/answer", R"({"error":{"message":"the destination is not there","status":1}})");
  root.writeFile("/status", "1");
  const auto result = helmsman({"scrub"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the destination is not there"));
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("the last check of the repository: the destination is not there"));
  EXPECT_EQ(nlohmann::json::parse(root.readFile(kState))["partsRead"].size(), 0U);
  root.writeFile("/answer", "");
  root.writeFile("/said", "snapwheel: killed\n");
  root.writeFile("/status", "137");
  EXPECT_THAT(helmsman({"scrub"}).err, HasSubstr("snapwheel: killed"));
}

TEST_F(Scrub, APartThatWasNotReadForLongIsTold) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = weekly\nscrub-parts = 2\n");
  root.writeFile(kState,
                 R"({"format":1,"result":"good","started":"2025-01-01T00:00:00Z",)"
                 R"("finished":"2025-01-01T00:00:00Z","part":2,"parts":2,"bytesRead":1,)"
                 R"("partsRead":[{"part":1,"time":"2024-12-25T00:00:00Z"},)"
                 R"({"part":2,"time":"2025-01-01T00:00:00Z"}],"damaged":[],"problems":[]})");
  const auto status = helmsman({"status"});
  EXPECT_THAT(status.out, HasSubstr("part 1 of 2 of the repository was last read"));
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = off\n");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("of the repository was last read")));
}

TEST_F(Scrub, ARepositoryThatNothingReadsIsTold) {
  EXPECT_THAT(helmsman({"status"}).out,
              ContainsRegex("Repository: +is never read \\(see: helmsman schedule --scrub\\)"));
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = weekly\n");
  EXPECT_THAT(helmsman({"status"}).out, ContainsRegex("Repository: +not read yet \\(weekly\\)"));
}

TEST_F(Scrub, AChosenPeriodWhoseTimerDoesNotRunIsTold) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = weekly\n");
  root.makeFolder("/run/systemd/system");
  const auto timerIs = [&](const std::string& state, const std::string& calendar) {
    root.writeScript("/usr/bin/systemctl",
                     "case \"$*\" in *halyard-scrub.timer*) printf '" + state +
                         "\\nTimersCalendar={ OnCalendar=" + calendar +
                         " ; next_elapse=x }\\n\\nLoadState=loaded\\n' ;; esac");
  };
  constexpr char kRuns[] = "LoadState=loaded\\nUnitFileState=enabled\\nActiveState=active";
  timerIs("LoadState=loaded\\nUnitFileState=disabled\\nActiveState=inactive", "Sun *-*-* 13:00:00");
  EXPECT_THAT(helmsman({"status"}).out,
              HasSubstr("halyard-scrub.timer is disabled and inactive (run helmsman schedule"));
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("halyard-scrub.timer is disabled and inactive"));
  timerIs(kRuns, "*-*-01 13:00:00");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("halyard-scrub.timer goes by another calendar"));
  timerIs(kRuns, "Sun *-*-* 13:00:00");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("halyard-scrub.timer")));
  timerIs("LoadState=masked\\nUnitFileState=masked\\nActiveState=inactive", "");
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("halyard-scrub.timer is masked"));
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = off\n");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("halyard-scrub.timer")));
}

TEST_F(Scrub, AConfigurationThatMakesNoSenseIsRefused) {
  for (const char* line : {"scrub = daily\n", "scrub-parts = 0\n", "scrub-parts = x\n",
                           "scrub-parts = 367\n", "scrub-parts = 4 or so\n"}) {
    root.writeFile("/etc/halyard-host/helmsman.conf", line);
    EXPECT_EQ(helmsman({"scrub"}).status, 2) << line;
  }
  EXPECT_FALSE(root.exists("/engine-calls"));
}

TEST_F(Scrub, AStateThatCannotBeReadIsNone) {
  for (const std::string& text :
       {std::string("no JSON"), std::string("[]"), std::string(100, '['),
        std::string(R"({"parts":"x","partsRead":7,"damaged":[3,{"path":1}],"problems":{}})")}) {
    root.writeFile(kState, text);
    EXPECT_EQ(helmsman({"status"}).status, 0) << text;
  }
}

}  // namespace
}  // namespace halyard::hostkit

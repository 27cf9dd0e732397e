// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>

#include "snapwheel/retention.h"

namespace halyard::snapwheel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Instant> instants(const std::vector<std::string>& names) {
  std::vector<Instant> result;
  for (const std::string& name : names) result.push_back(snapshotInstant(name).value());
  return result;
}

std::vector<std::string> reasons(const std::vector<std::string>& names, const RetentionRules& rules,
                                 const std::string& now) {
  std::vector<std::string> result;
  for (const Verdict& verdict : judge(instants(names), rules, snapshotInstant(now).value())) {
    EXPECT_EQ(verdict.keep, !verdict.reason.empty());
    result.push_back(verdict.reason);
  }
  return result;
}

TEST(Retention, KeepsEverythingWithoutRules) {
  EXPECT_THAT(reasons({"2020-01-01-000000", "2026-01-01-000000"}, {}, "2026-01-02-000000"),
              ElementsAre("no rules", "latest, no rules"));
}

TEST(Retention, JudgesNothingWhenThereIsNothing) {
  EXPECT_THAT(reasons({}, {.days = 1}, "2026-01-02-000000"), IsEmpty());
}

TEST(Retention, KeepsTheLatestWhateverTheRulesSay) {
  EXPECT_THAT(
      reasons({"2020-01-01-000000", "2020-01-02-000000"}, {.hourly = 1}, "2026-01-02-000000"),
      ElementsAre("", "latest, hourly"));
}

TEST(Retention, KeepsTheLastDaysUpToTheSecond) {
  EXPECT_THAT(reasons({"2026-01-01-115959", "2026-01-01-120000", "2026-01-03-120000"}, {.days = 2},
                      "2026-01-03-130000"),
              ElementsAre("", "days", "latest, days"));
}

TEST(Retention, CountsDaysFromTheNewestSnapshotWhenNoneFollowed) {
  EXPECT_THAT(reasons({"2026-01-01-000000", "2026-01-02-000000"}, {.days = 7}, "2026-12-31-000000"),
              ElementsAre("days", "latest, days"));
}

TEST(Retention, CountsDaysFromNowWhenTheNewestLiesInTheFuture) {
  EXPECT_THAT(reasons({"2026-01-01-000000", "2026-01-02-000000", "2099-01-01-000000"}, {.days = 7},
                      "2026-01-03-000000"),
              ElementsAre("days", "days", "latest, days"));
}

TEST(Retention, DoesNotCountAPauseThatNoScheduleMakes) {
  EXPECT_THAT(reasons({"2026-01-01-000000", "2026-01-05-000000", "2026-01-06-000000",
                       "2027-01-05-000000", "2027-01-07-000000"},
                      {.days = 4}, "2027-01-07-000000"),
              ElementsAre("", "days", "days", "days", "latest, days"));
}

TEST(Retention, CountsTheTimeBetweenBackupsOfEverySchedule) {
  EXPECT_THAT(reasons({"2026-01-01-000000", "2026-02-01-001500", "2026-02-08-000000"}, {.days = 5},
                      "2026-02-08-000000"),
              ElementsAre("", "", "latest, days"));
}

TEST(Retention, KeepsTheNewestSoMany) {
  EXPECT_THAT(reasons({"2026-01-01-000000", "2026-01-02-000000", "2026-01-03-000000"}, {.last = 2},
                      "2026-01-03-000000"),
              ElementsAre("", "last", "latest, last"));
}

TEST(Retention, KeepsTheNewestOfEachHour) {
  EXPECT_THAT(
      reasons({"2026-01-01-100000", "2026-01-01-105959", "2026-01-01-110000", "2026-01-01-113000"},
              {.hourly = 2}, "2026-01-01-120000"),
      ElementsAre("", "hourly", "", "latest, hourly"));
}

TEST(Retention, SkipsPeriodsWithoutASnapshot) {
  EXPECT_THAT(reasons({"2025-06-01-000000", "2026-01-01-000000", "2026-01-05-000000"}, {.daily = 2},
                      "2026-01-05-000000"),
              ElementsAre("", "daily", "latest, daily"));
}

TEST(Retention, BeginsWeeksOnMonday) {
  // 2026-01-04 was a Sunday.
  EXPECT_THAT(reasons({"2026-01-03-000000", "2026-01-04-235959", "2026-01-05-000000"},
                      {.weekly = 2}, "2026-01-05-000000"),
              ElementsAre("", "weekly", "latest, weekly"));
}

TEST(Retention, KeepsTheNewestOfEachMonthAndYear) {
  EXPECT_THAT(
      reasons({"2024-12-31-000000", "2025-11-30-000000", "2025-12-01-000000", "2025-12-31-000000"},
              {.monthly = 2, .yearly = 2}, "2025-12-31-000000"),
      ElementsAre("yearly", "monthly", "", "latest, monthly, yearly"));
}

TEST(Retention, TellsDecembersOfTwoYearsApart) {
  EXPECT_THAT(
      reasons({"2024-12-15-000000", "2025-12-15-000000"}, {.monthly = 2}, "2025-12-15-000000"),
      ElementsAre("monthly", "latest, monthly"));
}

TEST(Retention, KeepsWhatAnyRuleKeeps) {
  EXPECT_THAT(
      reasons({"2026-01-01-000000", "2026-01-02-000000", "2026-01-02-120000", "2026-01-03-000000"},
              {.days = 1, .daily = 3}, "2026-01-03-000000"),
      ElementsAre("daily", "days", "days, daily", "latest, days, daily"));
}

}  // namespace
}  // namespace halyard::snapwheel

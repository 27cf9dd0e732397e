// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/snapshot_name.h"

#include <gtest/gtest.h>

namespace halyard {
namespace {

using std::chrono::seconds;
using std::chrono::sys_days;
using namespace std::chrono_literals;

Instant at(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  return sys_days(std::chrono::year(year) / static_cast<int>(month) / static_cast<int>(day)) +
         std::chrono::hours(hour) + std::chrono::minutes(minute) + seconds(second);
}

TEST(SnapshotName, IsTheSecondInUniversalTime) {
  EXPECT_EQ(snapshotName(at(2026, 11, 21, 5, 53, 30)), "2026-11-21-055330");
  EXPECT_EQ(snapshotName(at(1970, 1, 1, 0, 0, 0)), "1970-01-01-000000");
}

TEST(SnapshotName, IsReadBack) {
  EXPECT_EQ(snapshotInstant("2024-02-29-235959"), at(2024, 2, 29, 23, 59, 59));
}

TEST(SnapshotName, RefusesWhatNoInstantGives) {
  for (const char* name :
       {"2026-02-29-000000", "2026-13-01-000000", "2026-01-01-240000", "2026-01-01-006000",
        "2026-01-01-000060", "2026-1-01-000000", "2026-01-01-00000", "2026-01-01-0000000",
        "2026-01-01 000000", "Latest", "", "2026-01-01-000000.inProgress", "+026-01-01-000000"}) {
    EXPECT_FALSE(snapshotInstant(name).has_value()) << name;
  }
}

TEST(SnapshotName, KnowsWhatIsInProgress) {
  EXPECT_TRUE(isInProgress("2026-01-01-000000.inProgress"));
  EXPECT_FALSE(isInProgress("2026-01-01-000000"));
  EXPECT_EQ(completedName("2026-01-01-000000.inProgress"), "2026-01-01-000000");
  EXPECT_EQ(completedName("2026-01-01-000000"), "2026-01-01-000000");
}

TEST(NextInstant, IsNowWhenTheClockIsPastTheNewestSnapshot) {
  const Instant now = at(2026, 1, 2, 0, 0, 0);
  EXPECT_EQ(nextInstant(now, std::nullopt), now);
  EXPECT_EQ(nextInstant(now, now - 1s), now);
}

TEST(NextInstant, FollowsTheNewestSnapshotWhenTheClockDoesNot) {
  const Instant now = at(2026, 1, 2, 0, 0, 0);
  EXPECT_EQ(nextInstant(now, now), now + 1s);
  EXPECT_EQ(nextInstant(now, now + 24h), now + 24h + 1s);
}

}  // namespace
}  // namespace halyard

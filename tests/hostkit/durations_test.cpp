// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/durations.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace halyard::hostkit {
namespace {

TEST(Duration, IsANumberAndItsUnit) {
  EXPECT_EQ(parseDuration("4s"), std::chrono::seconds(4));
  EXPECT_EQ(parseDuration("30min"), std::chrono::minutes(30));
  EXPECT_EQ(parseDuration("2h"), std::chrono::hours(2));
  for (const char* text : {"", "4", "s", "0s", "-1s", "4 s", "4m", "4sec", "99999999999h"}) {
    EXPECT_EQ(parseDuration(text), std::nullopt) << text;
  }
  EXPECT_EQ(durationText(std::chrono::seconds(90)), "90s");
  EXPECT_EQ(durationText(std::chrono::minutes(60)), "1h");
}

}  // namespace
}  // namespace halyard::hostkit

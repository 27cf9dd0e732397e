// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/log/clock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>

namespace halyard::host {
namespace {

std::time_t instantOf(const std::string& text) {
  std::tm fields{};
  EXPECT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S +0000", &fields), nullptr) << text;
  return timegm(&fields);
}

TEST(CurrentDateText, ShowsTheInstantInItsFixedForm) {
  const std::time_t before = std::time(nullptr);
  const std::string text = currentDateText();
  const std::time_t after = std::time(nullptr);
  EXPECT_TRUE(std::regex_match(
      text, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000")))
      << text;
  EXPECT_LE(before, instantOf(text));
  EXPECT_LE(instantOf(text), after);
}

TEST(CurrentDateText, LeavesTheTimeZoneAlone) {
  const char* zone = std::getenv("TZ");
  const std::string saved = zone == nullptr ? "" : zone;
  setenv("TZ", "EAST-13:45", 1);
  tzset();
  const std::time_t before = std::time(nullptr);
  const std::string text = currentDateText();
  const std::time_t after = std::time(nullptr);
  if (zone == nullptr) {
    unsetenv("TZ");
  } else {
    setenv("TZ", saved.c_str(), 1);
  }
  tzset();
  EXPECT_LE(before, instantOf(text));
  EXPECT_LE(instantOf(text), after);
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/json_members.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace halyard::hostkit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

nlohmann::json parsed(const char* text) { return nlohmann::json::parse(text, nullptr, false); }

TEST(JsonMembers, AreWhatTheyAreWhenTheyHaveTheType) {
  const auto document =
      parsed(R"({"text": "a", "texts": ["b", 1, "c"], "flag": true, "below": -7, "count": 7})");
  EXPECT_EQ(textOf(document, "text"), "a");
  EXPECT_THAT(textsOf(document, "texts"), ElementsAre("b", "c"));
  EXPECT_TRUE(flagOf(document, "flag"));
  EXPECT_THAT(integerOf(document, "below"), Optional(-7));
  EXPECT_THAT(integerOf(document, "count"), Optional(7));
  EXPECT_THAT(countOf(document, "count"), Optional(7U));
}

TEST(JsonMembers, AreEmptyWhenTheyHaveAnotherType) {
  for (const char* text :
       {R"({"m": null})", R"({"m": {"m": 1}})", R"({"m": [[1]]})", R"({"m": 1.5})", R"({"n": 1})",
        "[]", "[\"m\"]", "\"m\"", "1", "null", "", "{"}) {
    const auto document = parsed(text);
    EXPECT_EQ(textOf(document, "m"), "") << text;
    EXPECT_THAT(textsOf(document, "m"), IsEmpty()) << text;
    EXPECT_FALSE(flagOf(document, "m")) << text;
    EXPECT_EQ(integerOf(document, "m"), std::nullopt) << text;
    EXPECT_EQ(countOf(document, "m"), std::nullopt) << text;
  }
  EXPECT_EQ(textOf(parsed(R"({"m": 1})"), "m"), "");
  EXPECT_FALSE(flagOf(parsed(R"({"m": 1})"), "m"));
  EXPECT_EQ(integerOf(parsed(R"({"m": "1"})"), "m"), std::nullopt);
}

TEST(JsonMembers, NumbersThatDoNotFitAreAbsent) {
  EXPECT_EQ(countOf(parsed(R"({"m": -1})"), "m"), std::nullopt);
  EXPECT_EQ(integerOf(parsed(R"({"m": 9223372036854775808})"), "m"), std::nullopt);
  EXPECT_THAT(countOf(parsed(R"({"m": 18446744073709551615})"), "m"),
              Optional(18446744073709551615U));
}

}  // namespace
}  // namespace halyard::hostkit

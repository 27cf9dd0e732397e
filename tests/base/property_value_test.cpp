// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "base/property_list.h"

namespace halyard::host {
namespace {

using testing::ElementsAre;
using Kind = PropertyValue::Kind;

std::vector<std::string> keysOf(const PropertyDictionary& dictionary) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary) keys.push_back(key);
  return keys;
}

TEST(PropertyValue, IsAnEmptyStringByDefault) {
  EXPECT_EQ(PropertyValue().kind(), Kind::string);
  EXPECT_EQ(*PropertyValue().asString(), "");
}

TEST(PropertyValue, AnswersForItsOwnKindOnly) {
  const PropertyValue text("a");
  EXPECT_EQ(*text.asString(), "a");
  EXPECT_EQ(text.asDictionary(), nullptr);
  EXPECT_EQ(text.asArray(), nullptr);
  EXPECT_EQ(text.asDate(), nullptr);
  EXPECT_EQ(text.asData(), nullptr);
  EXPECT_FALSE(text.asInteger());
  EXPECT_FALSE(text.asReal());
  EXPECT_FALSE(text.asBoolean());
  EXPECT_EQ(PropertyValue(true).asString(), nullptr);
  EXPECT_FALSE(PropertyValue(true).asInteger());
  EXPECT_EQ(PropertyValue::data("a").asString(), nullptr);
  EXPECT_EQ(PropertyValue::date("a").asString(), nullptr);
  EXPECT_EQ(*PropertyValue::date("a").asDate(), "a");
  EXPECT_EQ(*PropertyValue::data("a").asData(), "a");
}

TEST(PropertyValue, TellsItsKind) {
  EXPECT_EQ(PropertyValue(PropertyDictionary()).kind(), Kind::dictionary);
  EXPECT_EQ(PropertyValue(PropertyArray()).kind(), Kind::array);
  EXPECT_EQ(PropertyValue("").kind(), Kind::string);
  EXPECT_EQ(PropertyValue(1).kind(), Kind::integer);
  EXPECT_EQ(PropertyValue(1.0).kind(), Kind::real);
  EXPECT_EQ(PropertyValue(false).kind(), Kind::boolean);
  EXPECT_EQ(PropertyValue::date("").kind(), Kind::date);
  EXPECT_EQ(PropertyValue::data("").kind(), Kind::data);
}

TEST(PropertyValue, TakesSixteenBytes) { EXPECT_EQ(sizeof(PropertyValue), 16U); }

TEST(PropertyValue, IsCopiedWhole) {
  PropertyDictionary inner;
  inner.set("a", PropertyArray{"b", 1});
  const PropertyValue original(inner);
  PropertyValue copy = original;
  EXPECT_EQ(copy, original);
  copy = PropertyValue(2);
  EXPECT_EQ(original.asDictionary()->find("a")->asArray()->size(), 2U);
  copy = original;
  EXPECT_NE(copy.asDictionary(), original.asDictionary());
  EXPECT_EQ(copy, original);
}

TEST(PropertyValue, EqualsTheSameKindAndContentOnly) {
  EXPECT_FALSE(PropertyValue(1) == PropertyValue(1.0));
  EXPECT_FALSE(PropertyValue(1) == PropertyValue(true));
  EXPECT_FALSE(PropertyValue("a") == PropertyValue::date("a"));
  EXPECT_FALSE(PropertyValue::data("a") == PropertyValue::date("a"));
  EXPECT_FALSE(PropertyValue(PropertyArray()) == PropertyValue(PropertyDictionary()));
  EXPECT_FALSE(PropertyValue(PropertyArray{1}) == PropertyValue(PropertyArray{2}));
  EXPECT_TRUE(PropertyValue(PropertyArray{1}) == PropertyValue(PropertyArray{1}));
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(PropertyValue(notANumber) == PropertyValue(-notANumber));
  EXPECT_FALSE(PropertyValue(notANumber) == PropertyValue(1.0));
}

TEST(PropertyValue, GivesItsDictionaryAway) {
  PropertyDictionary dictionary;
  dictionary.set("a", 1);
  PropertyValue value(dictionary);
  EXPECT_EQ(std::move(value).takeDictionary(), dictionary);
  EXPECT_FALSE(PropertyValue("a").takeDictionary());
}

TEST(IntegerValue, ReadsEveryKindAsAPreference) {
  EXPECT_EQ(PropertyValue(true).integerValue(), 1);
  EXPECT_EQ(PropertyValue(false).integerValue(), 0);
  EXPECT_EQ(PropertyValue(-3).integerValue(), -3);
  EXPECT_EQ(PropertyValue(2.9).integerValue(), 2);
  EXPECT_EQ(PropertyValue(-2.9).integerValue(), -2);
  EXPECT_EQ(PropertyValue(" 12 days").integerValue(), 12);
  EXPECT_EQ(PropertyValue("yes").integerValue(), 0);
  EXPECT_EQ(PropertyValue(PropertyArray{1}).integerValue(), 0);
  EXPECT_EQ(PropertyValue::date("2026").integerValue(), 0);
  EXPECT_EQ(PropertyValue::data("1").integerValue(), 0);
}

TEST(IntegerValue, SaturatesAtTheLimitsOf32Bits) {
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(PropertyValue(std::int64_t{1} << 40).integerValue(), kMost);
  EXPECT_EQ(PropertyValue(-(std::int64_t{1} << 40)).integerValue(), kLeast);
  EXPECT_EQ(PropertyValue(1e300).integerValue(), kMost);
  EXPECT_EQ(PropertyValue(-std::numeric_limits<double>::infinity()).integerValue(), kLeast);
  EXPECT_EQ(PropertyValue(std::numeric_limits<double>::quiet_NaN()).integerValue(), 0);
  EXPECT_EQ(PropertyValue("99999999999999999999").integerValue(), kMost);
}

TEST(Description, ShowsAValueALine) {
  PropertyDictionary inner;
  inner.set("on", true);
  inner.set("off", false);
  PropertyDictionary dictionary;
  dictionary.set("name", "depotHost");
  dictionary.set("files", PropertyArray{"/etc/a", 7, 0.5});
  dictionary.set("none", PropertyArray());
  dictionary.set("flags", inner);
  dictionary.set("alias", PropertyValue::data("abc"));
  dictionary.set("since", PropertyValue::date("2026-01-02T03:04:05Z"));
  EXPECT_EQ(PropertyValue(dictionary).description(),
            "{\n"
            "  \"name\" = \"depotHost\"\n"
            "  \"files\" = (\n"
            "    \"/etc/a\"\n"
            "    7\n"
            "    0.5\n"
            "  )\n"
            "  \"none\" = ()\n"
            "  \"flags\" = {\n"
            "    \"on\" = true\n"
            "    \"off\" = false\n"
            "  }\n"
            "  \"alias\" = <YWJj>\n"
            "  \"since\" = date \"2026-01-02T03:04:05Z\"\n"
            "}");
  EXPECT_EQ(PropertyValue(PropertyDictionary()).description(), "{}");
  EXPECT_EQ(PropertyValue("a").description(), "\"a\"");
  EXPECT_EQ(PropertyValue::date("").description(), "date \"\"");
}

TEST(PropertyDictionary, FindsNothingWhileEmpty) {
  const PropertyDictionary dictionary;
  EXPECT_TRUE(dictionary.empty());
  EXPECT_EQ(dictionary.find("a"), nullptr);
  EXPECT_EQ(dictionary.begin(), dictionary.end());
  EXPECT_FALSE(dictionary.text("a"));
  EXPECT_EQ(dictionary.dictionary("a"), nullptr);
  EXPECT_FALSE(dictionary.texts("a"));
}

TEST(PropertyDictionary, KeepsTheFirstPlaceAndTheLastValueOfAKey) {
  PropertyDictionary dictionary;
  dictionary.set("b", 1);
  dictionary.set("a", 2);
  dictionary.set("b", 3);
  EXPECT_THAT(keysOf(dictionary), ElementsAre("b", "a"));
  EXPECT_EQ(dictionary.find("b")->asInteger(), 3);
}

TEST(PropertyDictionary, TakesEntriesAsSoManySettings) {
  for (const int different : {1, 3, 16, 17, 40, 1000}) {
    std::vector<PropertyDictionary::Entry> entries;
    PropertyDictionary expected;
    for (int i = 0; i < 3 * different; ++i) {
      const std::string key = "key " + std::to_string(i * i % different);
      entries.emplace_back(key, i);
      expected.set(key, i);
    }
    EXPECT_EQ(PropertyDictionary(entries), expected) << different;
  }
  EXPECT_TRUE(PropertyDictionary(std::vector<PropertyDictionary::Entry>()).empty());
}

TEST(PropertyDictionary, FindsEveryKeyAtAnySize) {
  PropertyDictionary dictionary;
  for (int size = 1; size <= 300; ++size) {
    dictionary.set("key" + std::to_string(size), size);
    for (int i = 1; i <= size; ++i) {
      ASSERT_EQ(dictionary.find("key" + std::to_string(i))->asInteger(), i) << size;
    }
    ASSERT_EQ(dictionary.find("key" + std::to_string(size + 1)), nullptr);
  }
  PropertyDictionary copy = dictionary;
  copy.set("key7", "other");
  EXPECT_EQ(dictionary.find("key7")->asInteger(), 7);
  EXPECT_EQ(*copy.find("key7")->asString(), "other");
}

TEST(PropertyDictionary, TellsKeysApartThatStartAlike) {
  PropertyDictionary dictionary;
  std::string key;
  for (int i = 0; i < 40; ++i, key.push_back('\0')) dictionary.set(key, i);
  key.clear();
  for (int i = 0; i < 40; ++i, key.push_back('\0')) ASSERT_EQ(dictionary.find(key)->asInteger(), i);
}

TEST(PropertyDictionary, EqualsTheSameEntriesInTheSameOrderOnly) {
  PropertyDictionary left;
  left.set("a", 1);
  left.set("b", 2);
  PropertyDictionary right;
  right.set("b", 2);
  EXPECT_FALSE(left == right);
  right.set("a", 1);
  EXPECT_FALSE(left == right);
  EXPECT_TRUE(left == PropertyDictionary(left));
}

TEST(PropertyDictionary, ReadsAKeyOfTheWrongTypeAsAbsent) {
  PropertyDictionary inner;
  inner.set("x", 1);
  PropertyDictionary dictionary;
  dictionary.set("text", "a");
  dictionary.set("number", 1);
  dictionary.set("inner", inner);
  dictionary.set("list", PropertyArray{"a", 1, "b", PropertyArray{"c"}});
  EXPECT_EQ(dictionary.text("text"), "a");
  EXPECT_FALSE(dictionary.text("number"));
  EXPECT_FALSE(dictionary.text("list"));
  EXPECT_EQ(*dictionary.dictionary("inner"), inner);
  EXPECT_EQ(dictionary.dictionary("text"), nullptr);
  EXPECT_THAT(dictionary.texts("list").value(), ElementsAre("a", "b"));
  EXPECT_FALSE(dictionary.texts("text"));
}

}  // namespace
}  // namespace halyard::host

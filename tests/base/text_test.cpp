// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "base/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace halyard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

TEST(OrNull, ShowsAnAbsentTextAsNull) {
  EXPECT_STREQ(orNull(std::nullopt), "(null)");
  const MaybeString empty("");
  EXPECT_STREQ(orNull(empty), "");
  const MaybeString text("a");
  EXPECT_EQ(orNull(text), text->c_str());
}

TEST(JoinPath, JoinsAsTextAndNormalisesNothing) {
  EXPECT_EQ(joinPath("/a", "b"), "/a/b");
  EXPECT_EQ(joinPath("/a/", "/b"), "/a///b");
  EXPECT_EQ(joinPath("", ""), "/");
  EXPECT_EQ(joinPath("/a", "../b"), "/a/../b");
  EXPECT_EQ(joinPath("/a", std::nullopt), "/a/(null)");
  EXPECT_EQ(joinPath(std::nullopt, std::nullopt), "(null)/(null)");
}

TEST(AppendPath, CountsTheSlashesBetweenThePartsOnce) {
  EXPECT_EQ(appendPath("/a", "/etc/x"), "/a/etc/x");
  EXPECT_EQ(appendPath("/a/", "etc/x"), "/a/etc/x");
  EXPECT_EQ(appendPath("/a//", "//etc/x/"), "/a/etc/x/");
  EXPECT_EQ(appendPath("/", "/etc"), "/etc");
  EXPECT_EQ(appendPath("a", "b"), "a/b");
}

TEST(AppendPath, OfTheRootOrNothingIsTheLeftPart) {
  EXPECT_EQ(appendPath("/a", "/"), "/a");
  EXPECT_EQ(appendPath("/a", ""), "/a");
  EXPECT_EQ(appendPath("/a/", ""), "/a");
  EXPECT_EQ(appendPath("/", "/"), "/");
  EXPECT_EQ(appendPath("/", ""), "/");
  EXPECT_EQ(appendPath("", ""), "");
}

TEST(SplitAt, KeepsEmptyPieces) {
  EXPECT_THAT(splitAt("a:b", ':'), ElementsAre("a", "b"));
  EXPECT_THAT(splitAt(":a::", ':'), ElementsAre("", "a", "", ""));
  EXPECT_THAT(splitAt("a", ':'), ElementsAre("a"));
  EXPECT_THAT(splitAt("", ':'), ElementsAre(""));
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  forEachLine(text, [&lines](std::string_view line) { lines.emplace_back(line); });
  return lines;
}

TEST(ForEachLine, VisitsThePiecesBetweenLineFeeds) {
  EXPECT_THAT(linesOf("a\r\nb\n"), ElementsAre("a\r", "b", ""));
  EXPECT_THAT(linesOf("\n\na"), ElementsAre("", "", "a"));
  EXPECT_THAT(linesOf("a"), ElementsAre("a"));
  EXPECT_THAT(linesOf(""), ElementsAre(""));
}

TEST(PathComponents, LeavesOutEmptyNames) {
  EXPECT_THAT(pathComponents("/a/b"), ElementsAre("/", "a", "b"));
  EXPECT_THAT(pathComponents("//a///b/"), ElementsAre("/", "a", "b"));
  EXPECT_THAT(pathComponents("a/b"), ElementsAre("a", "b"));
  EXPECT_THAT(pathComponents("/a/./.."), ElementsAre("/", "a", ".", ".."));
  EXPECT_THAT(pathComponents("/"), ElementsAre("/"));
  EXPECT_THAT(pathComponents(""), IsEmpty());
}

TEST(JoinComponents, IsTheInverseOfPathComponents) {
  EXPECT_EQ(joinComponents({"/", "a", "b"}), "/a/b");
  EXPECT_EQ(joinComponents({"a", "b"}), "a/b");
  EXPECT_EQ(joinComponents({"/"}), "/");
  EXPECT_EQ(joinComponents({}), "");
}

TEST(LastPathComponent, IsTheLastName) {
  EXPECT_EQ(lastPathComponent("/a/b"), "b");
  EXPECT_EQ(lastPathComponent("/a/b/"), "b");
  EXPECT_EQ(lastPathComponent("b"), "b");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST(PathExtension, FollowsTheLastDotOfTheLastName) {
  EXPECT_EQ(pathExtension("/a/b.inProgress"), "inProgress");
  EXPECT_EQ(pathExtension("/a/b.c.d/"), "d");
  EXPECT_EQ(pathExtension("/a/.inProgress"), "inProgress");
  EXPECT_EQ(pathExtension("/a/b."), "");
  EXPECT_EQ(pathExtension("/a.b/c"), "");
  EXPECT_EQ(pathExtension("/"), "");
  EXPECT_EQ(pathExtension(""), "");
}

TEST(EqualsIgnoringCase, FoldsTheLettersAToZOnly) {
  EXPECT_TRUE(equalsIgnoringCase("RestoreService", "restoreSERVICE"));
  EXPECT_TRUE(equalsIgnoringCase("", ""));
  EXPECT_FALSE(equalsIgnoringCase("all", "al"));
  EXPECT_FALSE(equalsIgnoringCase("al", "all"));
  EXPECT_FALSE(equalsIgnoringCase("[", "{"));
  EXPECT_FALSE(equalsIgnoringCase("@", "`"));
  EXPECT_FALSE(equalsIgnoringCase("\xC3\x84", "\xC3\xA4"));
  EXPECT_TRUE(equalsIgnoringCase("\xC3\x84Z", "\xC3\x84z"));
}

TEST(LeadingInteger, SkipsWhiteSpaceAndOneSign) {
  EXPECT_EQ(leadingInteger("12"), 12);
  EXPECT_EQ(leadingInteger(" \t\n\v\f\r-12"), -12);
  EXPECT_EQ(leadingInteger("+12"), 12);
  EXPECT_EQ(leadingInteger("--12"), 0);
  EXPECT_EQ(leadingInteger("+-12"), 0);
  EXPECT_EQ(leadingInteger("- 12"), 0);
}

TEST(LeadingInteger, EndsAtTheFirstOtherCharacter) {
  EXPECT_EQ(leadingInteger("10.6.8"), 10);
  EXPECT_EQ(leadingInteger("12 34"), 12);
  EXPECT_EQ(leadingInteger("0x10"), 0);
  EXPECT_EQ(leadingInteger("1e3"), 1);
  EXPECT_EQ(leadingInteger(std::string_view("1\0"
                                            "2",
                                            3)),
            1);
}

TEST(LeadingInteger, IsZeroWithoutDigits) {
  EXPECT_EQ(leadingInteger(""), 0);
  EXPECT_EQ(leadingInteger("  "), 0);
  EXPECT_EQ(leadingInteger("-"), 0);
  EXPECT_EQ(leadingInteger("a1"), 0);
  EXPECT_EQ(leadingInteger("\xC2\xA0"
                           "1"),
            0);
}

TEST(LeadingInteger, SaturatesAtTheLimitsOf32Bits) {
  EXPECT_EQ(leadingInteger("2147483647"), kMost);
  EXPECT_EQ(leadingInteger("2147483648"), kMost);
  EXPECT_EQ(leadingInteger("-2147483648"), kLeast);
  EXPECT_EQ(leadingInteger("-2147483649"), kLeast);
  EXPECT_EQ(leadingInteger("00000000000000000000007"), 7);
  EXPECT_EQ(leadingInteger(std::string(1000000, '9')), kMost);
  EXPECT_EQ(leadingInteger("-" + std::string(1000000, '9')), kLeast);
}

TEST(IntegerReader, ReadsTheSameInWhateverPieces) {
  for (const std::string& text :
       {std::string(" \n-123 45"), std::string("+7x9"), std::string("x1"), std::string("  -"),
        std::string("-99999999999 1"), std::string("2147483647"), std::string("-+5")}) {
    for (std::size_t first = 0; first <= text.size(); ++first) {
      for (std::size_t second = first; second <= text.size(); ++second) {
        IntegerReader reader;
        (void)reader.take(text.substr(0, first));
        (void)reader.take(text.substr(first, second - first));
        (void)reader.take(text.substr(second));
        EXPECT_EQ(reader.value(), leadingInteger(text)) << text << " " << first << " " << second;
      }
    }
  }
}

TEST(IntegerReader, TellsWhenTheNumberHasEnded) {
  IntegerReader reader;
  EXPECT_TRUE(reader.take(""));
  EXPECT_TRUE(reader.take(" "));
  EXPECT_TRUE(reader.take("-"));
  EXPECT_TRUE(reader.take("1"));
  EXPECT_EQ(reader.value(), -1);
  EXPECT_TRUE(reader.take("2"));
  EXPECT_FALSE(reader.take("."));
  EXPECT_FALSE(reader.take("3"));
  EXPECT_FALSE(reader.take(""));
  EXPECT_EQ(reader.value(), -12);
}

TEST(CharacterCount, CountsCodePoints) {
  EXPECT_EQ(characterCount(""), 0U);
  EXPECT_EQ(characterCount("abc\n"), 4U);
  EXPECT_EQ(characterCount("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), 4U);
  EXPECT_EQ(characterCount("a\xCC\x88"), 2U);
  EXPECT_EQ(characterCount("a\x80"), 1U);
  EXPECT_EQ(characterCount(std::string_view("\0", 1)), 1U);
}

TEST(AfterCharacters, SkipsCodePoints) {
  EXPECT_EQ(afterCharacters("abc", 0), "abc");
  EXPECT_EQ(afterCharacters("abc", 2), "c");
  EXPECT_EQ(afterCharacters("\xC3\xA4\xE2\x82\xAC"
                            "c",
                            1),
            "\xE2\x82\xAC"
            "c");
  EXPECT_EQ(afterCharacters("\xC3\xA4\xE2\x82\xAC"
                            "c",
                            2),
            "c");
  EXPECT_EQ(afterCharacters("abc", 3), "");
  EXPECT_EQ(afterCharacters("abc", 4), "");
  EXPECT_EQ(afterCharacters("", 1), "");
}

TEST(Utf8SequenceLength, IsThatOfTheFirstCharacter) {
  EXPECT_EQ(utf8SequenceLength("ab"), 1U);
  EXPECT_EQ(utf8SequenceLength("\xC3\xA4x"), 2U);
  EXPECT_EQ(utf8SequenceLength("\xE2\x82\xAC"), 3U);
  EXPECT_EQ(utf8SequenceLength("\xF0\x9F\x98\x80"), 4U);
  EXPECT_EQ(utf8SequenceLength("\xC3"), 0U);
  EXPECT_EQ(utf8SequenceLength("\x80"
                               "a"),
            0U);
}

TEST(IsValidUtf8, TakesTheFirstAndLastOfEveryLength) {
  for (const char* text :
       {"\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
    EXPECT_TRUE(isValidUtf8("a" + std::string(text) + "z")) << text;
  }
  EXPECT_TRUE(isValidUtf8(""));
  EXPECT_TRUE(isValidUtf8(std::string_view("a\0b", 3)));
}

TEST(IsValidUtf8, RefusesEveryIllFormedSequence) {
  for (const char* text :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2",
        "\xC2"
        "A",
        "\xE0\x9F\xBF", "\xE1\x80",
        "\xE1\x80"
        "A",
        "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF1\x80\x80",
        "\xF1\x80\x80"
        "A",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE", "\xFF"}) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(std::string(text));
    EXPECT_FALSE(isValidUtf8("a" + std::string(text) + "z"));
  }
}

TEST(IsValidUtf8, AgreesWithTheRangeOfEveryCodePoint) {
  const auto encoded = [](std::uint32_t code, int length) {
    std::string text(static_cast<std::size_t>(length), '\0');
    for (std::size_t i = text.size() - 1; i > 0; --i, code >>= 6U) {
      text[i] = static_cast<char>(0x80U | (code & 0x3FU));
    }
    const std::uint32_t lead = length == 1 ? 0 : 0xF00U >> static_cast<unsigned>(length) & 0xFFU;
    text[0] = static_cast<char>(lead | code);
    return text;
  };
  for (std::uint32_t code = 0; code < 0x140000; code += code < 0x20000 ? 1 : 61) {
    const int shortest = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    const bool isCharacter = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    for (int length = shortest; length <= 4; ++length) {
      ASSERT_EQ(isValidUtf8(encoded(code, length)), isCharacter && length == shortest) << code;
    }
  }
}

TEST(TrimLineFeeds, TakesThemOffBothEnds) {
  EXPECT_EQ(trimLineFeeds("\n\na\nb\n"), "a\nb");
  EXPECT_EQ(trimLineFeeds(" \na \r\n"), " \na \r");
  EXPECT_EQ(trimLineFeeds("\n\n"), "");
  EXPECT_EQ(trimLineFeeds(""), "");
}

}  // namespace
}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/property_list/scalars.h"

namespace halyard::host {
namespace {

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

TEST(ParseInteger, ReadsDecimalAndHexadecimalDigits) {
  EXPECT_EQ(parseInteger("0"), 0);
  EXPECT_EQ(parseInteger("-12"), -12);
  EXPECT_EQ(parseInteger("+12"), 12);
  EXPECT_EQ(parseInteger("007"), 7);
  EXPECT_EQ(parseInteger("0x1F"), 31);
  EXPECT_EQ(parseInteger("-0Xff"), -255);
  EXPECT_EQ(parseInteger(" \n\t12\r "), 12);
}

TEST(ParseInteger, TakesAllOf64BitsAndNoMore) {
  EXPECT_EQ(parseInteger("9223372036854775807"), kMost);
  EXPECT_EQ(parseInteger("-9223372036854775808"), kLeast);
  EXPECT_EQ(parseInteger("0x7FFFFFFFFFFFFFFF"), kMost);
  EXPECT_EQ(parseInteger("-0x8000000000000000"), kLeast);
  EXPECT_FALSE(parseInteger("9223372036854775808"));
  EXPECT_FALSE(parseInteger("-9223372036854775809"));
  EXPECT_FALSE(parseInteger("18446744073709551616"));
  EXPECT_FALSE(parseInteger("99999999999999999999999"));
}

TEST(ParseInteger, RefusesWhatIsNotWhollyANumber) {
  for (const char* text : {"", " ", "-", "+", "--1", "+-1", "0x", "-0x", "0x-1", "1 2", "1.0",
                           "12a", "a12", "1e3", "0b1", "\v1"}) {
    EXPECT_FALSE(parseInteger(text)) << text;
  }
}

TEST(ParseReal, ReadsDecimalNumbers) {
  EXPECT_EQ(parseReal("1.5"), 1.5);
  EXPECT_EQ(parseReal("-1.5e3"), -1500);
  EXPECT_EQ(parseReal("+.5"), 0.5);
  EXPECT_EQ(parseReal("5."), 5);
  EXPECT_EQ(parseReal(" 7\n"), 7);
  EXPECT_EQ(parseReal("1E-2"), 0.01);
  EXPECT_TRUE(std::signbit(*parseReal("-0")));
}

TEST(ParseReal, ReadsTheNamesOfNoNumberAndOfInfinity) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(std::isnan(*parseReal("nan")));
  EXPECT_TRUE(std::isnan(*parseReal("-NaN")));
  EXPECT_EQ(parseReal("inf"), kInfinity);
  EXPECT_EQ(parseReal("-INF"), -kInfinity);
  EXPECT_EQ(parseReal("+infinity"), kInfinity);
}

TEST(ParseReal, RefusesWhatIsNotWhollyANumberOrFitsNoDouble) {
  for (const char* text : {"", " ", "-", ".", "--1", "+-1", "1 2", "12a", "a", "0x1p3", "1e",
                           "1e999", "-1e999", "nan(1)", "infin", "- 1", "1,5"}) {
    EXPECT_FALSE(parseReal(text)) << text;
  }
}

TEST(RealText, IsReadAsTheSameNumber) {
  for (const double value :
       {0.0, -0.0, 0.1, 1.0 / 3, 1e22, 123456789.0, 5e-324, 1.7976931348623157e308, -2.5}) {
    const auto back = parseReal(realText(value));
    ASSERT_TRUE(back) << value;
    EXPECT_EQ(*back, value);
    EXPECT_EQ(std::signbit(*back), std::signbit(value));
  }
  EXPECT_EQ(realText(0.1), "0.1");
  EXPECT_EQ(realText(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(realText(std::numeric_limits<double>::infinity()), "+infinity");
  EXPECT_EQ(realText(-std::numeric_limits<double>::infinity()), "-infinity");
}

TEST(DecodeBase64, ReadsEveryLengthOfTheLastGroup) {
  EXPECT_EQ(decodeBase64(""), "");
  EXPECT_EQ(decodeBase64("Zg=="), "f");
  EXPECT_EQ(decodeBase64("Zm8="), "fo");
  EXPECT_EQ(decodeBase64("Zm9v"), "foo");
  EXPECT_EQ(decodeBase64("Zm9vYg=="), "foob");
  EXPECT_EQ(decodeBase64("+/+/"), "\xFB\xFF\xBF");
}

TEST(DecodeBase64, TakesWhiteSpaceAnywhere) {
  EXPECT_EQ(decodeBase64("\n\tZ m\r\n8 = \n"), "fo");
  EXPECT_EQ(decodeBase64(" \n"), "");
}

TEST(DecodeBase64, RefusesWhatIsNotWholeGroups) {
  for (const char* text : {"Z", "Zg", "Zm8", "Zg=", "=", "====", "Z===", "Zg==Zg==", "Zm8=Z",
                           "Zg=a", "Zm9v=", "Z*==", "Zm-_", "Zm9v\v"}) {
    EXPECT_FALSE(decodeBase64(text)) << text;
  }
}

TEST(AppendBase64, IsDecodedToTheSameBytes) {
  std::string bytes;
  for (int i = 0; i < 300; ++i) {
    std::string text;
    appendBase64(bytes, text);
    ASSERT_EQ(decodeBase64(text), bytes);
    bytes.push_back(static_cast<char>(i));
  }
  std::string text = "x";
  appendBase64("foob", text);
  EXPECT_EQ(text, "xZm9vYg==");
}

}  // namespace
}  // namespace halyard::host

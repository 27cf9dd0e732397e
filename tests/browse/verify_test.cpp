// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "browse/verify.h"

#include <gtest/gtest.h>

#include <string>

namespace halyard {
namespace {

TEST(FailuresReported, ReadsTheValueAfterTheSeparator) {
  EXPECT_EQ(failuresReported("Number of failures to match := 0"), 0);
  EXPECT_EQ(failuresReported("Number of failures to match := 12"), 12);
  EXPECT_EQ(failuresReported("Number of failures to match := -3"), -3);
}

TEST(FailuresReported, TheLastSummaryLineWins) {
  EXPECT_EQ(failuresReported("Number of failures to match := 12\n"
                             "Number of failures to match := 0\nthe end\n"),
            0);
}

TEST(FailuresReported, WithoutASummaryLineIs99) {
  EXPECT_EQ(failuresReported(""), 99);
  EXPECT_EQ(failuresReported("\n\n"), 99);
  EXPECT_EQ(failuresReported("The Number of failures to match := 1"), 99);
  EXPECT_EQ(failuresReported("Number of failures"), 99);
}

TEST(FailuresReported, CountsCharactersAndNotBytesBeforeTheValue) {
  EXPECT_EQ(failuresReported("Number of failures to match \xc3\xbc\xc3\xbc 5"), 5);
}

TEST(FailuresReported, AnotherSeparatorShiftsWhatIsRead) {
  EXPECT_EQ(failuresReported("Number of failures to match: 1234"), 34);
}

TEST(FailuresReported, ShortLinesAndLettersGive0) {
  EXPECT_EQ(failuresReported("Number of failures to match"), 0);
  EXPECT_EQ(failuresReported("Number of failures to match := "), 0);
  EXPECT_EQ(failuresReported("Number of failures to match := none"), 0);
}

TEST(FailuresReported, WhiteSpaceAndASignMayStandBeforeTheDigits) {
  EXPECT_EQ(failuresReported("Number of failures to match :=  \t+7 of 9"), 7);
  EXPECT_EQ(failuresReported("Number of failures to match := 0\r"), 0);
}

TEST(FailuresReported, StaysWithin32Bits) {
  EXPECT_EQ(failuresReported("Number of failures to match := 99999999999999999999"), 2147483647);
  EXPECT_EQ(failuresReported("Number of failures to match := -99999999999999999999"),
            -2147483647 - 1);
}

TEST(FailuresReported, ANulIsAByteLikeAnyOther) {
  EXPECT_EQ(failuresReported(std::string("a\0b\n", 4) + "Number of failures to match := 4"), 4);
}

}  // namespace
}  // namespace halyard

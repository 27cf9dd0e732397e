// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/options.h"

#include <gmock/gmock.h>

namespace halyard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Words = std::vector<std::string>;

class ParseOptionsTest : public testing::Test {
 protected:
  const std::map<std::string, std::string>& parsed(const Words& words) {
    ParseOptions(words, line);
    return line.options;
  }
  MaybeString option(const std::string& word) const { return line.option(word); }

  CommandLine line;
};

TEST_F(ParseOptionsTest, PairsBecomeEntries) {
  EXPECT_THAT(parsed({"-cmd", "list", "-path", "/a"}),
              ElementsAre(Pair("-cmd", "list"), Pair("-path", "/a")));
}

TEST_F(ParseOptionsTest, NoWordsGiveAnEmptyTable) { EXPECT_THAT(parsed({}), IsEmpty()); }

TEST_F(ParseOptionsTest, ALaterPairReplacesAnEarlierOne) {
  EXPECT_THAT(parsed({"-path", "a", "-path", "b"}), ElementsAre(Pair("-path", "b")));
}

TEST_F(ParseOptionsTest, WordsOfAnyFormAreKeptAsTyped) {
  EXPECT_THAT(parsed({"-CMD", "", "", "x"}), ElementsAre(Pair("", "x"), Pair("-CMD", "")));
}

TEST_F(ParseOptionsTest, ALastWordWithoutPartnerIsLeftOut) {
  EXPECT_THAT(parsed({"-cmd", "list", "-path"}), ElementsAre(Pair("-cmd", "list")));
}

TEST_F(ParseOptionsTest, OptAsTheFifthPairTakesEveryWordAfterIt) {
  ParseOptions(
      {"-cmd", "restoreService", "-path", "P", "-target", "/", "-service", "S", "-opt", "a", "b"},
      line);
  EXPECT_EQ(option("-opt"), " a b");
  EXPECT_EQ(option("-service"), "S");
  EXPECT_EQ(line.options.size(), 5U);
}

TEST_F(ParseOptionsTest, OptTakesWordsThatLookLikeOptions) {
  ParseOptions(
      {"-cmd", "x", "-path", "P", "-target", "/", "-service", "S", "-opt", "a", "-path", "Q"},
      line);
  EXPECT_EQ(option("-opt"), " a -path Q");
  EXPECT_EQ(option("-path"), "P");
}

TEST_F(ParseOptionsTest, OptTakesEmptyWords) {
  ParseOptions({"-cmd", "x", "-path", "P", "-target", "/", "-service", "S", "-opt", "", ""}, line);
  EXPECT_EQ(option("-opt"), "  ");
}

TEST_F(ParseOptionsTest, OptWithOneWordAsTheFifthPairIsAPlainPair) {
  ParseOptions({"-cmd", "x", "-path", "P", "-target", "/", "-service", "S", "-opt", "a"}, line);
  EXPECT_EQ(option("-opt"), "a");
}

TEST_F(ParseOptionsTest, OptElsewhereIsAPlainPair) {
  ParseOptions({"-opt", "a", "-cmd", "x", "-path", "P", "-target", "/", "-service", "S", "-x", "y"},
               line);
  EXPECT_EQ(option("-opt"), "a");
  EXPECT_EQ(option("-x"), "y");
}

TEST_F(ParseOptionsTest, AnEarlierOptIsReplacedByTheFifthPair) {
  ParseOptions({"-opt", "first", "-path", "P", "-target", "/", "-service", "S", "-opt", "a", "b"},
               line);
  EXPECT_EQ(option("-opt"), " a b");
}

TEST_F(ParseOptionsTest, AnotherLetterCaseIsNotOpt) {
  ParseOptions({"-cmd", "x", "-path", "P", "-target", "/", "-service", "S", "-OPT", "a", "-b", "c"},
               line);
  EXPECT_EQ(option("-opt"), std::nullopt);
  EXPECT_EQ(option("-OPT"), "a");
  EXPECT_EQ(option("-b"), "c");
}

TEST_F(ParseOptionsTest, EachCallStartsAfresh) {
  ParseOptions({"-cmd", "list"}, line);
  EXPECT_THAT(parsed({"-path", "/a"}), ElementsAre(Pair("-path", "/a")));
}

TEST(AcceptableWords, CountsOfWholePairsAndElevenWithOptAreTaken) {
  for (const std::size_t count : {2U, 4U, 6U, 8U, 10U, 12U})
    EXPECT_TRUE(isAcceptableWordList(Words(count, "w"))) << count;
  for (const std::size_t count : {0U, 1U, 3U, 5U, 7U, 9U, 11U, 13U, 14U, 1000U})
    EXPECT_FALSE(isAcceptableWordList(Words(count, "w"))) << count;
  Words eleven(11, "w");
  eleven[8] = "-opt";
  EXPECT_TRUE(isAcceptableWordList(eleven));
}

}  // namespace
}  // namespace halyard

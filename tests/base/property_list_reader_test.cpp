// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "base/property_list.h"

namespace halyard::host {
namespace {

using testing::ElementsAre;

constexpr char kHeader[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr char kDoctype[] =
    "<!DOCTYPE plist PUBLIC \"-//Example//DTD PLIST 1.0//EN\" \"http://example.test/plist.dtd\">\n";

std::optional<PropertyValue> parse(const std::string& body) {
  return parsePropertyList(kHeader + std::string("<plist version=\"1.0\">") + body + "</plist>\n");
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  result.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

/// Processor seconds that the call takes.
template <typename Call>
double secondsOf(Call call) {
  const std::clock_t start = std::clock();
  call();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

TEST(ParsePropertyList, ReadsEveryKindOfValue) {
  const auto root = parse(
      "<dict><key>a</key><string>text</string><key>b</key><integer>-7</integer>"
      "<key>c</key><real>1.5</real><key>d</key><true/><key>e</key><false/>"
      "<key>f</key><date>2026-01-02T03:04:05Z</date><key>g</key><data>AAEC</data>"
      "<key>h</key><array><string>x</string></array><key>i</key><dict/></dict>");
  ASSERT_TRUE(root);
  const PropertyDictionary& dictionary = *root->asDictionary();
  EXPECT_EQ(*dictionary.find("a")->asString(), "text");
  EXPECT_EQ(dictionary.find("b")->asInteger(), -7);
  EXPECT_EQ(dictionary.find("c")->asReal(), 1.5);
  EXPECT_EQ(dictionary.find("d")->asBoolean(), true);
  EXPECT_EQ(dictionary.find("e")->asBoolean(), false);
  EXPECT_EQ(*dictionary.find("f")->asDate(), "2026-01-02T03:04:05Z");
  EXPECT_EQ(*dictionary.find("g")->asData(), std::string("\0\1\2", 3));
  EXPECT_EQ(*dictionary.find("h")->asArray(), PropertyArray{"x"});
  EXPECT_TRUE(dictionary.find("i")->asDictionary()->empty());
}

TEST(ParsePropertyList, KeepsFileOrderAndTheLastValueOfARepeatedKey) {
  const auto root = parse(
      "<dict><key>z</key><integer>1</integer><key>a</key><integer>2</integer>"
      "<key>z</key><integer>3</integer></dict>");
  ASSERT_TRUE(root);
  std::vector<std::string> keys;
  for (const auto& [key, value] : *root->asDictionary()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("z", "a"));
  EXPECT_EQ(root->asDictionary()->find("z")->asInteger(), 3);
}

TEST(ParsePropertyList, KeepsTextAsItStands) {
  EXPECT_EQ(*parse("<string> a\n\tb </string>")->asString(), " a\n\tb ");
  EXPECT_EQ(*parse("<string></string>")->asString(), "");
  EXPECT_EQ(*parse("<string/>")->asString(), "");
  EXPECT_EQ(*parse("<string>\xC3\xA4\xF0\x9F\x98\x80</string>")->asString(),
            "\xC3\xA4\xF0\x9F\x98\x80");
}

TEST(ParsePropertyList, ReadsALineEndAsALineFeed) {
  EXPECT_EQ(*parse("<string>a\r\nb\rc&#13;</string>")->asString(), "a\nb\nc\r");
}

TEST(ParsePropertyList, ReadsThePredefinedEntitiesAndCharacterReferences) {
  EXPECT_EQ(*parse("<string>&amp;&lt;&gt;&quot;&apos;&#65;&#x20AC;</string>")->asString(),
            "&<>\"'A\xE2\x82\xAC");
}

TEST(ParsePropertyList, ReadsAMarkedSectionAsText) {
  EXPECT_EQ(*parse("<string>a<![CDATA[<&]]>b</string>")->asString(), "a<&b");
}

TEST(ParsePropertyList, SkipsCommentsAndInstructionsUpToTheEndOfTheRoot) {
  const auto root = parsePropertyList(
      std::string(kHeader) +
      "<!-- a --><?b c?><plist><!-- d --><array><!-- e --><string>f<!-- g -->h</string>"
      "<?i j?></array><!-- k --></plist>");
  EXPECT_EQ(root, PropertyValue(PropertyArray{"fh"}));
}

TEST(ParsePropertyList, SkipsAByteOrderMarkAndLeadingWhiteSpace) {
  const std::string list = std::string(kHeader) + "<plist><true/></plist>";
  EXPECT_EQ(parsePropertyList("\xEF\xBB\xBF" + list), PropertyValue(true));
  EXPECT_EQ(parsePropertyList(" \t\r\n" + list), PropertyValue(true));
  EXPECT_EQ(parsePropertyList("\xEF\xBB\xBF\n" + list), PropertyValue(true));
  EXPECT_EQ(parsePropertyList(repeated("\n", 3000000) + list), PropertyValue(true));
}

TEST(ParsePropertyList, TakesWhiteSpaceAndNothingElseAfterTheRoot) {
  const std::string list = "<plist><true/></plist>";
  EXPECT_TRUE(parsePropertyList(list + " \t\r\n"));
  EXPECT_TRUE(parsePropertyList(list + repeated("\n", 3000000)));
  EXPECT_FALSE(parsePropertyList(list + "x"));
  EXPECT_FALSE(parsePropertyList(list + "<plist/>"));
  EXPECT_FALSE(parsePropertyList(list + "<!-- a -->"));
  EXPECT_FALSE(parsePropertyList(list + "<?a b?>"));
  EXPECT_FALSE(parsePropertyList(list + std::string(1, '\0')));
  EXPECT_FALSE(parsePropertyList(list + repeated(" ", 200000) + "x"));
  EXPECT_FALSE(parsePropertyList("<true/>x"));
}

TEST(ParsePropertyList, TakesAValueWithoutThePlistElementAsWell) {
  EXPECT_EQ(parsePropertyList("<dict><key>a</key><integer>1</integer></dict>")
                ->asDictionary()
                ->find("a")
                ->asInteger(),
            1);
  EXPECT_EQ(parsePropertyList("<string>a</string>"), PropertyValue("a"));
}

TEST(ParsePropertyList, ReadsOverADoctypeWithAnExternalIdentifier) {
  EXPECT_TRUE(parsePropertyList(kHeader + std::string(kDoctype) + "<plist><dict/></plist>"));
}

TEST(ParsePropertyList, RefusesADoctypeWithASubsetOfItsOwn) {
  const std::string list = "<plist><string>&a;</string></plist>";
  EXPECT_FALSE(parsePropertyList("<!DOCTYPE plist []><plist><true/></plist>"));
  EXPECT_FALSE(parsePropertyList("<!DOCTYPE plist [<!ENTITY a \"b\">]>" + list));
  EXPECT_FALSE(parsePropertyList("<!DOCTYPE plist SYSTEM \"x\" [<!ENTITY % p \"q\">]>" + list));
}

TEST(ParsePropertyList, RefusesAnUnknownEntityBelowADoctypeToo) {
  const std::string head = kHeader + std::string(kDoctype);
  EXPECT_FALSE(parsePropertyList(head + "<plist><string>&a;</string></plist>"));
  EXPECT_FALSE(parsePropertyList(head + "<plist><array>&a;</array></plist>"));
  EXPECT_FALSE(parsePropertyList(head + "<plist version=\"&a;\"><array/></plist>"));
}

TEST(ParsePropertyList, ReadsEveryDocumentAsUtf8) {
  const std::string latin = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";
  EXPECT_EQ(parsePropertyList(latin + "<string>\xC3\xA4</string>"), PropertyValue("\xC3\xA4"));
  EXPECT_FALSE(parsePropertyList(latin + "<string>\xE4</string>"));
}

TEST(ParsePropertyList, RefusesUtf16WithAndWithoutAByteOrderMark) {
  std::string little;
  std::string big;
  for (const char letter : std::string("<plist><array><true/></array></plist>")) {
    little.append({letter, '\0'});
    big.append({'\0', letter});
  }
  EXPECT_FALSE(parsePropertyList("\xFF\xFE" + little));
  EXPECT_FALSE(parsePropertyList("\xFE\xFF" + big));
  EXPECT_FALSE(parsePropertyList(little));
  EXPECT_FALSE(parsePropertyList(big));
}

struct Bad {
  const char* name;
  std::string body;
};
void PrintTo(const Bad& bad, std::ostream* stream) { *stream << bad.body.substr(0, 80); }

std::string nameOf(const testing::TestParamInfo<Bad>& parameter) { return parameter.param.name; }

class RefusedBody : public testing::TestWithParam<Bad> {};

TEST_P(RefusedBody, IsAbsent) { EXPECT_FALSE(parse(GetParam().body)); }

INSTANTIATE_TEST_SUITE_P(
    ParsePropertyList, RefusedBody,
    testing::Values(
        Bad{"NoValue", ""}, Bad{"TextAlone", "text"}, Bad{"TwoValues", "<dict/><dict/>"},
        Bad{"TextBesideTheValue", "<dict/>text"}, Bad{"KeyAlone", "<key>a</key>"},
        Bad{"KeyWithoutValue", "<dict><key>a</key></dict>"},
        Bad{"ValueWithoutKey", "<dict><true/></dict>"},
        Bad{"TwoKeysForAValue", "<dict><key>a</key><key>b</key><true/></dict>"},
        Bad{"TwoValuesForAKey", "<dict><key>a</key><true/><true/></dict>"},
        Bad{"KeyInAnArray", "<array><key>a</key></array>"},
        Bad{"TextInAnArray", "<array>text</array>"}, Bad{"TextInADictionary", "<dict>text</dict>"},
        Bad{"UnknownElement", "<set/>"}, Bad{"OtherCase", "<Dict/>"},
        Bad{"LongName", "<dictionary/>"}, Bad{"PlistInPlist", "<plist><dict/></plist>"},
        Bad{"PlistBesideAValue", "<dict/><plist/>"},
        Bad{"PlistInAnArray", "<array><plist/></array>"},
        Bad{"ElementInAString", "<string><true/></string>"},
        Bad{"ElementInAKey", "<dict><key>a<true/></key></dict>"},
        Bad{"TextInTrue", "<true>x</true>"}, Bad{"TextInFalse", "<false>x</false>"},
        Bad{"UnknownEntity", "<string>&none;</string>"},
        Bad{"UnknownEntityInAnAttribute", "<array a=\"&none;\"/>"},
        Bad{"ReferenceInAnAttribute", "<array a=\"&amp;\"/>"}, Bad{"EmptyInteger", "<integer/>"},
        Bad{"WordInteger", "<integer>one</integer>"},
        Bad{"LargeInteger", "<integer>9223372036854775808</integer>"},
        Bad{"EmptyReal", "<real></real>"}, Bad{"WordReal", "<real>one</real>"},
        Bad{"LargeReal", "<real>1e999</real>"}, Bad{"ShortData", "<data>AAE</data>"},
        Bad{"WordData", "<data>A?==</data>"}, Bad{"UnclosedArray", "<array>"},
        Bad{"CrossedEnds", "<array><dict></array></dict>"}, Bad{"Binary", "bplist00\x01"}),
    nameOf);

class RefusedBytes : public testing::TestWithParam<Bad> {};

TEST_P(RefusedBytes, AreAbsentWhereverTheyStand) {
  const std::string& bytes = GetParam().body;
  EXPECT_FALSE(parse("<string>a" + bytes + "b</string>"));
  EXPECT_FALSE(parse("<dict><key>a" + bytes + "b</key><true/></dict>"));
  EXPECT_FALSE(parse("<string><![CDATA[" + bytes + "]]></string>"));
  EXPECT_FALSE(parse("<!-- " + bytes + " --><true/>"));
  EXPECT_FALSE(parse("<?a " + bytes + " ?><true/>"));
  EXPECT_FALSE(parse("<array a=\"" + bytes + "\"/>"));
  EXPECT_FALSE(parse("<array>" + bytes + "</array>"));
  EXPECT_FALSE(parsePropertyList(bytes + "<plist><true/></plist>"));
  EXPECT_FALSE(parsePropertyList("<!-- " + bytes + " --><plist><true/></plist>"));
  EXPECT_FALSE(parsePropertyList("<plist><true/></plist>" + bytes));
}

INSTANTIATE_TEST_SUITE_P(ParsePropertyList, RefusedBytes,
                         testing::Values(Bad{"Nul", std::string(1, '\0')}, Bad{"Control", "\x01"},
                                         Bad{"Escape", "\x1B"}, Bad{"LoneContinuation", "\x80"},
                                         Bad{"CutSequence", "\xC3"}, Bad{"Overlong", "\xC0\xAF"},
                                         Bad{"OverlongOfThree", "\xE0\x80\xAF"},
                                         Bad{"Surrogate", "\xED\xA0\x80"},
                                         Bad{"BeyondUnicode", "\xF4\x90\x80\x80"},
                                         Bad{"NoCharacter", "\xEF\xBF\xBF"}),
                         nameOf);

TEST(ParsePropertyList, RefusesReferencesToWhatIsNoCharacter) {
  for (const char* reference : {"&#0;", "&#1;", "&#xD800;", "&#xFFFF;", "&#x110000;", "&#;"}) {
    EXPECT_FALSE(parse("<string>" + std::string(reference) + "</string>")) << reference;
  }
}

TEST(ParsePropertyList, RefusesEveryTruncationOfAList) {
  const std::string list = kHeader + std::string(kDoctype) +
                           "<plist version=\"1.0\"><dict><key>a</key><array><integer>1</integer>"
                           "</array></dict></plist>";
  ASSERT_TRUE(parsePropertyList(list));
  for (std::size_t length = 0; length < list.size(); ++length) {
    EXPECT_FALSE(parsePropertyList(list.substr(0, length))) << length;
  }
}

TEST(ParsePropertyList, TakesFiveHundredAndTwelveLevelsAndNoMore) {
  const auto nested = [](std::size_t levels) {
    return parse(repeated("<array>", levels) + repeated("</array>", levels));
  };
  EXPECT_TRUE(nested(512));
  EXPECT_FALSE(nested(513));
  EXPECT_TRUE(parse(repeated("<dict><key>a</key>", 512) + "<true/>" + repeated("</dict>", 512)));
  EXPECT_FALSE(parse(repeated("<dict><key>a</key>", 512) + "<dict/>" + repeated("</dict>", 512)));
}

TEST(ParsePropertyList, RefusesAMillionLevelsAtOnce) {
  const std::string list = repeated("<array>", 1000000) + repeated("</array>", 1000000);
  EXPECT_LT(secondsOf([&] { EXPECT_FALSE(parsePropertyList(list)); }), 0.5);
}

TEST(ParsePropertyList, ReadsTextsOfAnyLengthAndRefusesTagsOfMegabytes) {
  const std::string text = repeated("0123456789\n", 500000);
  EXPECT_EQ(parse("<string>" + text + "</string>"), PropertyValue(text));
  EXPECT_TRUE(parse("<!--" + repeated("a", 500000) + "--><true/>"));
  EXPECT_FALSE(parse("<!--" + repeated("a", 5000000) + "--><true/>"));
  EXPECT_FALSE(parse("<array a=\"" + repeated("a", 5000000) + "\"/>"));
  EXPECT_FALSE(parse("<" + repeated("a", 5000000) + "/>"));
}

TEST(ParsePropertyList, ReadsAMillionKeys) {
  std::string list = "<dict>";
  for (int i = 0; i < 1000000; ++i) {
    list += "<key>key" + std::to_string(i) + "</key><integer>" + std::to_string(i) + "</integer>";
  }
  list += "<key>key7</key><integer>-1</integer></dict>";
  const auto root = parse(list);
  ASSERT_TRUE(root);
  const PropertyDictionary& dictionary = *root->asDictionary();
  ASSERT_EQ(dictionary.size(), 1000000U);
  EXPECT_EQ(dictionary.find("key7")->asInteger(), -1);
  EXPECT_EQ((dictionary.begin() + 7)->first, "key7");
  const double seconds = secondsOf([&] {
    for (int i = 8; i < 1000000; i += 99) {
      ASSERT_EQ(dictionary.find("key" + std::to_string(i))->asInteger(), i);
    }
  });
  EXPECT_LT(seconds, 2);  // Ten thousand searches from end to end would take minutes.
}

TEST(ParsePropertyList, TakesLinearTime) {
  const auto listOf = [](std::size_t items) {
    return "<array>" + repeated("<dict><key>name</key><string>a&amp;b</string></dict>\n", items) +
           "</array>";
  };
  const std::string small = listOf(5000);
  const std::string large = listOf(100000);
  const double smallSeconds = secondsOf([&] {
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(parsePropertyList(small));
  });
  const double largeSeconds = secondsOf([&] { EXPECT_TRUE(parsePropertyList(large)); });
  // Five times the items; a quadratic step would make it a hundred times and more.
  EXPECT_LT(largeSeconds, 20 * smallSeconds + 0.5);
}

TEST(ParseDictionary, TakesARootThatIsADictionaryOnly) {
  const auto dictionary = parseDictionary("<plist><dict><key>a</key><true/></dict></plist>");
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->find("a")->asBoolean(), true);
  EXPECT_TRUE(parseDictionary("<plist><dict/></plist>"));
  EXPECT_FALSE(parseDictionary("<plist><array/></plist>"));
  EXPECT_FALSE(parseDictionary("<plist>"));
}

}  // namespace
}  // namespace halyard::host

#include "host/property_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace halyard::host {
namespace {

using testing::ElementsAre;

std::string document(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body +
         "</plist>\n";
}

std::optional<PropertyValue> parse(const std::string& body) {
  return parsePropertyList(document(body));
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
  EXPECT_EQ(dictionary.find("h")->asArray()->size(), 1U);
  EXPECT_TRUE(dictionary.find("i")->asDictionary()->empty());
}

TEST(ParsePropertyList, KeepsFileOrderAndTheLastOfARepeatedKey) {
  const auto root = parse(
      "<dict><key>z</key><integer>1</integer><key>a</key><integer>2</integer>"
      "<key>z</key><integer>3</integer></dict>");
  ASSERT_TRUE(root);
  std::vector<std::string> keys;
  for (const auto& [key, value] : *root->asDictionary()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("z", "a"));
  EXPECT_EQ(root->asDictionary()->find("z")->asInteger(), 3);
}

class Refused : public testing::TestWithParam<const char*> {};
TEST_P(Refused, IsAbsent) { EXPECT_FALSE(parse(GetParam())) << GetParam(); }
INSTANTIATE_TEST_SUITE_P(
    ParsePropertyList, Refused,
    testing::Values("", "text", "<dict/><dict/>", "<key>a</key>", "<dict><key>a</key></dict>",
                    "<dict><true/></dict>", "<dict><key>a</key><key>b</key><true/></dict>",
                    "<dict><key>a</key><true/><true/></dict>", "<array><key>a</key></array>",
                    "<array>text</array>", "<dict>text</dict>", "<set/>", "<Dict/>",
                    "<plist><dict/></plist>", "<array><plist/></array>", "<string><true/></string>",
                    "<true>x</true>", "<string>&none;</string>", "<string>&#0;</string>",
                    "<string>a\x01</string>", "<string>\xFF</string>", "<array a=\"&none;\"/>"));

TEST(WritePropertyList, WritesTheUsualForm) {
  PropertyDictionary dictionary;
  dictionary.set("a", "x & <y>\r");
  dictionary.set("b", PropertyArray{1, 1.5, true, PropertyArray(), PropertyDictionary()});
  dictionary.set("c", PropertyValue::data("abc"));
  EXPECT_EQ(writePropertyList(dictionary),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist>\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>a</key>\n"
            "\t<string>x &amp; &lt;y&gt;&#13;</string>\n"
            "\t<key>b</key>\n"
            "\t<array>\n"
            "\t\t<integer>1</integer>\n"
            "\t\t<real>1.5</real>\n"
            "\t\t<true/>\n"
            "\t\t<array/>\n"
            "\t\t<dict/>\n"
            "\t</array>\n"
            "\t<key>c</key>\n"
            "\t<data>\n"
            "\tYWJj\n"
            "\t</data>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(WritePropertyList, IsReadBackEqual) {
  PropertyDictionary inner;
  inner.set("\xC3\xA4\t\n\r", PropertyValue::date("2026-01-02T03:04:05Z"));
  const PropertyValue value(PropertyArray{inner, std::numeric_limits<std::int64_t>::min(), 0.1,
                                          -0.0, std::numeric_limits<double>::quiet_NaN(),
                                          -std::numeric_limits<double>::infinity(), false, "",
                                          PropertyValue::data(std::string(200, '\xFE'))});
  EXPECT_EQ(parsePropertyList(writePropertyList(value)), value);
}

TEST(ParsePropertyList, TakesFiveHundredAndTwelveLevelsAndNoMore) {
  const auto nested = [](int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += "<array>";
    for (int i = 0; i < levels; ++i) text += "</array>";
    return text;
  };
  EXPECT_TRUE(parse(nested(512)));
  EXPECT_FALSE(parse(nested(513)));
  EXPECT_FALSE(parse(nested(1000000)));
}

}  // namespace
}  // namespace halyard::host

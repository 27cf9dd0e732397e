// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include "base/property_list.h"
#include "base/text.h"

namespace halyard::host {
namespace {

constexpr char kHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist>\n"
    "<plist version=\"1.0\">\n";

std::string textWritten(const std::string& text) {
  const std::string list = writePropertyList(PropertyValue(text));
  const std::string start = std::string(kHead) + "<string>";
  const std::string end = "</string>\n</plist>\n";
  EXPECT_TRUE(list.starts_with(start) && list.ends_with(end)) << list;
  return list.substr(start.size(), list.size() - start.size() - end.size());
}

TEST(WritePropertyList, WritesTheUsualForm) {
  PropertyDictionary dictionary;
  dictionary.set("a", "text");
  dictionary.set("b", PropertyArray{1, 1.5, true, false, PropertyArray(), PropertyDictionary()});
  dictionary.set("c", PropertyValue::data("abc"));
  dictionary.set("d", PropertyValue::date("2026-01-02T03:04:05Z"));
  dictionary.set("e", "");
  const std::string expected = std::string(kHead) +
                               "<dict>\n"
                               "\t<key>a</key>\n"
                               "\t<string>text</string>\n"
                               "\t<key>b</key>\n"
                               "\t<array>\n"
                               "\t\t<integer>1</integer>\n"
                               "\t\t<real>1.5</real>\n"
                               "\t\t<true/>\n"
                               "\t\t<false/>\n"
                               "\t\t<array/>\n"
                               "\t\t<dict/>\n"
                               "\t</array>\n"
                               "\t<key>c</key>\n"
                               "\t<data>\n"
                               "\tYWJj\n"
                               "\t</data>\n"
                               "\t<key>d</key>\n"
                               "\t<date>2026-01-02T03:04:05Z</date>\n"
                               "\t<key>e</key>\n"
                               "\t<string></string>\n"
                               "</dict>\n"
                               "</plist>\n";
  EXPECT_EQ(writePropertyList(dictionary), expected);
  EXPECT_EQ(writePropertyList(PropertyValue(dictionary)), expected);
}

TEST(WritePropertyList, WritesAnEmptyDictionary) {
  EXPECT_EQ(writePropertyList(PropertyDictionary()), std::string(kHead) + "<dict/>\n</plist>\n");
}

TEST(WritePropertyList, EscapesMarkupAndTheCarriageReturn) {
  EXPECT_EQ(textWritten("a & <b> \"c\" 'd' ]]>\r\n\t"),
            "a &amp; &lt;b&gt; \"c\" 'd' ]]&gt;&#13;\n\t");
  PropertyDictionary dictionary;
  dictionary.set("<&>", true);
  EXPECT_EQ(
      writePropertyList(dictionary),
      std::string(kHead) + "<dict>\n\t<key>&lt;&amp;&gt;</key>\n\t<true/>\n</dict>\n</plist>\n");
}

TEST(WritePropertyList, KeepsLettersOutsideAscii) {
  EXPECT_EQ(textWritten("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\x7F"),
            "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\x7F");
}

TEST(WritePropertyList, ReplacesWhatXmlCannotCarry) {
  EXPECT_EQ(textWritten(std::string("\0", 1)), "\xEF\xBF\xBD");
  EXPECT_EQ(textWritten("a\x1B\x08z"), "a\xEF\xBF\xBD\xEF\xBF\xBDz");
  EXPECT_EQ(textWritten("\xFF\xC3(\xED\xA0\x80"),
            "\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(textWritten("\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD"),
            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(WritePropertyList, WritesDataInLinesOfSeventySixCharacters) {
  const std::string list = writePropertyList(PropertyValue::data(std::string(60, '\0')));
  EXPECT_EQ(list, std::string(kHead) + "<data>\n" + std::string(76, 'A') + "\nAAAA\n</data>\n" +
                      "</plist>\n");
  EXPECT_EQ(writePropertyList(PropertyValue::data("")),
            std::string(kHead) + "<data>\n</data>\n</plist>\n");
}

TEST(WritePropertyList, StopsIndentingAtThirtyTwoLevels) {
  PropertyValue value("x");
  for (int i = 0; i < 500; ++i) {
    PropertyArray array;
    array.push_back(std::move(value));
    value = std::move(array);
  }
  const std::string list = writePropertyList(value);
  EXPECT_NE(list.find("\n" + std::string(32, '\t') + "<string>x</string>\n"), std::string::npos);
  EXPECT_EQ(list.find(std::string(33, '\t')), std::string::npos);
}

TEST(WritePropertyList, HandsOutPiecesOfABoundedSize) {
  PropertyArray array;
  for (int i = 0; i < 20000; ++i) array.emplace_back("element " + std::to_string(i));
  array.emplace_back(std::string(300000, 'x'));
  const PropertyValue value(std::move(array));
  std::string text;
  std::size_t longest = 0;
  writePropertyList(value, [&](std::string_view piece) {
    longest = std::max(longest, piece.size());
    text += piece;
  });
  EXPECT_EQ(text, writePropertyList(value));
  EXPECT_LE(longest, 65536U);
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/computer_name.h"

#include <gtest/gtest.h>

namespace halyard {
namespace {

TEST(ComputerName, IsFoundInThreeSteps) {
  const auto preferences = parseDictionary(
      "<plist><dict><key>System</key><dict><key>System</key><dict><key>ComputerName</key>"
      "<string>files1</string></dict></dict></dict></plist>");
  EXPECT_EQ(computerNameIn(preferences), "files1");
}

TEST(ComputerName, IsUnknownWhenAStepFindsNothing) {
  EXPECT_EQ(computerNameIn(std::nullopt), "Unknown_Computer");
  for (const char* text :
       {"<plist><dict/></plist>", "<plist><dict><key>System</key><dict/></dict></plist>",
        "<plist><dict><key>System</key><dict><key>System</key><dict><key>ComputerName</key>"
        "<integer>1</integer></dict></dict></dict></plist>"}) {
    EXPECT_EQ(computerNameIn(parseDictionary(text)), "Unknown_Computer") << text;
  }
}

TEST(ComputerName, IsTheFirstLabelOfTheHostName) {
  EXPECT_EQ(computerNameFromHostName("files1.example.org"), "files1");
  EXPECT_EQ(computerNameFromHostName("a/b c"), "abc");
  EXPECT_EQ(computerNameFromHostName(""), "Unknown_Computer");
  EXPECT_EQ(computerNameFromHostName(".hidden"), "Unknown_Computer");
}

TEST(ComputerName, ThatIsSetIsFoundAndLeavesTheRestAlone) {
  auto configuration = parseDictionary(
      "<plist><dict><key>Other</key><string>kept</string><key>System</key><dict><key>System</key>"
      "<dict><key>HostName</key><string>kept too</string></dict></dict></dict></plist>");
  ASSERT_TRUE(configuration.has_value());
  setComputerName(*configuration, "files1");
  EXPECT_EQ(computerNameIn(configuration), "files1");
  EXPECT_EQ(configuration->text("Other"), "kept");
  EXPECT_EQ(configuration->dictionary("System")->dictionary("System")->text("HostName"),
            "kept too");
}

TEST(ComputerName, IsUsableAsTheNameOfAVisibleFolder) {
  EXPECT_TRUE(isUsableComputerName("Accounting Office"));
  EXPECT_TRUE(isUsableComputerName(std::string(255, 'a')));
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string(".hidden"),
        std::string("a/b"), std::string("a\0b", 3), std::string(256, 'a')}) {
    EXPECT_FALSE(isUsableComputerName(name)) << name;
  }
}

}  // namespace
}  // namespace halyard

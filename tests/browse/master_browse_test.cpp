// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "browse/master_browse.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace halyard {
namespace {

ListingRoot rootOf(const std::string& xml) {
  return listingRoot(parsePropertyList("<plist version=\"1.0\">" + xml + "</plist>"));
}

TEST(ListingRoot, WhatWasNotParsedHoldsNoData) {
  EXPECT_EQ(listingRoot(std::nullopt), ListingRoot::noData);
  EXPECT_EQ(rootOf("<array>"), ListingRoot::noData);
}

TEST(ListingRoot, AnEmptyListOrDictionaryHoldsNoData) {
  EXPECT_EQ(rootOf("<array/>"), ListingRoot::noData);
  EXPECT_EQ(rootOf("<dict/>"), ListingRoot::noData);
}

TEST(ListingRoot, OneEntryIsEnough) {
  EXPECT_EQ(rootOf("<array><dict/></array>"), ListingRoot::filled);
  EXPECT_EQ(rootOf("<dict><key></key><array/></dict>"), ListingRoot::filled);
}

TEST(ListingRoot, AnyOtherValueIsUnusable) {
  for (const char* value :
       {"<string>text</string>", "<string/>", "<integer>1</integer>", "<real>1.5</real>", "<true/>",
        "<false/>", "<date>2026-11-14T10:00:00Z</date>", "<data>AAAA</data>"}) {
    EXPECT_EQ(rootOf(value), ListingRoot::unusable) << value;
  }
}

}  // namespace
}  // namespace halyard

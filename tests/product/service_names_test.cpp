// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/service_names.h"

#include <gtest/gtest.h>

namespace halyard {
namespace {

TEST(ServiceNames, OneOfTheSevenIsBackedUpUnlessItsFlagIsZero) {
  EXPECT_FALSE(isBackedUp("postHost", 0));
  EXPECT_TRUE(isBackedUp("postHost", 1));
  EXPECT_TRUE(isBackedUp("postHost", -3));
}

TEST(ServiceNames, AnyOtherIsAlwaysBackedUp) {
  EXPECT_TRUE(isBackedUp("archiveHost", 0));
  EXPECT_TRUE(isBackedUp("posthost", 0));
  EXPECT_TRUE(isBackedUp("", 0));
}

TEST(ServiceNames, AFlagThatIsNotInThePreferencesIsZero) {
  PropertyDictionary services;
  services.set("siteHost", 1);
  services.set("postHost", 0);
  services.set("archiveHost", 0);
  EXPECT_TRUE(isBackedUp(services, "siteHost"));
  EXPECT_FALSE(isBackedUp(services, "postHost"));
  EXPECT_FALSE(isBackedUp(services, "depotHost"));
  EXPECT_TRUE(isBackedUp(services, "archiveHost"));
}

TEST(ServiceNames, HaveTheirPlacesInTheFixedOrder) {
  EXPECT_EQ(knownServiceIndex("agendaHost"), 0U);
  EXPECT_EQ(knownServiceIndex("siteHost"), 6U);
  EXPECT_EQ(knownServiceIndex("SiteHost"), std::nullopt);
}

}  // namespace
}  // namespace halyard

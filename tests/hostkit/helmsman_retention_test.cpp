// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which snapshots stay, and how often they are read, as "helmsman schedule" sets it.
#include <gtest/gtest.h>

#include "base/property_list.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using HelmsmanRetention = test::HostKitTest;

constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";
constexpr char kEngineConfig[] = "/etc/halyard-host/snapwheel.conf";
constexpr char kScrubTimer[] = "/etc/systemd/system/halyard-scrub.timer.d/schedule.conf";
constexpr char kTimer[] = "/etc/systemd/system/halyard-backup.timer.d/schedule.conf";

TEST_F(HelmsmanRetention, WritesTheRulesWhereTheEngineReadsThem) {
  root.writeFile(kEngineConfig, "# mine\nexclude = /scratch/*\nkeep-yearly=9\n");
  auto result = helmsman({"schedule", "--keep", "daily=7,weekly=4,monthly=12"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile(kEngineConfig),
            "# mine\nexclude = /scratch/*\ndays-to-retain = 0\nkeep-daily = 7\nkeep-weekly = 4\n"
            "keep-monthly = 12\n");
  EXPECT_EQ(helmsman({"schedule"}).out,
            "on: every day at 02:00, snapshots kept daily 7, weekly 4, monthly 12\n"
            "a part of the repository is read weekly\n");
  const auto shown = helmsmanJson({"schedule", "--json"});
  EXPECT_EQ(shown["keep"]["weekly"], 4);
  EXPECT_EQ(shown["keep"]["yearly"], 0);
  EXPECT_EQ(shown["keep"]["days"], 0);
  EXPECT_EQ(helmsman({"schedule", "--keep", "days=14,hourly=24"}).status, 0);
  EXPECT_EQ(root.readFile(kEngineConfig), "# mine\nexclude = /scratch/*\nkeep-hourly = 24\n");
  EXPECT_EQ(parseDictionary(root.readFile(kEngine))
                .value_or(PropertyDictionary{})
                .find("DaysToRetain")
                ->integerValue(),
            14);
  EXPECT_EQ(helmsman({"schedule", "--keep", "none"}).status, 0);
  EXPECT_EQ(root.readFile(kEngineConfig), "# mine\nexclude = /scratch/*\ndays-to-retain = 0\n");
  EXPECT_EQ(helmsman({"schedule"}).out,
            "on: every day at 02:00, snapshots kept for ever\n"
            "a part of the repository is read weekly\n");
  EXPECT_EQ(helmsman({"schedule", "--keep", "30"}).status, 0);
  EXPECT_EQ(root.readFile(kEngineConfig), "# mine\nexclude = /scratch/*\n");
}

TEST_F(HelmsmanRetention, RefusesRulesThatMakeNoSense) {
  for (const char* keep : {"daily", "daily=", "daily=0", "daily=-1", "daily=7x", "daily=7,daily=8",
                           "daily=7,", "", "=7", "daily=99999999", "fortnightly=2", "days=0"}) {
    const auto result = refused("helmsman", {"schedule", std::string("--keep=") + keep});
    EXPECT_EQ(result.status, 2) << keep;
  }
  EXPECT_FALSE(root.exists(kEngineConfig));
}

TEST_F(HelmsmanRetention, SchedulesTheReadingOfTheRepository) {
  EXPECT_EQ(refused("helmsman", {"schedule", "--scrub", "fortnightly"}).status, 2);
  EXPECT_FALSE(root.exists(kScrubTimer));
  const auto result = helmsman({"schedule", "--scrub", "monthly"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(root.readFile(kScrubTimer).find("OnCalendar=*-*-01 13:00:00\n"), std::string::npos);
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "scrub = monthly\n");
  EXPECT_FALSE(root.exists(kTimer)) << "the backups' own timer is left alone";
  EXPECT_EQ(helmsmanJson({"schedule", "--json"})["scrub"], "monthly");
  EXPECT_EQ(helmsman({"schedule", "--scrub", "off"}).status, 0);
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "scrub = off\n");
}

TEST_F(HelmsmanRetention, ReadsTheRepositoryEveryWeekUnlessSomethingWasChosen) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "# mine\nstall-limit = 30min\n");
  ASSERT_EQ(helmsman({"schedule", "--off", "--at", "03:00"}).status, 0);
  EXPECT_FALSE(root.exists(kScrubTimer)) << "no schedule is on";
  const auto result = helmsman({"schedule", "--on"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.err.find("a part of the repository is read every week"), std::string::npos);
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"),
            "# mine\nstall-limit = 30min\nscrub = weekly\n");
  EXPECT_NE(root.readFile(kScrubTimer).find("OnCalendar=Sun *-*-* 13:00:00\n"), std::string::npos);
  for (const char* chosen : {"off", "monthly"}) {
    ASSERT_EQ(helmsman({"schedule", "--scrub", chosen}).status, 0);
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"schedule", "--on"}, {"schedule", "--keep", "9"}, {"setup"}}) {
      EXPECT_EQ(helmsman(words).err.find("is read every week"), std::string::npos) << words[0];
    }
    EXPECT_EQ(helmsmanJson({"schedule", "--json"})["scrub"], chosen);
  }
}

TEST_F(HelmsmanRetention, SetupHasTheRepositoryReadEveryWeek) {
  EXPECT_EQ(helmsman({"setup"}).status, 0);
  EXPECT_TRUE(root.exists(kScrubTimer));
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "scrub = weekly\n");
}

TEST_F(HelmsmanRetention, WhatAnOddConfigurationChoseIsLeftAlone) {
  root.writeFile("/etc/halyard-host/helmsman.conf", "scrub = daily\n");
  const auto result = helmsman({"schedule", "--on"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("whether the repository is read stays as it is"), std::string::npos);
  EXPECT_EQ(root.readFile("/etc/halyard-host/helmsman.conf"), "scrub = daily\n");
  EXPECT_FALSE(root.exists(kScrubTimer));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Services that are not on this host, servers that no service covers, plain words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backup_test.h"
#include "helmsman/settings/servers.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kShipped[] = "/usr/libexec/halyard/siteHost";

class HelmsmanServers : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kShipped);
    root.writeDescriptor("60-siteHost.plist", descriptorOf("siteHost", kShipped));
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}, {"siteHost", 1}});
  }

  nlohmann::json siteIn(const nlohmann::json& services) const {
    for (const auto& service : services) {
      if (service["name"] == "siteHost") return service;
    }
    return {};
  }
};

TEST_F(HelmsmanServers, AServiceThatIsNotOnThisHostIsNotCalledGood) {
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::ContainsRegex("siteHost +not on this host"));
  EXPECT_THAT(result.out, HasSubstr("Result: good"));
  EXPECT_EQ(siteIn(record()["services"])["result"], "not on this host");
  EXPECT_FALSE(record()["lastGood"].contains("siteHost"));
  EXPECT_TRUE(record()["lastGood"].contains("depotHost"));

  const auto site = siteIn(helmsmanJson({"status", "--json"})["services"]);
  EXPECT_EQ(site["lastResult"], "not on this host");
  EXPECT_EQ(site["onThisHost"], false);
  EXPECT_EQ(site["lastGood"], nullptr);
  EXPECT_THAT(helmsman({"status"}).out, testing::ContainsRegex("siteHost +not on this host"));
  EXPECT_THAT(helmsman({"check"}).err, HasSubstr("siteHost is not on this host"));
  EXPECT_THAT(helmsman({"metrics"}).out, Not(HasSubstr("result{service=\"siteHost\"}")));
}

TEST_F(HelmsmanServers, ASnapshotDoesNotHoldAServiceThatWasNotOnTheHost) {
  ASSERT_EQ(helmsman({"backup"}).status, 0);
  const auto document = helmsmanJson({"snapshots", "--json"});
  const auto& snapshot = document["snapshots"][0];
  EXPECT_THAT(snapshot["services"].dump(), Not(HasSubstr("siteHost")));
  EXPECT_EQ(snapshot["notOnThisHost"], nlohmann::json::array({"siteHost"}));
  EXPECT_THAT(helmsman({"snapshots"}).out, HasSubstr("(not on this host: siteHost)"));
  EXPECT_EQ(helmsman({"restore", "siteHost", "--yes"}).status, 1);
}

TEST_F(HelmsmanServers, AServerBringsItsServiceOntoTheHost) {
  root.writeScript("/usr/sbin/nginx", "exit 0");
  ASSERT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_EQ(siteIn(record()["services"])["result"], "good");
}

TEST_F(HelmsmanServers, DataWithoutAServerAreOnTheHost) {
  root.writeDescriptor("60-siteHost.plist",
                       descriptorOf("siteHost", kShipped).list("DataFiles", {"/web"}));
  root.makeFolder("/web");
  EXPECT_EQ(siteIn(helmsmanJson({"status", "--json"})["services"])["onThisHost"], false);
  root.writeFile("/web/page", "x");
  EXPECT_EQ(siteIn(helmsmanJson({"status", "--json"})["services"])["onThisHost"], true);
}

TEST_F(HelmsmanServers, AServerThatNothingCoversIsNamed) {
  root.writeScript("/usr/bin/redis-server", "exit 0");
  root.writeScript("/usr/sbin/named", "exit 0");
  for (const char* command : {"setup", "check", "status"}) {
    const auto result = helmsman({command});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_THAT(result.out + result.err,
                HasSubstr("Redis is on this host (/usr/bin/redis-server) and no service covers it"))
        << command;
    EXPECT_THAT(result.out + result.err, HasSubstr("BIND is on this host")) << command;
  }
  const auto uncovered = helmsmanJson({"status", "--json"})["uncovered"];
  ASSERT_EQ(uncovered.size(), 2U);
  EXPECT_EQ(uncovered[0]["server"], "Redis");
  EXPECT_EQ(uncovered[0]["service"], nullptr);
}

TEST_F(HelmsmanServers, AServerWhoseServiceIsOffIsNamedWithTheCommand) {
  root.writeScript("/usr/sbin/nginx", "exit 0");
  EXPECT_THAT(helmsman({"status"}).out, Not(HasSubstr("Not covered")));
  root.writePreferences({{"depotHost", 1}, {"postHost", 1}, {"siteHost", 0}});
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("siteHost is off (see: helmsman enable web)"));
}

TEST_F(HelmsmanServers, APlainWordNamesItsService) {
  EXPECT_EQ(helmsman({"disable", "web", "Shares"}).err,
            "helmsman: siteHost is off now\nhelmsman: depotHost is off now\n");
  EXPECT_EQ(helmsman({"enable", "web"}).err, "helmsman: siteHost is on now\n");
  ASSERT_EQ(helmsman({"backup"}).status, 0);
  EXPECT_THAT(helmsman({"restore", "mail", "--dry-run"}).out,
              HasSubstr("the restore program of postHost"));
  EXPECT_THAT(helmsman({"restore", "databases", "--yes"}).err,
              HasSubstr("there is no service 'databases'"));
}

TEST_F(HelmsmanServers, AServiceThatIsCalledLikeAPlainWordComesFirst) {
  root.writeDescriptor("70-web.plist", descriptorOf("web", test::kPlugin));
  root.writePreferences({{"web", 1}, {"siteHost", 1}});
  EXPECT_THAT(helmsman({"disable", "web"}).err, HasSubstr("web: every backup takes it"));
}

TEST_F(HelmsmanServers, HelpNamesThePlainWords) {
  EXPECT_THAT(refused("helmsman", {"--help"}).out, HasSubstr("mail (postHost)"));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which services "helmsman verify" compares when none is named, and what it says of the others.
#include <gmock/gmock.h>

#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::HasSubstr;

constexpr char kPlugin[] = "/usr/libexec/plugin";
constexpr char kHostFolder[] = "/Volumes/Backup/Archives.snapdb/files1/";
constexpr char kOlder[] = "2026-11-20-020000";
constexpr char kNewest[] = "2026-11-21-020000";

// Two snapshots with depotHost, which is as it was.
class VerifyAll : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin, "echo 'Number of failures to match := 0'");
    root.writePreferences({{"depotHost", 1}});
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", kPlugin));
    for (const char* name : {kOlder, kNewest}) {
      root.writeFile(metadata(name) + ".halyardSignature", name);
      root.writeFile(metadata(name) + "depotHost/file", "data");
    }
    root.makeLink(std::string(kHostFolder) + "Latest", kNewest);
  }
  static std::string metadata(const std::string& name) {
    return kHostFolder + name + "/System/.Halyards/";
  }
  // A service whose shipped plug-in finds nothing of it on this host.
  void installAbsent() const {
    root.writePlugin("/usr/libexec/halyard/rosterHost", "echo 'Number of failures to match := 3'");
    root.writePreferences({{"depotHost", 1}, {"rosterHost", 1}});
    root.writeDescriptor("20-rosterHost.plist",
                         descriptorOf("rosterHost", "/usr/libexec/halyard/rosterHost"));
  }
  // Empty for a service that is not named at all.
  std::string stateOf(const std::string& service) const {
    auto document = helmsmanJson({"verify", "--json"});
    for (const auto& entry : document["services"]) {
      if (entry["service"] == service) return entry.value("state", "unknown");
    }
    return "";
  }
};

TEST_F(VerifyAll, IsSuccessWhenEveryServiceThatIsExpectedMatches) {
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(stateOf("depotHost"), "verified");
}

TEST_F(VerifyAll, NamesAServiceThatNoSnapshotHolds) {
  root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
  root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", kPlugin));
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("postHost was not verified: no snapshot holds it\n"));
  EXPECT_THAT(result.out, HasSubstr("postHost   not verified  -"));
  auto document = helmsmanJson({"verify", "--json"});
  EXPECT_EQ(document["services"][1]["state"], "not verified");
  EXPECT_EQ(document["services"][1]["reason"], "no snapshot holds it");
  EXPECT_EQ(document["services"][1]["snapshot"], nullptr);
}

TEST_F(VerifyAll, NamesAServiceThatThePreferencesDoNotList) {
  root.writeDescriptor("70-ledgerHost.plist", descriptorOf("ledgerHost", kPlugin));
  root.writeFile(metadata(kNewest) + "ledgerHost/file", "data");
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("ledgerHost was not verified: Halyard verifies what its "
                                    "preferences list; list it in /private/etc/halyard/"));
}

TEST_F(VerifyAll, NamesAServiceThatIsOnWithoutADescriptor) {
  root.writePreferences({{"depotHost", 1}, {"siteHost", 1}});
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("siteHost was not verified: it is switched on and has no "
                                    "descriptor (see: helmsman disable siteHost)\n"));
}

TEST_F(VerifyAll, SaysOfAServiceThatIsOffThatItIsNotEnabled) {
  root.writePreferences({{"depotHost", 1}, {"postHost", 0}});
  root.writeFile(metadata(kNewest) + "postHost/file", "data");
  const auto result = helmsman({"verify", "postHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("postHost was not verified: it is not enabled "
                                    "(see: helmsman enable postHost)\n"));
  EXPECT_EQ(helmsman({"verify", "postHost", "depotHost"}).status, 4);
}

TEST_F(VerifyAll, ComparesAServiceThatIsOffByADescriptorThatIsThere) {
  root.writePreferences({{"depotHost", 0}});
  EXPECT_EQ(helmsman({"verify", "depotHost"}).status, 0);
}

TEST_F(VerifyAll, NamesADescriptorThatCannotBeRead) {
  root.writeFile("/private/etc/halyard/50-siteHost.plist", "<plist><dict>");
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("50-siteHost.plist is no descriptor that can be read"));
  EXPECT_THAT(helmsmanJson({"verify", "--json"})["problems"][0].dump(),
              HasSubstr("50-siteHost.plist"));
}

TEST_F(VerifyAll, PassesOverAServiceThatIsOff) {
  root.writePreferences({{"depotHost", 1}, {"postHost", 0}});
  root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", kPlugin));
  EXPECT_EQ(helmsman({"verify"}).status, 0);
  EXPECT_EQ(stateOf("postHost"), "");
}

TEST_F(VerifyAll, IsNoFailureForWhatIsNotOnThisHost) {
  installAbsent();
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("rosterHost  not on this host  -"));
  EXPECT_EQ(stateOf("rosterHost"), "not on this host");
  // An older snapshot held it, and the newest knows that it is gone.
  root.writeFile(metadata(kOlder) + "rosterHost/file", "data");
  root.writeFile(metadata(kNewest) + "rosterHost/not-on-this-host", "");
  EXPECT_EQ(helmsman({"verify"}).status, 0);
}

TEST_F(VerifyAll, IsAFailureForWhatWasOnThisHostWhenTheNewestWasTaken) {
  installAbsent();
  root.writeFile(metadata(kNewest) + "rosterHost/file", "data");
  EXPECT_EQ(helmsman({"verify"}).status, 1);
  EXPECT_EQ(stateOf("rosterHost"), "verified");
}

TEST_F(VerifyAll, NamesAServiceThatCameAfterTheNewest) {
  installAbsent();
  root.writeFile(metadata(kNewest) + "rosterHost/not-on-this-host", "");
  root.writeFile("/usr/sbin/slapd", "", 0755);
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("it was not on this host when 2026-11-21-020000 was taken"));
}

TEST_F(VerifyAll, IsAFailureWhenNothingIsExpected) {
  root.writePreferences({{"depotHost", 0}});
  EXPECT_EQ(helmsman({"verify"}).status, 1);
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What helmsman writes to the system journal, read where the journal would read it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>

#include "backup_test.h"

namespace halyard::hostkit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr char kSocket[] = "/run/systemd/journal/socket";
using Fields = std::map<std::string, std::string>;

class HelmsmanJournal : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    root.makeFolder("/run/systemd/journal");
    socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = root.path(kSocket);
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as bind takes it.
    ASSERT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  void TearDown() override {
    if (socket_ >= 0) (void)::close(socket_);
    BackupTest::TearDown();
  }

  // The fields of helmsman of each entry that came in: "KEY=value" a line.
  std::vector<Fields> entries() const {
    std::vector<Fields> result;
    std::string text(65536, '\0');
    for (ssize_t size = 0; (size = ::recv(socket_, text.data(), text.size(), 0)) > 0;) {
      Fields fields;
      std::string_view rest(text.data(), static_cast<std::size_t>(size));
      while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        fields.emplace(line.substr(0, line.find('=')), line.substr(line.find('=') + 1));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
      }
      result.push_back(fields);
    }
    return result;
  }

 private:
  int socket_ = -1;
};

TEST_F(HelmsmanJournal, ABackupHasAnEntryForEachServiceAndOneForTheRun) {
  root.writePlugin("/usr/libexec/broken", "exit 7");
  root.writeDescriptor("30-depotHost.plist",
                       test::descriptorOf("depotHost", "/usr/libexec/broken"));
  EXPECT_EQ(helmsman({"backup"}).status, 4);
  const std::string snapshot = record()["snapshot"];
  const auto common = [&](const std::string& result, const std::string& priority,
                          const std::string& message) {
    return Fields{{"HALYARD_COMMAND", "backup"},  {"HALYARD_RESULT", result},
                  {"HALYARD_SNAPSHOT", snapshot}, {"MESSAGE", message},
                  {"PRIORITY", priority},         {"SYSLOG_IDENTIFIER", "helmsman"}};
  };
  Fields depot = common("failed", "3", "backup of depotHost: failed");
  depot["HALYARD_SERVICE"] = "depotHost";
  Fields post = common("good", "6", "backup of postHost: good");
  post["HALYARD_SERVICE"] = "postHost";
  EXPECT_THAT(entries(), ElementsAre(depot, post, common("partial", "4", "backup: partial")));
}

TEST_F(HelmsmanJournal, AServiceThatIsNotOnThisHostIsNotCalledGood) {
  root.writePlugin("/usr/libexec/halyard/siteHost");
  root.writeDescriptor("60-siteHost.plist",
                       test::descriptorOf("siteHost", "/usr/libexec/halyard/siteHost"));
  root.writePreferences({{"depotHost", 1}, {"postHost", 1}, {"siteHost", 1}});
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  const auto all = entries();
  ASSERT_THAT(all, SizeIs(4));
  EXPECT_EQ(all[2].at("HALYARD_SERVICE"), "siteHost");
  EXPECT_EQ(all[2].at("HALYARD_RESULT"), "not on this host");
  EXPECT_EQ(all[2].at("MESSAGE"), "backup of siteHost: not on this host");
  EXPECT_EQ(all[2].at("PRIORITY"), "6");
}

TEST_F(HelmsmanJournal, ARunWithoutASnapshotHasNoFieldForIt) {
  installEngine("exit 1");
  EXPECT_EQ(helmsman({"backup"}).status, 1);
  const auto all = entries();
  ASSERT_THAT(all, SizeIs(3));
  EXPECT_EQ(all.back().at("HALYARD_RESULT"), "failed");
  EXPECT_FALSE(all.back().contains("HALYARD_SNAPSHOT"));
}

TEST_F(HelmsmanJournal, ARestoreHasOneEntry) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  (void)entries();
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  const auto all = entries();
  ASSERT_THAT(all, SizeIs(1)) << result.err;
  EXPECT_EQ(all[0].at("HALYARD_COMMAND"), "restore");
  EXPECT_EQ(all[0].at("HALYARD_SERVICE"), "depotHost");
  EXPECT_EQ(all[0].at("HALYARD_RESULT"), result.status == 0 ? "good" : "failed");
  EXPECT_THAT(all[0].at("HALYARD_SNAPSHOT"), HasSubstr("/Archives.snapdb/files1/"));
}

TEST_F(HelmsmanJournal, ARestoreInPartIsNeitherGoodNorFailed) {
  EXPECT_EQ(helmsman({"backup"}).status, 0);
  (void)entries();
  root.writePlugin(test::kPlugin, "[ \"$2\" = verify ] && echo 'Number of failures to match := 0'");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 4);
  const auto all = entries();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].at("HALYARD_RESULT"), "partial");
  EXPECT_EQ(all[0].at("PRIORITY"), "4");
  EXPECT_EQ(all[0].at("MESSAGE"), "restore of depotHost: partial");
}

TEST_F(HelmsmanJournal, AHostWithoutAJournalIsBackedUpAllTheSame) {
  root.remove("/run/systemd");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err.find("journal"), std::string::npos);
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A private root with one service, and a good backup of it that check, status and metrics tell of.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "common/times.h"
#include "host_kit_root.h"
#include "product/snapshot_name.h"

namespace halyard::hostkit {

using test::descriptorOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

inline constexpr char kPlugin[] = "/usr/libexec/plugin";
inline constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";
inline constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";

class HelmsmanCheck : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin, "[ \"$2\" = size ] && echo 'total := 10'\nexit 0");
    root.writePreferences({{"depotHost", 1}});
    writeDepot(descriptorOf("depotHost", kPlugin));
  }
  void writeDepot(const test::DescriptorText& text) const {
    root.writeDescriptor("30-depotHost.plist", text);
  }
  // "severity key: problem" of every finding.
  std::vector<std::string> findings() const {
    std::vector<std::string> lines;
    const nlohmann::json answer = helmsmanJson({"check", "--json"});
    for (const auto& finding : answer["findings"]) {
      EXPECT_NE(finding["advice"], "");
      EXPECT_NE(finding["file"], "");
      lines.push_back(finding["severity"].get<std::string>() + " " +
                      finding["key"].get<std::string>() + ": " +
                      finding["problem"].get<std::string>());
    }
    return lines;
  }
};

class HelmsmanStatus : public HelmsmanCheck {
 protected:
  static constexpr char kFolder[] = "/Volumes/Backup/Archives.snapdb/files1/";
  static constexpr char kRecordFile[] = "/var/lib/halyard/last-backup.json";

  void SetUp() override {
    HelmsmanCheck::SetUp();
    if (IsSkipped()) return;
    goodBackupOf(finished);
  }

  // A good run that ended then, with its snapshot; returns that one's name.
  std::string goodBackupOf(std::int64_t time) const {
    const std::string name = nameOf(time - kDuration);
    const nlohmann::json good = {
        {"time", timeText(time)}, {"bytes", 2048}, {"snapshot", kFolder + name}};
    root.writeFile(
        kRecordFile,
        nlohmann::json(
            {{"started", timeText(time - kDuration)},
             {"finished", timeText(time)},
             {"result", "good"},
             {"services",
              {{{"name", "depotHost"}, {"result", "good"}, {"copied", 1}, {"bytes", 2048}}}},
             {"snapshot", kFolder + name},
             {"estimateBytes", 4096},
             {"lastGood", {{"", good}, {"depotHost", good}}}})
            .dump());
    snapshotOf(name, {"depotHost"});
    return name;
  }
  void snapshotOf(const std::string& name, const std::vector<std::string>& services) const {
    const std::string metadata = kFolder + name + "/System/.Halyards/";
    for (const std::string& service : services) root.makeFolder(metadata + service);
    root.writeFile(metadata + ".halyardSignature", name);
  }
  static std::string nameOf(std::int64_t time) {
    return snapshotName(Instant(std::chrono::seconds(time)));
  }
  void keepResult(const char* key, const std::string& value) const {
    auto record = nlohmann::json::parse(root.readFile(kRecordFile));
    record[key] = value;
    root.writeFile(kRecordFile, record.dump());
  }
  // A systemd that answers this for timer and service.
  void systemdShows(const std::string& timer, const std::string& service) const {
    root.makeFolder("/run/systemd/system");
    root.writeScript("/usr/bin/systemctl",
                     "[ \"$1\" = show ] || exit 1\nprintf '" + timer + "\\n\\n" + service + "\\n'");
  }
  std::string metric(const std::string& name) const {
    for (const std::string& line : test::linesOf(helmsman({"metrics"}).out)) {
      if (line.starts_with(name + " ")) return line.substr(name.size() + 1);
    }
    return "absent";
  }

  static constexpr std::int64_t kDuration = 60;
  static constexpr std::int64_t kDay = 86400;
  const std::int64_t finished = secondsNow() - 3600;
};

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The fixture of the tests that restore, verify, browse and purge.
#pragma once

#include <string>

#include "host_kit_root.h"

namespace halyard::test {

// A snapshot with one service: a data file and a configuration file, changed on the live system.
class RestoreTest : public HostKitTest {
 protected:
  static constexpr char kPlugin[] = "/usr/libexec/plugin";
  static constexpr char kHostFolder[] = "/Volumes/Backup/Archives.snapdb/files1";

  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    writePlugin("cp \"$6/etc/depot.conf\" /etc/depot.conf");
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", kPlugin)
                             .list("DataFiles", {"/srv/depot"})
                             .list("ConfigurationFiles", {"/etc/depot.conf"}));
    root.writeFile(saved("/srv/depot"), "old data");
    root.writeFile(saved("/etc/depot.conf"), "old settings");
    root.writeFile(metadata() + "/.halyardSignature", "x");
    root.makeLink(std::string(kHostFolder) + "/Latest", "2026-11-20-020000");
    root.writeFile("/srv/depot", "new data");
    root.writeFile("/etc/depot.conf", "new settings");
  }

  // "-cmd restore -opt all -path FOLDER ..."
  void writePlugin(const std::string& restoreBody, const std::string& summary = "0") const {
    root.writePlugin(kPlugin, "case $2 in\nrestore) " + restoreBody +
                                  " ;;\nverify) echo 'Number of failures to match := " + summary +
                                  "' ;;\nbrowse) echo \"browsing $4\" ;;\nesac" + kSayDone +
                                  "exit 0");
  }
  static std::string metadata() {
    return std::string(kHostFolder) + "/2026-11-20-020000/System/.Halyards";
  }
  static std::string saved(const std::string& path) { return metadata() + "/depotHost" + path; }
};

}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A private root with two services, ready for a whole backup.
#pragma once

#include <string>
#include <vector>

#include "host_kit_root.h"

namespace halyard::test {

inline constexpr char kPlugin[] = "/usr/libexec/plugin";
// How the engine is called when nothing was set aside: without the mark of the run itself.
inline constexpr char kSnapshotCall[] =
    "snapshot --json --exclude /var/lib/halyard/current-run.json";
inline constexpr char kRecord[] = "/var/lib/halyard/last-backup.json";

// Two services of the seven; the plug-in makes the folder that holds a listed file, as it has to.
class BackupTest : public HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin,
                     "[ \"$2\" = size ] && echo 'total := 2048'\n"
                     "[ \"$2\" = backup ] && mkdir -p \"$4/srv\"\nexit 0\n");
    root.writeFile("/srv/depot", "data");
    root.writeFile("/srv/post", "mail");
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}, {"siteHost", 0}});
    root.writeDescriptor("30-depotHost.plist", depot());
    root.writeDescriptor("40-postHost.plist",
                         descriptorOf("postHost", kPlugin).list("DataFiles", {"/srv/post"}));
    installEngine();
  }

  static DescriptorText depot() {
    return descriptorOf("depotHost", kPlugin).list("DataFiles", {"/srv/depot"});
  }

  // A stand-in for the engine, which says what it was called with.
  void installEngine(const std::string& snapshotBody = kCopyMetadata) const {
    root.writeScript("/usr/sbin/snapwheel",
                     "echo \"$*\" >>/engine-calls\n"
                     "host=/Volumes/Backup/Archives.snapdb/files1\n"
                     "case $1 in snapshot)\n" +
                         snapshotBody + "\n;; esac\nexit 0");
  }
  static constexpr char kCopyMetadata[] =
      "name=2026-11-2$(ls $host 2>/dev/null | grep -c ^20)-020000\n"
      "mkdir -p $host/$name/System && cp -a /.Halyards $host/$name/System/\n"
      "ln -sfn $name $host/Latest\n"
      "echo \"{\\\"name\\\": \\\"$name\\\", \\\"path\\\": \\\"$host/$name\\\"}\"";

  // Not const: a member that is missing reads as null then.
  nlohmann::json record() const {
    return nlohmann::json::parse(root.readFile(kRecord), nullptr, false);
  }
  std::vector<std::string> engineCalls() const {
    return root.exists("/engine-calls") ? linesOf(root.readFile("/engine-calls"))
                                        : std::vector<std::string>{};
  }
};

}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A private root whose system volume came back from a snapshot, ready for a restore.
#pragma once

#include <string>
#include <vector>

#include "support/private_root.h"

namespace halyard::test {

/// The metadata folder names another volume than the booted one, so a restore goes ahead.
class RestoredHost : public PrivateRootTest {
 protected:
  static constexpr const char* kSnapshot = "/Volumes/Backup/Archives.snapdb/files1/2026-11-14";
  static constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
  static constexpr const char* kMarker = "/.Halyards/restoreWasAttempted";
  static constexpr const char* kProgressLog = "/private/var/log/halyard/server_progress.log";

  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.makeFolder(kSnapshot);
    root.makeFolder("/.Halyards");
    recordVolume("0A0A0A0A-0000-4000-8000-000000000000");
    root.writeFile("/.Halyards/.halyardSignature", "4711\n");
  }

  void recordVolume(const std::string& identifier) const {
    root.writeFile(
        "/.Halyards/ServerSourceDiskInfo.plist",
        plistDocument("<dict><key>VolumeUUID</key><string>" + identifier + "</string></dict>"));
  }

  CommandResult restore(const Environment& environment = {}, const std::string& target = "/",
                        const std::string& path = kSnapshot) const {
    return root.run({"-cmd", "restore", "-path", path, "-target", target}, environment);
  }
};

/// A snapshot with the metadata folder of one volume, for what works from a snapshot.
class SnapshotHost : public PrivateRootTest {
 protected:
  static constexpr const char* kSnapshot = "/Volumes/Backup/Archives.snapdb/files1/2026-11-14";
  static constexpr const char* kMetadata =
      "/Volumes/Backup/Archives.snapdb/files1/2026-11-14/Server HD/.Halyards";
  static constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
  static constexpr const char* kProgressLog = "/private/var/log/halyard/server_progress.log";

  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    root.writeFile(std::string(kMetadata) + "/.halyardSignature", "4711\n");
  }

  static std::string inSnapshot(const std::string& item) { return kMetadata + item; }
};

}  // namespace halyard::test

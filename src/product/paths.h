// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Every fixed path and file name of the product, for the program and for the host kit. Includes
// nothing, so that every layer above the host may use it; no option, variable or build switch moves
// any of them.
//
// Paths that only the host kit uses are in hostkit/common/paths.h.
#pragma once

namespace halyard::paths {

/// The last component of one of these paths.
constexpr const char* nameIn(const char* path) {
  const char* name = path;
  for (; *path != '\0'; ++path) {
    if (*path == '/') name = path + 1;
  }
  return name;
}

// Configuration.
inline constexpr const char* kConfigurationFolder = "/private/etc/halyard";
inline constexpr const char* kPreferenceFile = "/private/etc/halyard/com.vantor.Halyard.plist";
inline constexpr const char* kPreferenceFileName = nameIn(kPreferenceFile);
inline constexpr const char* kEnginePreferenceFile =
    "/Library/Preferences/com.vantor.Snapwheel.plist";
inline constexpr const char* kVersionDescriptorName = "45-hostProfile.plist";

// The host.
inline constexpr const char* kSetupMarker = "/private/var/db/.VantorSetupDone";
inline constexpr const char* kHostVersionFile = "/System/Library/BaseKit/SystemVersion.plist";
inline constexpr const char* kHostConfigurationFile =
    "/Library/Preferences/HostConfig/preferences.plist";

// Run-time files.
inline constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
inline constexpr const char* kLogFolder = "/private/var/log/halyard";
inline constexpr const char* kProgressLog = "/private/var/log/halyard/server_progress.log";
inline constexpr const char* kBrowseTemporaryFile = "/tmp/.halyardTmpFile";
inline constexpr const char* kDiskInfoCopy = "/tmp/ServerSourceDiskInfo.plist";

// The metadata folder and what is in it.
inline constexpr const char* kMetadataFolder = "/.Halyards";
inline constexpr const char* kMetadataFolderName = nameIn(kMetadataFolder);
inline constexpr const char* kMetadataFolderAside = "/Halyards";  // its name before deletion
inline constexpr const char* kSignatureName = ".halyardSignature";
inline constexpr const char* kSourceDiskInfoName = nameIn(kDiskInfoCopy);
inline constexpr const char* kMasterBrowseFile = "/.Halyards/master.browse.plist";
inline constexpr const char* kMasterBrowseName = nameIn(kMasterBrowseFile);
inline constexpr const char* kBrowseSuffix = ".browse.plist";
inline constexpr const char* kRestoreMarker = "/.Halyards/restoreWasAttempted";
inline constexpr const char* kIncompleteMark = "incomplete";  // in a service's folder

// The snapshot repository: <destination>/Archives.snapdb/<computer name>/<snapshot>.
inline constexpr const char* kRepositoryName = "Archives.snapdb";
inline constexpr const char* kLatestName = "Latest";  // the link to the newest snapshot

// The product's programs.
inline constexpr const char* kProgram = "/usr/sbin/Halyard";
inline constexpr const char* kAdministrationTool = "/usr/sbin/helmsman";
inline constexpr const char* kSnapshotTool = "/usr/sbin/snapwheel";
inline constexpr const char* kVolumeTool = "/usr/sbin/drivectl";

// Host programs.
inline constexpr const char* kUuidTool = "/usr/bin/uuidgen";
inline constexpr const char* kMkdir = "/bin/mkdir";
inline constexpr const char* kLs = "/bin/ls";
inline constexpr const char* kShell = "/bin/sh";
inline constexpr const char* kDf = "/bin/df";
inline constexpr const char* kGrep = "/usr/bin/grep";
inline constexpr const char* kAwk = "/usr/bin/awk";

}  // namespace halyard::paths

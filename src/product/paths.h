// Every fixed path and file name of the program. Includes nothing, so that every layer above the
// host may use it; no option, variable or build switch moves any of them.
#pragma once

namespace halyard::paths {

// Configuration.
inline constexpr const char* kConfigurationFolder = "/private/etc/halyard";
inline constexpr const char* kPreferenceFileName = "com.vantor.Halyard.plist";
inline constexpr const char* kPreferenceFile = "/private/etc/halyard/com.vantor.Halyard.plist";
inline constexpr const char* kEnginePreferenceFile =
    "/Library/Preferences/com.vantor.Snapwheel.plist";
inline constexpr const char* kVersionDescriptorName = "45-hostProfile.plist";

// The host.
inline constexpr const char* kSetupMarker = "/private/var/db/.VantorSetupDone";
inline constexpr const char* kHostVersionFile = "/System/Library/BaseKit/SystemVersion.plist";
inline constexpr const char* kHostConfigurationFile =  // relative to the root of the boot volume
    "Library/Preferences/HostConfig/preferences.plist";

// Run-time files.
inline constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";
inline constexpr const char* kLogFolder = "/private/var/log/halyard";
inline constexpr const char* kProgressLog = "/private/var/log/halyard/server_progress.log";
inline constexpr const char* kBrowseTemporaryFile = "/tmp/.halyardTmpFile";
inline constexpr const char* kDiskInfoCopy = "/tmp/ServerSourceDiskInfo.plist";

// The metadata folder and what is in it.
inline constexpr const char* kMetadataFolder = "/.Halyards";
inline constexpr const char* kMetadataFolderAside = "/Halyards";  // its name before deletion
inline constexpr const char* kSignatureName = ".halyardSignature";
inline constexpr const char* kSourceDiskInfoName = "ServerSourceDiskInfo.plist";
inline constexpr const char* kMasterBrowseFile = "/.Halyards/master.browse.plist";
inline constexpr const char* kBrowseSuffix = ".browse.plist";
inline constexpr const char* kRestoreMarker = "/.Halyards/restoreWasAttempted";
inline constexpr const char* kIncompleteMark = "incomplete";  // in a service's folder

// The snapshot repository.
inline constexpr const char* kRepositoryName = "Archives.snapdb";

// Host programs.
inline constexpr const char* kAdministrationTool = "/usr/sbin/helmsman";
inline constexpr const char* kVolumeTool = "/usr/sbin/drivectl";
inline constexpr const char* kUuidTool = "/usr/bin/uuidgen";
inline constexpr const char* kMkdir = "/bin/mkdir";
inline constexpr const char* kLs = "/bin/ls";
inline constexpr const char* kShell = "/bin/sh";
inline constexpr const char* kDf = "/bin/df";
inline constexpr const char* kGrep = "/usr/bin/grep";
inline constexpr const char* kAwk = "/usr/bin/awk";

}  // namespace halyard::paths

// Every fixed path of the host kit, built in one place.
//
// Halyard names its paths below /private; on a Linux host these are links to the native folders
// (`helmsman setup` makes them), so that the real files live where an administrator looks for them.
#pragma once

namespace halyard::hostkit {

// Programs.
inline constexpr char kHalyardProgram[] = "/usr/sbin/Halyard";
inline constexpr char kHelmsmanProgram[] = "/usr/sbin/helmsman";
inline constexpr char kSnapwheelProgram[] = "/usr/sbin/snapwheel";
inline constexpr char kSystemctlProgram[] = "/usr/bin/systemctl";

// Where Halyard looks, and where the files really live.
inline constexpr char kConfigFolder[] = "/private/etc/halyard";
inline constexpr char kNativeConfigFolder[] = "/etc/halyard";
// Where packages keep the descriptors that links in the configuration folder switch on.
inline constexpr char kServiceFolder[] = "/usr/share/halyard/services";
inline constexpr char kPreferenceFolder[] = "/Library/Preferences";
inline constexpr char kNativePreferenceFolder[] = "/etc/halyard-host";
inline constexpr char kVersionFolder[] = "/System/Library/BaseKit";
inline constexpr char kNativeVersionFolder[] = "/var/lib/halyard/BaseKit";
inline constexpr char kLogFolder[] = "/private/var/log/halyard";
inline constexpr char kNativeLogFolder[] = "/var/log/halyard";
inline constexpr char kRunFolder[] = "/private/var/run";
inline constexpr char kNativeRunFolder[] = "/run";
inline constexpr char kDatabaseFolder[] = "/private/var/db";
inline constexpr char kStateFolder[] = "/var/lib/halyard";

// Files that Halyard reads or writes.
inline constexpr char kPreferenceFile[] = "/private/etc/halyard/com.vantor.Halyard.plist";
inline constexpr char kEnginePreferenceFile[] = "/Library/Preferences/com.vantor.Snapwheel.plist";
inline constexpr char kPreferenceFileName[] = "com.vantor.Halyard.plist";
inline constexpr char kEnginePreferenceFileName[] = "com.vantor.Snapwheel.plist";
inline constexpr char kHostConfigFile[] = "/Library/Preferences/HostConfig/preferences.plist";
inline constexpr char kVersionFile[] = "/System/Library/BaseKit/SystemVersion.plist";
inline constexpr char kSetupMarker[] = "/private/var/db/.VantorSetupDone";
inline constexpr char kPidFile[] = "/private/var/run/HalyardRunning.pid";
inline constexpr char kProgressLog[] = "/private/var/log/halyard/server_progress.log";
inline constexpr char kMetadataFolder[] = "/.Halyards";
inline constexpr char kMetadataFolderName[] = ".Halyards";
inline constexpr char kRepositoryName[] = "Archives.snapdb";

// Files of the host kit itself. None of them lies in the configuration folder: there Halyard reads
// every file as a descriptor.
inline constexpr char kLastBackupFile[] = "/var/lib/halyard/last-backup.json";
inline constexpr char kResultFolder[] = "/var/lib/halyard/results";
inline constexpr char kUndoFolder[] = "/var/lib/halyard/undo";
inline constexpr char kExclusionFile[] = "/etc/halyard-host/snapwheel.exclude";
inline constexpr char kMetricsFolder[] = "/var/lib/prometheus/node-exporter";
inline constexpr char kMetricsFileName[] = "halyard.prom";
inline constexpr char kTimerUnit[] = "halyard-backup.timer";
inline constexpr char kTimerDropInFolder[] = "/etc/systemd/system/halyard-backup.timer.d";

}  // namespace halyard::hostkit

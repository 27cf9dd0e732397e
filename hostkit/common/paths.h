// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The fixed paths of the host kit alone; those that the program has too are in product/paths.h.
//
// Halyard names its paths below /private; on a Linux host these are links to the native folders
// (`helmsman setup` makes them), so that the real files live where an administrator looks for them.
#pragma once

namespace halyard::hostkit {

inline constexpr char kSystemctlProgram[] = "/usr/bin/systemctl";
inline constexpr char kSetprivProgram[] = "/usr/bin/setpriv";

// Where Halyard looks beside the folders of product/paths.h, and where the files really live.
inline constexpr char kNativeConfigFolder[] = "/etc/halyard";
// Where packages keep the descriptors that links in the configuration folder switch on.
inline constexpr char kServiceFolder[] = "/usr/share/halyard/services";
inline constexpr char kPreferenceFolder[] = "/Library/Preferences";
inline constexpr char kNativePreferenceFolder[] = "/etc/halyard-host";
inline constexpr char kVersionFolder[] = "/System/Library/BaseKit";
inline constexpr char kNativeVersionFolder[] = "/var/lib/halyard/BaseKit";
inline constexpr char kNativeLogFolder[] = "/var/log/halyard";
inline constexpr char kRunFolder[] = "/private/var/run";
inline constexpr char kNativeRunFolder[] = "/run";
inline constexpr char kDatabaseFolder[] = "/private/var/db";
inline constexpr char kStateFolder[] = "/var/lib/halyard";

// Files of the host kit itself. None of them lies in the configuration folder: there Halyard reads
// every file as a descriptor.
inline constexpr char kLastBackupFile[] = "/var/lib/halyard/last-backup.json";
inline constexpr char kCurrentRunFile[] = "/var/lib/halyard/current-run.json";
inline constexpr char kRunStateFolder[] = "/run/halyard";
inline constexpr char kRunStateFile[] = "/run/halyard/backup.json";
inline constexpr char kRunLock[] = "/run/halyard/backup.lock";
inline constexpr char kHelmsmanConfiguration[] = "/etc/halyard-host/helmsman.conf";
inline constexpr char kServiceConfigurationFolder[] = "/etc/halyard-host/services";
inline constexpr char kResultFolder[] = "/var/lib/halyard/results";
inline constexpr char kRecoveryFile[] = "/var/lib/halyard/recovery.json";
inline constexpr char kRecoveryJournal[] = "/var/lib/halyard/undo/recovery.journal";
inline constexpr char kUndoFolder[] = "/var/lib/halyard/undo";
inline constexpr char kMachineRecordName[] =
    ".machine-id";  // In a host's folder of the repository.
inline constexpr char kEngineConfigFile[] = "/etc/halyard-host/snapwheel.conf";
inline constexpr char kExclusionFile[] = "/etc/halyard-host/snapwheel.exclude";
inline constexpr char kMetricsFolder[] = "/var/lib/prometheus/node-exporter";
inline constexpr char kMetricsFileName[] = "halyard.prom";
inline constexpr char kTimerUnit[] = "halyard-backup.timer";
inline constexpr char kBackupUnit[] = "halyard-backup.service";
inline constexpr char kScrubFile[] = "/var/lib/halyard/scrub.json";
inline constexpr char kScrubTimerUnit[] = "halyard-scrub.timer";
inline constexpr char kScrubUnit[] = "halyard-scrub.service";
inline constexpr char kScrubDropInFolder[] = "/etc/systemd/system/halyard-scrub.timer.d";
inline constexpr char kTimerDropInFolder[] = "/etc/systemd/system/halyard-backup.timer.d";

}  // namespace halyard::hostkit

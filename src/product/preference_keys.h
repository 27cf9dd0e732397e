// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The keys of the two preference files.
#pragma once

namespace halyard::preference_keys {

// com.vantor.Halyard.plist
inline constexpr const char* kServices = "services";

// com.vantor.Snapwheel.plist
inline constexpr const char* kAutoBackup = "AutoBackup";
inline constexpr const char* kBackupAlias = "BackupAlias";
inline constexpr const char* kDay = "Day";
inline constexpr const char* kPeriod = "Period";
inline constexpr const char* kDaysToRetain = "DaysToRetain";
inline constexpr const char* kTime = "Time";
inline constexpr const char* kWeek = "Week";

}  // namespace halyard::preference_keys

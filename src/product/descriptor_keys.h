// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The keys of a service descriptor.
#pragma once

namespace halyard::descriptor_keys {

inline constexpr const char* kServiceName = "ServiceName";
inline constexpr const char* kBackupBinaryPath = "BackupBinaryPath";
inline constexpr const char* kBackupLog = "BackupLog";
inline constexpr const char* kBackupActions = "BackupActions";
inline constexpr const char* kPreBackupServiceCommands = "PreBackupServiceCommands";
inline constexpr const char* kPostBackupServiceCommands = "PostBackupServiceCommands";
inline constexpr const char* kConfigurationFiles = "ConfigurationFiles";
inline constexpr const char* kDataFiles = "DataFiles";
inline constexpr const char* kRestoreBinaryPath = "RestoreBinaryPath";
inline constexpr const char* kRestoreLog = "RestoreLog";
inline constexpr const char* kRestoreActions = "RestoreActions";
inline constexpr const char* kVerifyBinaryPath = "VerifyBinaryPath";
inline constexpr const char* kVerifyLog = "VerifyLog";

// Entries of the dictionaries of actions.
inline constexpr const char* kDefault = "Default";
inline constexpr const char* kBrowse = "Browse";

}  // namespace halyard::descriptor_keys

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The backup of one service.
#pragma once

#include <cstdint>
#include <string>

#include "frontend/run/preference_record.h"
#include "frontend/run/progress_log.h"
#include "product/service_descriptor.h"

namespace halyard {

/// What the services of one run share.
struct BackupPass {
  const PreferenceRecord& preferences;
  ProgressLog progress;
  /// Of the latest backup executable or post-backup command. Kept: never reset between services,
  /// so that a failure left over from one is reported by the pre-backup commands of the next.
  std::int32_t lastStatus = 0;
};

/// Whether the service takes part: a known one with the flag 0, or without a flag, does not; a
/// service that the program does not know by name always does.
bool isEnabledForBackup(const MaybeString& service, const PreferenceRecord& preferences);

/// Runs the service's commands and copies its files into its folder in "/.Halyards".
void backUpService(const ServiceDescriptor& descriptor, BackupPass& pass);

/// Makes inside `copyRoot` the folders above `source`, a live path; failures are ignored.
///
/// Kept: the folder that directly holds the leaf is not made: /a/b/c/d gives <root>/a and
/// <root>/a/b. Kept: each folder gets owner, group and permissions of the source folder one level
/// above the one that it mirrors: <root>/a those of "/". A missing copy root is made first, with
/// default attributes.
void mirrorAncestorDirectories(const std::string& source, const std::string& copyRoot);

}  // namespace halyard

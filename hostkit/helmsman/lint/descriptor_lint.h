// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lints service descriptors.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "helmsman/lint/finding.h"
#include "helmsman/settings/services.h"

namespace halyard::hostkit {

/// Checks one descriptor: file name, keys, types, executables, command lines, listed files.
/// `backupFolders`: metadata folders of backups that are there (of the latest snapshot, of the live
/// system); a listed file that one of them holds can be copied, whoever made its folder.
void lintDescriptor(const InstalledDescriptor& descriptor,
                    const std::vector<std::string>& backupFolders, Findings& findings);

/// Checks the descriptors against each other: what was left behind, names that occur twice, names
/// that select another service's descriptor.
void lintTogether(const std::vector<InstalledDescriptor>& descriptors, Findings& findings);

/// Checks the answer of a size query.
void lintSizeAnswer(const InstalledDescriptor& descriptor, std::string_view answer,
                    Findings& findings);

/// Whether the program's own rules make the folder that holds `file` in the backup, given the files
/// that are copied before it: it mirrors the folders above a file, but never the one that directly
/// holds it.
bool folderIsMade(const std::string& file, const std::vector<std::string>& before);

}  // namespace halyard::hostkit

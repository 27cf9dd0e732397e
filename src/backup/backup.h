// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The backup run over all enabled services.
#pragma once

#include "frontend/run/command_line.h"

namespace halyard {

/// Fills the metadata folder for the snapshot engine's next snapshot.
///
/// Reads:  the option "-source"; the preferences; the descriptors, in name order.
/// Runs:   for each service its pre-backup commands, its backup executable and its post-backup
///         commands; then the volume tool and the UUID tool.
/// Writes: "/.Halyards" (reset first): a folder a service with the copies of its data and
///         configuration files, the source-disk information, the signature, the catalogue; the
///         progress log.
/// Prints: the names of the configuration folder's entries, failed copies, the catalogue.
///         Failing services are told in the platform log and never stop the run.
///
/// Kept: without any service entry nothing is backed up; then only debug mode says so, and only
/// the other mode rebuilds the catalogue.
void Backup(const CommandLine& line);

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Puts the files of one service back from a metadata folder.
#pragma once

#include <string>
#include <vector>

#include "base/text.h"
#include "frontend/run/progress_log.h"
#include "product/service_descriptor.h"

namespace halyard {

/// Handles each configuration file, then each data file, of which the metadata root holds a copy.
///
/// What stands at a live path is first set aside under that path and ".previous", replacing what
/// was set aside there before.
/// Kept: a configuration file is only set aside; putting it back is left to the service's restore
/// executable. A data file is copied back from the root. A failure is ignored: at every instant the
/// old content is under the live path or its ".previous" name, and the live path is never half
/// written.
/// Returns: the live paths that were handled, for syncRestored.
std::vector<std::string> restoreServiceFiles(const std::string& metadataRoot,
                                             const MaybeString& service,
                                             const std::vector<std::string>& configurationFiles,
                                             const std::vector<std::string>& dataFiles,
                                             const ProgressLog& progress);

/// The same with the name and the lists of a descriptor.
std::vector<std::string> restoreServiceFiles(const std::string& metadataRoot,
                                             const ServiceDescriptor& descriptor,
                                             const ProgressLog& progress);

/// What was restored is on disk when this returns: on "/", on the volumes of the handled paths, and
/// on every volume of this host's own disks, for what restore executables wrote. No other volume is
/// synced: a server that does not answer would hold up the restore.
void syncRestored(const std::vector<std::string>& restored);

}  // namespace halyard

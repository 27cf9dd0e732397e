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
void restoreServiceFiles(const std::string& metadataRoot, const MaybeString& service,
                         const std::vector<std::string>& configurationFiles,
                         const std::vector<std::string>& dataFiles, const ProgressLog& progress);

/// The same with the name and the lists of a descriptor.
void restoreServiceFiles(const std::string& metadataRoot, const ServiceDescriptor& descriptor,
                         const ProgressLog& progress);

}  // namespace halyard

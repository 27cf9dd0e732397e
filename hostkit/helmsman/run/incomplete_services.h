// What a backup run leaves in "/.Halyards" about services that are not whole in it.
#pragma once

#include <string>
#include <vector>

#include "helmsman/run/run_record.h"

namespace halyard::hostkit {

/// Brings results and marks together: a service whose plug-in left the mark is not good and gets
/// the plug-in's reasons as problems; then every service with a problem gets the mark, whether it
/// has a folder or not.
///
/// Returns: the services that could not be marked; a snapshot would show them as whole.
std::vector<std::string> settleIncompleteServices(const std::string& metadataFolder,
                                                  std::vector<ServiceResult>& services);

}  // namespace halyard::hostkit

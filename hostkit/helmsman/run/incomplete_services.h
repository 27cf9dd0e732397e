// What a backup run leaves in "/.Halyards" about services that are not whole in it.
#pragma once

#include <string>
#include <vector>

#include "helmsman/run/run_record.h"
#include "helmsman/settings/local_volumes.h"
#include "helmsman/snapshots/repository.h"

namespace halyard::hostkit {

/// Adds what a run lacks by what the host is like: the links that a service lists, and the services
/// that are switched on without a descriptor. No snapshot may pass for one that holds them.
void addLacks(const std::vector<ListedLink>& links, const std::vector<std::string>& undescribed,
              std::vector<ServiceResult>& services);

/// Brings results and marks together: a service whose plug-in left the mark is not good and gets
/// the plug-in's reasons as problems; then every service with a problem gets the mark, whether it
/// has a folder or not. A name that no folder can have needs none.
///
/// Returns: the services that could not be marked; a snapshot would show them as whole.
std::vector<std::string> settleIncompleteServices(const std::string& metadataFolder,
                                                  std::vector<ServiceResult>& services);

/// Adds what is marked in the snapshot. The signature tells that it carries this run's backup, not
/// that all of it arrived: the engine marks what did not.
void addLacksOf(const Snapshot& snapshot, std::vector<ServiceResult>& services);

}  // namespace halyard::hostkit

// Whether a snapshot carries a good backup of the host's services.
#pragma once

#include <string>
#include <vector>

namespace halyard::snapwheel {

/// What is known to be wrong with the services' backup in a volume of a snapshot, a sentence each:
/// a metadata folder without its signature, from a run that was cut off, and each service that is
/// marked as incomplete. Empty when all is well, and when the volume carries no metadata folder at
/// all: then it is no host that Halyard backs up.
std::vector<std::string> backupProblems(const std::string& volumePath);

/// Whether the volume carries a signed backup of the services, whole or not.
bool carriesBackup(const std::string& volumePath);

}  // namespace halyard::snapwheel

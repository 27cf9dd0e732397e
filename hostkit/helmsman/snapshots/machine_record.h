// Which machine the folder of this host's snapshots belongs to: its name alone does not tell after
// a host was renamed or cloned.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Records the folder as this machine's, and makes it when it is missing. Empty, or why it failed.
std::string adoptFolder(const std::string& destination);

/// Shows the refusal and asks whether to adopt the folder; empty when that was done, else why not.
std::string askToAdopt(const std::string& destination, const std::string& refusal);

/// "helmsman destination --adopt": adopts the folder at the destination that is set. Returns the
/// exit status.
int adoptDestination();

}  // namespace halyard::hostkit

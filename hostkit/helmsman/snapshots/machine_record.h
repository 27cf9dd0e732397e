// Which machine the folder of this host's snapshots belongs to: its name alone does not tell after
// a host was renamed or cloned.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Of this machine, 32 hexadecimal digits; empty when it has none.
std::string machineIdentifier();

/// Why no backup may go into this host's folder at the destination, with the commands that mend it:
/// the folder is recorded as another machine's, or it is not there and another folder is recorded
/// as this machine's. Empty when nothing speaks against it. The records are untrusted input.
std::string folderRefusal(const std::string& destination);

/// Records the folder as this machine's, and makes it when it is missing. Empty, or why it failed.
std::string adoptFolder(const std::string& destination);

/// Shows the refusal and asks whether to adopt the folder; empty when that was done, else why not.
std::string askToAdopt(const std::string& destination, const std::string& refusal);

/// "helmsman destination --adopt": adopts the folder at the destination that is set. Returns the
/// exit status.
int adoptDestination();

}  // namespace halyard::hostkit

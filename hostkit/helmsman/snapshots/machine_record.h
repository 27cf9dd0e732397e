// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which machine the folder of this host's snapshots belongs to: its name alone does not tell after
// a host was renamed or cloned.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Records the folder as this machine's, and makes it when it is missing. Empty, or why it failed.
std::string adoptFolder(const std::string& destination);

/// Empty when the folder at the destination is this machine's, or was adopted by an administrator
/// who was shown the refusal and asked, where that may be; else why not.
std::string settleFolder(const std::string& destination, bool canAsk);

/// "helmsman destination --adopt": adopts the folder at the destination that is set. Returns the
/// exit status.
int adoptDestination();

}  // namespace halyard::hostkit

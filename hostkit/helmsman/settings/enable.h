// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman enable" and "helmsman disable": which services a backup takes.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

enum class ServiceSwitch { on, off };

/// Sets the flags of the named services, all of them or none. A name is completed; one of the seven
/// that the preferences lack is added. Switching on a service without an installed descriptor is
/// refused: nothing would be backed up under its name. A shipped descriptor is linked into the
/// configuration folder with the flag, and its link taken away again; a file there stays.
///
/// Prints:  a note for each service that changed; an error for each name that does not fit.
/// Returns: the exit status.
int switchServices(const std::vector<std::string>& names, ServiceSwitch position);

}  // namespace halyard::hostkit

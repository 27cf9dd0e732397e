// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman setup": makes this host ready for Halyard.
#pragma once

#include <string>

namespace halyard::hostkit {

/// The computer name that a host of this name gets when it is set up.
std::string computerNameFromHost();

/// Provides what Halyard expects of its host and is not there yet: the fixed folders, both
/// preference files, the links of the services that are on, the host version file, the computer
/// name, the setup marker (last, so that a host is only called ready when it is). Asks nothing and
/// can be repeated at any time.
///
/// Prints:  a note for each thing made; a warning for each program that is missing and
///          for each server of this host that no service covers.
/// Returns: the exit status; failure when anything could not be provided.
int setUpHost();

}  // namespace halyard::hostkit

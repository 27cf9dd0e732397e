// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The one way in which an item gets a name that must not be taken yet.
#pragma once

#include <string>

#include "host/files/location.h"

namespace halyard::host {

/// Renames; EEXIST, and nothing changed, when anything stands at the new name, even an empty
/// folder. Atomic wherever the file system knows how; elsewhere a folder's new name is looked at
/// just before.
int renameWithoutReplacing(int fromFolder, const std::string& fromName, int toFolder,
                           const std::string& toName);

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Where an item stands: its folder, held open, and its name there.
#pragma once

#include <string>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::host {

/// Calls relative to the folder keep meaning the same item's place, whatever happens to the path.
struct Location {
  Descriptor folder;  ///< Opened O_PATH.
  std::string name;   ///< One component; "." for the root folder.
};

/// Follows the path up to its last component, which is not looked at and need not exist. Trailing
/// slashes are dropped, so that "link/" is the link. An empty path leads nowhere (ENOENT).
Result<Location> locate(const std::string& path);

}  // namespace halyard::host

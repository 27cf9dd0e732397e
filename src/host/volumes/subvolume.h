// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Subvolumes of btrfs, which go at once instead of file by file.
#pragma once

#include <string>

#include "base/result.h"

namespace halyard::host {

/// Destroys the subvolume `name` in an open folder, and first those that lie directly in it, also
/// when they are read-only. A plain folder loses the subvolumes directly in it and stays.
/// Follows no link and touches nothing that a mount covers. Best effort: what could not be
/// destroyed is left for removal item by item. True when the item is gone.
bool destroySubvolumes(int folder, const std::string& name);

/// Removes a folder, no link to one, with everything in it: its subvolumes at once, the rest item
/// by item, following no link and entering no other mount. `parent` is not followed when it is a
/// link itself. Done after all of it is gone, otherwise the error of what stays.
Status removeWithSubvolumes(const std::string& parent, const std::string& name);

}  // namespace halyard::host

// Subvolumes of btrfs, which go at once instead of file by file.
#pragma once

#include <string>

namespace halyard::host {

/// Destroys the subvolume `name` in an open folder, and first those that lie directly in it, also
/// when they are read-only. A plain folder loses the subvolumes directly in it and stays.
/// Follows no link and touches nothing that a mount covers. Best effort: what could not be
/// destroyed is left for removal item by item. True when the item is gone.
bool destroySubvolumes(int folder, const std::string& name);

}  // namespace halyard::host

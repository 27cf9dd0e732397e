// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Moving and removing whole items; both work on a link itself, not on what it leads to.
#pragma once

#include <string>

namespace halyard::host {

/// Renames, without ever replacing what stands at `to` (not even an empty folder); across file
/// systems it copies the whole item (tree_copy.h) and removes the original afterwards. False when
/// the item, or a rest of it, still stands at `from`.
bool moveItem(const std::string& from, const std::string& to);

/// Removes an item, a folder with everything in it; follows no link and crosses into no other
/// mounted file system. True when nothing is left, also when nothing was there.
bool removeItem(const std::string& path);

}  // namespace halyard::host

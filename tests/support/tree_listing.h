// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A tree as text, for comparing a copy with its original.
#pragma once

#include <string>
#include <vector>

namespace halyard::test {

/// One line for the item at `path` and for each item in it, in path order: relative path, kind,
/// mode, owner, group, size, modification time, device numbers, target of a link, contents, all
/// extended attributes, and the first name of the same item in the tree. Equal listings mean equal
/// trees but for access times and holes.
std::vector<std::string> listTree(const std::string& path);

}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Removal of items and whole trees.
#pragma once

#include <string>

#include "base/result.h"

namespace halyard::host {

/// Removes the item `name` in an open folder, a folder with everything in it. Follows no link,
/// enters no other mounted file system (EBUSY), uses a bounded number of descriptors at any depth,
/// and goes on past what cannot be removed. ENOENT when there is no such item, EINVAL for the
/// root folder, "." and ".."; otherwise done when nothing is left, else the first error. Items that
/// others add or take away meanwhile do no harm.
Status removeTreeAt(int folder, const std::string& name);

/// The same for a path, whose last component is the item itself and never what it leads to.
Status removeTree(const std::string& path);

}  // namespace halyard::host

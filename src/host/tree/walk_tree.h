// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A look at every item of a tree.
//
// The walk is relative to descriptors (no path limit), follows no link and uses a bounded number of
// descriptors, however deep or wide the tree is.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "host/files/location.h"

namespace halyard::host {

enum class WalkStep {
  goOn,
  passOver,  ///< What is in this folder is not looked at.
  end,
};

/// What the walk is at; valid during the call.
struct WalkedItem {
  int folder;             ///< Where it stands, as a descriptor.
  const char* name;       ///< Its name there.
  std::string_view path;  ///< Relative to the root of the walk, empty for the root.
  const struct stat& status;
};

struct TreeWalk {
  /// Called for each item, a folder before what is in it; in a folder first for all of its items,
  /// in the order of their inodes.
  std::function<WalkStep(const WalkedItem& item)> visit;
  /// Told of what could not be looked at, a folder that cannot be listed among it; the walk goes on
  /// without. Null for nobody.
  std::function<void(std::string_view path, int error)> failed;
  /// Whether what is mounted somewhere in the tree is looked at too; else the walk sees the mount
  /// point alone. Parts of one file system (btrfs subvolumes) are no mounts.
  bool entersMounts = false;
};

/// Walks over an item and all below it. An error when the root cannot be looked at, or when
/// somebody moved the folder that the walk is in, which ends it: what follows was not looked at.
Status walkTree(const Location& root, const TreeWalk& walk);
/// The same for a path, whose last component is the item itself and never what it leads to.
Status walkTree(const std::string& path, const TreeWalk& walk);

}  // namespace halyard::host

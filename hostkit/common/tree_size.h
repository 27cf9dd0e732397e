// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How much a tree holds.
#pragma once

#include <cstdint>
#include <string>

#include "host/files/location.h"

namespace halyard::hostkit {

/// How many items stand at and below a path, and what they hold.
struct TreeCount {
  std::uint64_t items = 0;  ///< Of every kind, the top one too.
  std::uint64_t bytes = 0;  ///< As treeBytes counts them.

  bool operator==(const TreeCount&) const = default;
};

/// Follows no link and enters no other file system; zeros when there is nothing.
TreeCount treeCount(const std::string& path);

/// What tells that somebody works on a tree.
struct TreeActivity {
  TreeCount count;
  std::int64_t newest = 0;  ///< The latest change of any item, in nanoseconds since 1970.

  bool operator==(const TreeActivity&) const = default;
};

TreeActivity treeActivity(const std::string& path);

/// The sizes of the regular files at and below `path`, each counted once whatever names it has,
/// following no link and entering no other file system; 0 when there is nothing.
std::uint64_t treeBytes(const std::string& path);
/// The same of an item in an open folder.
std::uint64_t treeBytes(const host::Location& root);

}  // namespace halyard::hostkit

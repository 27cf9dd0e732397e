// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a caller of copyTree has seen of the source shortly before the walk comes there.
#pragma once

#include <sys/stat.h>

#include <string_view>

namespace halyard::host {

/// Goes ahead of the walk and spares it waiting for the disk.
class TreeScout {
 public:
  struct Item {
    struct stat status;  ///< Since the walk began.
    bool isAlike;        ///< As the function of this name says of the reference.
  };

  virtual ~TreeScout() = default;

  /// What was seen of an item that is no folder, in the folder at this path relative to the root;
  /// null for nothing. Called in the order of the walk. What it points to holds until the next
  /// call.
  virtual const Item* find(std::string_view folder, const char* name, ino_t inode) = 0;
};

}  // namespace halyard::host

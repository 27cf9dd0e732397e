// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a caller of copyTree remembers of the source from the walk that made the reference.
#pragma once

#include <sys/stat.h>

namespace halyard::host {

/// Called in the order of the walk, with names as they stand in the current folder. A caller that
/// knows an item to be unchanged spares the walk every look at the reference.
class TreeMemory {
 public:
  virtual ~TreeMemory() = default;

  /// The walk goes into a folder; the root comes first, with an empty name. True when the folder's
  /// own attributes and the names in it are for certain as they were; what is below is still asked.
  virtual bool enter(const char* name, const struct stat& status) = 0;
  /// The walk is done with the folder that it entered last.
  virtual void leave() = 0;

  /// Whether an item that is no folder is for certain as it was: contents, attributes and links.
  virtual bool isUnchanged(const char* name, const struct stat& status) = 0;
  /// The item that isUnchanged was asked about stands in the copy as `status` says.
  virtual void took(const char* name, const struct stat& status) = 0;
};

}  // namespace halyard::host

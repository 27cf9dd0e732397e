// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Files of an earlier copy that may be the same as the one at hand.
#pragma once

#include <sys/stat.h>

#include <string>

#include "host/files/descriptor.h"
#include "host/tree/quiet_opener.h"
#include "host/tree/tree_memory.h"

namespace halyard::host {

struct EarlierFile {
  int folder = -1;  ///< Where it stands; held by `held` when it is none of the walk's own.
  Descriptor held;
  std::string name;
  Descriptor file;  ///< For reading; none where there is no such regular file.
  struct stat status = {};
  TreeMemory::Earlier known;
  bool isProven = false;   ///< The contents are the same.
  bool isInPlace = false;  ///< It stands where the copy is to stand, with no other name.

  explicit operator bool() const { return static_cast<bool>(file); }
};

/// Whether something of the same kind, and of a file the size, stands under this name in an open
/// folder.
bool isAlike(int folder, const char* name, const struct stat& status);

/// The regular file of this name in an open folder; none for anything else, and for a damaged one.
EarlierFile openEarlier(QuietOpener& opener, int folder, const char* name,
                        const TreeMemory::Earlier& known);

/// The same below the root of the earlier copy, passing neither links nor mounts.
EarlierFile openMoved(QuietOpener& opener, int root, const TreeMemory::Moved& moved);

}  // namespace halyard::host

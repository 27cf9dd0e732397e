// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The open folders of a walk, from its root down to where it is.
#pragma once

#include <cstddef>
#include <vector>

#include "host/files/descriptor.h"
#include "host/files/identity.h"

namespace halyard::host {

/// A stack of open folders that uses a bounded number of descriptors at any depth: the upper ones
/// are closed while the walk is far below, and found again through ".." on the way back, where
/// device and inode must still be the same.
class FolderChain {
 public:
  /// Goes down into a folder, which was opened from the current one.
  void push(Descriptor folder, const Identity& identity);

  /// Goes back up. ESTALE when the folder above is not the one that the walk came through; the
  /// chain then has no current folder and can only be cleared.
  int pop();

  void clear() { links_.clear(); }
  bool empty() const { return links_.empty(); }
  std::size_t size() const { return links_.size(); }
  /// The descriptor of the current folder.
  int current() const { return links_.back().folder.get(); }
  const Identity& identity() const { return links_.back().identity; }

 private:
  struct Link {
    Descriptor folder;
    Identity identity;
  };
  std::vector<Link> links_;
};

}  // namespace halyard::host

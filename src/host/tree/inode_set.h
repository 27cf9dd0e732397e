// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A compact set of inode numbers.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace halyard::host {

/// Holds a million numbers in 16 MiB.
class InodeSet {
 public:
  /// False when the number was in the set already. REQUIRES: it is not 0, which no item has.
  bool insert(ino_t inode);

 private:
  std::size_t slotOf(ino_t inode) const;
  void grow();

  std::vector<ino_t> slots_;  ///< A power of two of them, 0 where free.
  std::size_t used_ = 0;
};

}  // namespace halyard::host

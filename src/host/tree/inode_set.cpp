// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/inode_set.h"

#include <cstdint>
#include <utility>

namespace halyard::host {

namespace {

constexpr std::size_t kFirstSlots = 1024;

/// Spreads numbers that mostly follow one another.
std::size_t scatter(ino_t inode) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  return static_cast<std::size_t>((inode * kOdd) >> 20U);
}

}  // namespace

bool InodeSet::insert(ino_t inode) {
  if ((used_ + 1) * 2 > slots_.size()) grow();
  const std::size_t slot = slotOf(inode);
  if (slots_[slot] == inode) return false;
  slots_[slot] = inode;
  ++used_;
  return true;
}

/// Where the number is, or is to go.
std::size_t InodeSet::slotOf(ino_t inode) const {
  const std::size_t last = slots_.size() - 1;
  std::size_t slot = scatter(inode) & last;
  while (slots_[slot] != 0 && slots_[slot] != inode) slot = (slot + 1) & last;
  return slot;
}

void InodeSet::grow() {
  const std::vector<ino_t> former =
      std::exchange(slots_, std::vector<ino_t>(slots_.empty() ? kFirstSlots : slots_.size() * 2));
  for (const ino_t inode : former) {
    if (inode != 0) slots_[slotOf(inode)] = inode;
  }
}

}  // namespace halyard::host

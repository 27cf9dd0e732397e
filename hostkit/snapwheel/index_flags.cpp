// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/index_flags.h"

#include <array>
#include <cstddef>
#include <numeric>

namespace halyard::snapwheel {

namespace {

/// Which flag each bit of an entry's flags stands for.
constexpr std::array kFlagOfBit = {
    FS_IMMUTABLE_FL, FS_APPEND_FL,  FS_NODUMP_FL,      FS_NOATIME_FL,
    FS_SYNC_FL,      FS_DIRSYNC_FL, FS_NOCOW_FL,       FS_COMPR_FL,
    FS_NOCOMP_FL,    FS_NOTAIL_FL,  FS_TOPDIR_FL,      FS_DAX_FL,
    FS_SECRM_FL,     FS_UNRM_FL,    FS_PROJINHERIT_FL, FS_JOURNAL_DATA_FL};
static_assert(std::accumulate(kFlagOfBit.begin(), kFlagOfBit.end(), host::InodeFlags{0},
                              [](host::InodeFlags all, int flag) {
                                return all | static_cast<host::InodeFlags>(flag);
                              }) == host::kSettableFlags);

}  // namespace

std::uint16_t packed(const KnownFlags& flags) {
  if (!flags) return kUnknownFlags;
  unsigned bits = 0;
  for (std::size_t bit = 0; bit < kFlagOfBit.size(); ++bit) {
    if ((*flags & static_cast<host::InodeFlags>(kFlagOfBit[bit])) != 0) bits |= 1U << bit;
  }
  return static_cast<std::uint16_t>(bits);
}

KnownFlags unpacked(std::uint16_t bits) {
  if (bits == kUnknownFlags) return std::nullopt;
  host::InodeFlags flags = 0;
  for (std::size_t bit = 0; bit < kFlagOfBit.size(); ++bit) {
    if ((bits >> bit & 1U) != 0) flags |= static_cast<host::InodeFlags>(kFlagOfBit[bit]);
  }
  return flags;
}

}  // namespace halyard::snapwheel

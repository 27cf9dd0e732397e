// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How the inode flags of an item stand in an index.
#pragma once

#include <cstdint>

#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

/// No item is compressed and not compressed, so not all bits are set.
inline constexpr std::uint16_t kUnknownFlags = 0xffff;

std::uint16_t packed(const KnownFlags& flags);
KnownFlags unpacked(std::uint16_t bits);

}  // namespace halyard::snapwheel

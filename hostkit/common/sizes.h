// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Byte counts for people.
#pragma once

#include <cstdint>
#include <string>

namespace halyard::hostkit {

/// "512 B", "1.5 KiB", "20.0 GiB": binary units, one decimal above bytes.
std::string sizeText(std::uint64_t bytes);

}  // namespace halyard::hostkit

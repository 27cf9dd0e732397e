// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/sizes.h"

#include <array>
#include <cstdio>

namespace halyard::hostkit {

std::string sizeText(std::uint64_t bytes) {
  static constexpr std::array<const char*, 7> kUnits = {"B",   "KiB", "MiB", "GiB",
                                                        "TiB", "PiB", "EiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  // 1023.95 would show as "1024.0": the next unit shows it better.
  while (value >= 1023.95 && unit + 1 < kUnits.size()) {
    value /= 1024.0;
    ++unit;
  }
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
  return text.data();
}

}  // namespace halyard::hostkit

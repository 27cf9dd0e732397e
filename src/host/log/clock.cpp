// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/log/clock.h"

#include <array>
#include <ctime>

namespace halyard::host {

std::string currentDateText() {
  const std::time_t now = std::time(nullptr);
  std::tm instant{};
  gmtime_r(&now, &instant);
  std::array<char, 64> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S +0000", &instant);
  return {text.data(), length};
}

}  // namespace halyard::host

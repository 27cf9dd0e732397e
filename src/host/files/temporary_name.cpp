// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/temporary_name.h"

#include <sys/random.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "host/files/system_call.h"

namespace halyard::host {

std::string temporaryName() {
  std::uint64_t number = 0;
  const auto filled = uninterrupted([&] { return ::getrandom(&number, sizeof number, 0); });
  if (filled != sizeof number) {
    // A name that can be foreseen still cannot be taken over: items are created exclusively.
    number =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), ".halyard-%016llx",
                static_cast<unsigned long long>(number));
  return text.data();
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How long a test with chance in it runs, and where its chance begins.
#pragma once

#include <cstdlib>

namespace halyard::test {

/// The number in the environment variable, as HALYARD_SEED; `otherwise` where there is none.
inline unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

}  // namespace halyard::test

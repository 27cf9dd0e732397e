// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a fuzz target checks beyond "no crash".
#pragma once

#include <cstdio>
#include <cstdlib>

namespace halyard::fuzz {

/// Ends the process, so that the fuzzer keeps the input, unless the fact holds.
inline void expect(bool fact, const char* what) {
  if (fact) return;
  (void)std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

}  // namespace halyard::fuzz

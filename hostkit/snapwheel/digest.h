// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Digests of contents: XXH3 with 128 bits. They find what chance does to a disk, not what somebody
// makes on purpose.
#pragma once

#include <cstddef>
#include <memory>

#include "host/tree/tree_memory.h"

struct XXH3_state_s;

namespace halyard::snapwheel {

/// Takes in what belongs together, piece by piece.
class Digester {
 public:
  Digester();

  void begin();
  void add(const void* bytes, std::size_t count);
  void addZeros(std::uint64_t count);
  /// Of all since begin(), or since the digester was made.
  host::ContentDigest digest() const;

 private:
  struct Free {
    void operator()(XXH3_state_s* state) const;
  };
  std::unique_ptr<XXH3_state_s, Free> state_;
};

}  // namespace halyard::snapwheel

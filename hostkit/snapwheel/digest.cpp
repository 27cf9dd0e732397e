// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/digest.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <new>

namespace halyard::snapwheel {

Digester::Digester() : state_(::XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  begin();
}

void Digester::Free::operator()(XXH3_state_s* state) const { (void)::XXH3_freeState(state); }

void Digester::begin() { (void)::XXH3_128bits_reset(state_.get()); }

void Digester::add(const void* bytes, std::size_t count) {
  (void)::XXH3_128bits_update(state_.get(), bytes, count);
}

void Digester::addZeros(std::uint64_t count) {
  static constexpr std::array<char, std::size_t{64} << 10> kZeros{};
  while (count > 0) {
    const auto step = std::min<std::uint64_t>(count, kZeros.size());
    add(kZeros.data(), step);
    count -= step;
  }
}

host::ContentDigest Digester::digest() const {
  const XXH128_hash_t hash = ::XXH3_128bits_digest(state_.get());
  return {hash.high64, hash.low64};
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/digest.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace halyard::snapwheel {

namespace {

constexpr std::array<char, std::size_t{4} << 10> kZeros{};

host::ContentDigest valueOf(const XXH128_hash_t& hash) { return {hash.high64, hash.low64}; }

std::size_t zerosAtTheBegin(const char* bytes, std::size_t count) {
  std::size_t zeros = 0;
  while (count - zeros >= kZeros.size() &&
         std::memcmp(bytes + zeros, kZeros.data(), kZeros.size()) == 0) {
    zeros += kZeros.size();
  }
  while (zeros < count && bytes[zeros] == 0) ++zeros;
  return zeros;
}

std::size_t zerosAtTheEnd(const char* bytes, std::size_t count) {
  std::size_t rest = count;
  while (rest >= kZeros.size() &&
         std::memcmp(bytes + rest - kZeros.size(), kZeros.data(), kZeros.size()) == 0) {
    rest -= kZeros.size();
  }
  while (rest > 0 && bytes[rest - 1] == 0) --rest;
  return count - rest;
}

}  // namespace

Digester::Digester() : state_(::XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  begin();
}

void Digester::Free::operator()(XXH3_state_s* state) const { (void)::XXH3_freeState(state); }

void Digester::begin() {
  (void)::XXH3_128bits_reset(state_.get());
  length_ = zeros_ = 0;
  longRuns_ = {};
}

void Digester::add(const void* bytes, std::size_t count) {
  const auto* at = static_cast<const char*>(bytes);
  while (count > 0) {
    const auto step = std::min<std::uint64_t>(count, kLongZeros);
    addPiece(at, step);
    at += step;
    count -= step;
  }
}

/// A run within a piece is no long one.
void Digester::addPiece(const char* bytes, std::size_t count) {
  const std::size_t first = zerosAtTheBegin(bytes, count);
  zeros_ += first;
  if (first == count) return;
  endZeros();
  const std::size_t last = zerosAtTheEnd(bytes, count);
  addOther(bytes + first, count - first - last);
  zeros_ = last;
}

void Digester::addOther(const void* bytes, std::size_t count) {
  (void)::XXH3_128bits_update(state_.get(), bytes, count);
  length_ += count;
}

void Digester::addZeros(std::uint64_t count) { zeros_ += count; }

void Digester::endZeros() {
  if (zeros_ >= kLongZeros) {
    const std::array run = {longRuns_[0], longRuns_[1], length_, zeros_};
    longRuns_ = valueOf(::XXH3_128bits(run.data(), sizeof run));
    length_ += zeros_;
    zeros_ = 0;
  }
  while (zeros_ > 0) {
    const auto step = std::min<std::uint64_t>(zeros_, kZeros.size());
    addOther(kZeros.data(), step);
    zeros_ -= step;
  }
}

host::ContentDigest Digester::digest() {
  endZeros();
  if (longRuns_ != host::ContentDigest{}) addOther(longRuns_.data(), sizeof longRuns_);
  return valueOf(::XXH3_128bits_digest(state_.get()));
}

}  // namespace halyard::snapwheel

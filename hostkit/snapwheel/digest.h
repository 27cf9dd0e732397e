// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Digests of contents: XXH3 with 128 bits, in which a long run of zeros stands for itself by where
// it begins and how long it is. A file of nothing but a hole can be larger than any disk, and
// anybody can make one. They find what chance does to a disk, not what somebody makes on purpose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/tree/tree_memory.h"

struct XXH3_state_s;

namespace halyard::snapwheel {

/// Shorter runs of zeros are taken in like other bytes.
inline constexpr std::uint64_t kLongZeros = std::uint64_t{1} << 20;

/// Takes in what belongs together, piece by piece. Whether zeros come as bytes or as a number of
/// them makes no difference.
class Digester {
 public:
  Digester();

  void begin();
  void add(const void* bytes, std::size_t count);
  void addZeros(std::uint64_t count);
  /// Of all since begin(), or since the digester was made. Nothing but begin() may follow.
  host::ContentDigest digest();

 private:
  void addPiece(const char* bytes, std::size_t count);
  void addOther(const void* bytes, std::size_t count);
  void endZeros();

  struct Free {
    void operator()(XXH3_state_s* state) const;
  };
  std::unique_ptr<XXH3_state_s, Free> state_;
  std::uint64_t length_ = 0;  ///< Without the zeros at the end.
  std::uint64_t zeros_ = 0;   ///< At the end, so far.
  host::ContentDigest longRuns_ = {};
};

inline constexpr host::ContentDigest kNoDigest = {};

/// A ContentWatcher, or what is one too, that takes the digest of what it sees.
template <typename Watcher>
class Digesting : public Watcher {
 public:
  void begin() override {
    digester_.begin();
    digest_ = kNoDigest;
  }
  void read(const char* bytes, std::size_t count) override { digester_.add(bytes, count); }
  void readZeros(std::uint64_t count) override { digester_.addZeros(count); }
  void end() override { digest_ = digester_.digest(); }

 protected:
  host::ContentDigest digest_ = kNoDigest;  ///< Of the file at hand, once it was seen to its end.

 private:
  Digester digester_;
};

}  // namespace halyard::snapwheel

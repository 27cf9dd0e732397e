// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Another account that swaps its folders and files for links while root works on them.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace halyard::test {

/// The account of the swapper.
inline constexpr uid_t kSwapperUser = 1815;
inline constexpr gid_t kSwapperGroup = 1816;

/// A process without privileges. It is opened on a folder, which nobody has to be able to reach by
/// its path, and there exchanges each name with its partner, again and again, in random order.
class Swapper {
 public:
  struct Pair {
    std::string item;  ///< The real one.
    std::string link;  ///< What takes its place.
  };

  /// Begins with every item in its own place. `seed` decides the order.
  Swapper(const std::string& folder, const std::vector<Pair>& pairs, unsigned seed);
  /// Ends the process; what is swapped stays so.
  ~Swapper();
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;

  /// Waits until the first swap is done.
  void start();
  /// Waits until the last one is.
  void pause();
  /// How many were done in all.
  std::uint64_t swaps() const { return shared_->swaps; }

 private:
  struct Shared {
    std::atomic<bool> goes;
    std::atomic<bool> rests;
    std::atomic<std::uint64_t> swaps;
  };
  [[noreturn]] static void swap(int folder, const std::vector<Pair>& pairs, unsigned seed,
                                Shared& shared);

  Shared* shared_ = nullptr;
  pid_t process_ = -1;
};

}  // namespace halyard::test

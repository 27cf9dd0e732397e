// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Another account swaps what root works on for links that lead outside.
//
// An attempt is one item that root works on while it is swapped; a run of an operation makes as
// many attempts as its tree has such items. HALYARD_ATTEMPTS is their number (64) and HALYARD_SEED
// the order in which they are swapped.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/outside_watch.h"

namespace halyard::test {

class Race {
 public:
  /// Makes the folder `base`/outside, which nothing may touch; operations reach it as `outside`.
  Race(const std::string& base, std::string outside);

  /// Makes a folder of the other account's. In it are folders and files, which hold `word` as what
  /// is outside holds "outside", and the links that take their places. What stood there is removed.
  void fill(const std::string& folder, const std::string& word) const;
  static std::vector<std::string> folders();
  static std::vector<std::string> files();

  struct Run {
    std::function<std::string()> prepare;  ///< Answers with the folder in which items are swapped,
    std::function<void()> act;             ///< while this runs.
    std::function<void()> check = [] {};   ///< Of what came of it.
    std::vector<std::string> items = both();  ///< Those that are swapped.
    unsigned cost = 1;  ///< Where HALYARD_ATTEMPTS is not set only one attempt in so many is made.
  };
  /// Until all attempts are made or one of them failed the test.
  void run(const Run& run);

  /// Whether a file at or below the path holds what only stands outside.
  static bool holdsOutside(const std::string& path);

 private:
  static std::vector<std::string> both();

  std::string outside_;
  std::unique_ptr<OutsideWatch> watch_;
};

}  // namespace halyard::test

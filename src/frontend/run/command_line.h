// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The command line of the one run that a process is.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/text.h"

namespace halyard {

/// Filled by main() and the option parser; handed to each command, which reads its options here.
struct CommandLine {
  std::int32_t wordCount = 0;  ///< Words of the command line, program name included.
  std::map<std::string, std::string> options;  ///< Option word as typed, to its value.
  std::string snapshotRepository;  ///< From the fifth word; empty on shorter command lines.

  /// The value of an option; absent when it was not given.
  MaybeString option(const std::string& word) const {
    const auto found = options.find(word);
    return found == options.end() ? std::nullopt : MaybeString(found->second);
  }
};

}  // namespace halyard

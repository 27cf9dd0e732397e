// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The words of the command line as option pairs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "frontend/run/command_line.h"

namespace halyard {

/// Fills the option table from the words after the program name: pairs in any order, a later pair
/// replacing an earlier one of the same word. "-opt" as the fifth pair swallows every word after
/// it: its value is each of them behind a blank.
void ParseOptions(const std::vector<std::string>& words, CommandLine& line);

/// Whether a command line of these words (program name not among them) can be a command at all:
/// 2, 4, 6, 8, 10, 11 or 12 words; of 11, the ninth must be "-opt", or its last has no partner.
bool isAcceptableWordList(const std::vector<std::string>& words);

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/options.h"

#include <algorithm>
#include <array>

#include "frontend/run/function_log.h"

namespace halyard {

namespace {

constexpr std::size_t kManyWordOptionIndex = 8;  // where "-opt" may take several words

bool hasManyWordOption(const std::vector<std::string>& words) {
  return words.size() > 10 && words[kManyWordOptionIndex] == "-opt";
}

}  // namespace

void ParseOptions(const std::vector<std::string>& words, CommandLine& line) {
  const FunctionLog scope(__func__);
  std::string joined;
  std::size_t paired = words.size();
  if (hasManyWordOption(words)) {
    paired = kManyWordOptionIndex + 1;
    for (std::size_t i = paired; i < words.size(); ++i) joined += " " + words[i];
  }
  line.options.clear();
  for (std::size_t i = 0; i < paired && i + 1 < words.size(); i += 2) {
    line.options[words[i]] = words[i + 1];
  }
  if (paired < words.size()) line.options["-opt"] = joined;
}

bool isAcceptableWordList(const std::vector<std::string>& words) {
  constexpr std::array<std::size_t, 7> kAcceptable = {2, 4, 6, 8, 10, 11, 12};
  if (std::ranges::find(kAcceptable, words.size()) == kAcceptable.end()) return false;
  return words.size() % 2 == 0 || hasManyWordOption(words);
}

}  // namespace halyard

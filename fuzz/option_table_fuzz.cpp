// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Any words, parted by NUL as the kernel hands them over: the option table against its rule.
#include <algorithm>
#include <cstdint>
#include <map>

#include "expect.h"
#include "frontend/options.h"

using halyard::fuzz::expect;

namespace {

/// Pairs from the end, so that the last of a word is the first that is met.
std::map<std::string, std::string> expectedTable(std::vector<std::string> words) {
  std::map<std::string, std::string> table;
  if (words.size() > 10 && words[8] == "-opt") {
    std::string rest;
    while (words.size() > 9) {
      rest.insert(0, " " + words.back());
      words.pop_back();
    }
    table.emplace("-opt", rest);
  }
  for (std::size_t i = words.size() / 2; i-- > 0;) table.emplace(words[2 * i], words[2 * i + 1]);
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  std::vector<std::string> words;
  for (const std::string_view word : halyard::splitAt(text, '\0')) words.emplace_back(word);
  halyard::CommandLine line;
  halyard::ParseOptions(words, line);
  expect(line.options == expectedTable(words), "the table holds the last pairs");
  if (halyard::isAcceptableWordList(words)) {
    expect(words.size() >= 2 && words.size() <= 12, "a command has two to twelve words");
    expect(words.size() % 2 == 0 || words[8] == "-opt", "every word has its partner");
  }
  return 0;
}

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A verify answer: the last summary line, found from the end, has the value.
#include <cstdint>

#include "base/text.h"
#include "browse/verify.h"
#include "expect.h"

using halyard::fuzz::expect;

namespace {

std::int32_t expectedFailures(std::string_view text) {
  const auto lines = halyard::splitAt(text, '\n');
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    constexpr std::string_view kSummary = "Number of failures to match";
    if (!line->starts_with(kSummary)) continue;
    // The summary, and four more characters in front of the value.
    std::string_view rest = line->substr(kSummary.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
      if (halyard::characterCount(rest.substr(0, i + 1)) == 5) {
        return halyard::leadingInteger(rest.substr(i));
      }
    }
    return 0;
  }
  return 99;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  expect(halyard::failuresReported(text) == expectedFailures(text), "the last summary line counts");
  return 0;
}

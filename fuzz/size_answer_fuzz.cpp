// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A size answer in any pieces against the whole text, line by line. The first byte says how long
// the pieces are.
#include <cstdint>

#include "backup/size.h"
#include "expect.h"

using halyard::SizeAnswer;
using halyard::fuzz::expect;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
  const std::size_t step = bytes[0] % 16 + 1U;
  SizeAnswer values(SizeAnswer::Keep::everyValue);
  SizeAnswer sum(SizeAnswer::Keep::sum);
  for (std::size_t i = 0; i < text.size(); i += step) {
    values.take(text.substr(i, step));
    sum.take(text.substr(i, step));
  }
  values.finish();
  sum.finish();

  constexpr std::string_view kPrefix = "total := ";
  std::int64_t expectedSum = 0;
  std::vector<std::int32_t> expected;
  for (const std::string_view line : halyard::splitAt(text, '\n')) {
    if (!line.starts_with(kPrefix)) continue;
    expected.push_back(halyard::leadingInteger(line.substr(kPrefix.size())));
    expectedSum += expected.back();
  }
  expect(values.values() == expected, "each line with the prefix counts");
  expect(values.sum() == expectedSum && sum.sum() == expectedSum, "all values are added");
  expect(sum.values().empty(), "values are kept only when asked for");
  return 0;
}

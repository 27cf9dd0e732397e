// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The integer of a disk-usage answer, a version or a preference, against the C library's, and read
// in two pieces.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "base/text.h"
#include "expect.h"

using halyard::fuzz::expect;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  using Limits = std::numeric_limits<std::int32_t>;
  const auto expected = static_cast<std::int32_t>(
      std::clamp<long long>(std::strtoll(text.c_str(), nullptr, 10), Limits::min(), Limits::max()));
  expect(halyard::leadingInteger(text) == expected, "the C library reads the same number");
  for (const std::size_t cut : {size / 3, size / 2, size - size / 4}) {
    halyard::IntegerReader reader;
    const bool mayGoOn = reader.take(std::string_view(text).substr(0, cut));
    const std::int32_t sofar = reader.value();
    (void)reader.take(std::string_view(text).substr(cut));
    expect(reader.value() == expected, "pieces make no difference");
    expect(mayGoOn || sofar == expected, "nothing changes a number that has ended");
  }
  return 0;
}

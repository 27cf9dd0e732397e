// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What was read is written so that it is read as the same; any value at all is written so that it
// can be read.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <cstdint>

#include "base/property_list.h"
#include "expect.h"

using halyard::fuzz::expect;
using namespace halyard;

namespace {

PropertyValue valueFrom(FuzzedDataProvider& bytes, int levels) {
  const auto text = [&] { return bytes.ConsumeRandomLengthString(); };
  switch (bytes.ConsumeIntegralInRange(0, levels > 0 ? 7 : 5)) {
    case 0:
      return text();
    case 1:
      return bytes.ConsumeIntegral<std::int64_t>();
    case 2:
      return std::bit_cast<double>(bytes.ConsumeIntegral<std::uint64_t>());
    case 3:
      return bytes.ConsumeBool();
    case 4:
      return PropertyValue::date(text());
    case 5:
      return PropertyValue::data(text());
    case 6: {
      PropertyArray array;
      while (bytes.ConsumeBool()) array.push_back(valueFrom(bytes, levels - 1));
      return array;
    }
    default: {
      PropertyDictionary dictionary;
      while (bytes.ConsumeBool()) dictionary.set(text(), valueFrom(bytes, levels - 1));
      return dictionary;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (const auto root = parsePropertyList({reinterpret_cast<const char*>(bytes), size})) {
    expect(parsePropertyList(writePropertyList(*root)) == root, "what was read comes back equal");
    return 0;
  }
  FuzzedDataProvider provider(bytes, size);
  const auto back = parsePropertyList(writePropertyList(valueFrom(provider, 8)));
  expect(back.has_value(), "every written list can be read");
  expect(parsePropertyList(writePropertyList(*back)) == back, "what was read comes back equal");
  return 0;
}

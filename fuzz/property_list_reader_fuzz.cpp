// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Any bytes at all: read or refused, and what is read can be shown, searched and copied.
#include <cstdint>

#include "base/property_list.h"
#include "expect.h"

using halyard::fuzz::expect;
using namespace halyard;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const auto root = parsePropertyList(text);
  if (!root) return 0;
  expect(halyard::isValidUtf8(text), "what is read is UTF-8");
  expect(text.find('\0') == std::string_view::npos, "what is read has no NUL");
  expect(!root->description().empty(), "every value has a description");
  expect(PropertyValue(*root) == *root, "a copy is equal");
  if (const PropertyDictionary* dictionary = root->asDictionary()) {
    for (const auto& [key, value] : *dictionary) {
      expect(dictionary->find(key) == &value, "each key is found, and stands once");
    }
  }
  return 0;
}

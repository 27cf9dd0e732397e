// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/property_file.h"

#include "host/files/files.h"

namespace halyard::host {

std::optional<PropertyValue> readPropertyList(const std::string& path, std::size_t limit) {
  const auto text = readFile(path, limit);
  return text ? parsePropertyList(*text) : std::nullopt;
}

std::optional<PropertyDictionary> readDictionary(const std::string& path, std::size_t limit) {
  auto root = readPropertyList(path, limit);
  return root ? std::move(*root).takeDictionary() : std::nullopt;
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/computer_name.h"

#include <utility>

#include "host/files/property_file.h"
#include "product/paths.h"

namespace halyard {

namespace {

constexpr const char* kSystemKey = "System";  // twice, one inside the other
constexpr const char* kNameKey = "ComputerName";

PropertyDictionary inside(const PropertyDictionary& outer) {
  const PropertyDictionary* const inner = outer.dictionary(kSystemKey);
  return inner == nullptr ? PropertyDictionary{} : *inner;
}

}  // namespace

std::string computerName() {
  return computerNameIn(host::readDictionary(paths::kHostConfigurationFile));
}

std::string computerNameIn(const std::optional<PropertyDictionary>& configuration) {
  const auto* const outer = configuration ? configuration->dictionary(kSystemKey) : nullptr;
  const auto* const inner = outer != nullptr ? outer->dictionary(kSystemKey) : nullptr;
  return inner != nullptr ? inner->text(kNameKey).value_or(kUnknownComputer) : kUnknownComputer;
}

void setComputerName(PropertyDictionary& configuration, const std::string& name) {
  PropertyDictionary outer = inside(configuration);
  PropertyDictionary inner = inside(outer);
  inner.set(kNameKey, name);
  outer.set(kSystemKey, std::move(inner));
  configuration.set(kSystemKey, std::move(outer));
}

std::string computerNameFromHostName(std::string_view hostName) {
  std::string name;
  for (const char character : hostName.substr(0, hostName.find('.'))) {
    if (character == '/' || static_cast<unsigned char>(character) <= ' ') continue;
    name += character;
  }
  return isUsableComputerName(name) ? name : kUnknownComputer;
}

bool isUsableComputerName(std::string_view name) {
  return !name.empty() && !name.starts_with('.') && name.size() <= 255 &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/service_names.h"

#include <algorithm>

namespace halyard {

std::optional<std::size_t> knownServiceIndex(std::string_view name) {
  const auto* const known = std::ranges::find(kKnownServices, name);
  if (known == kKnownServices.end()) return std::nullopt;
  return static_cast<std::size_t>(known - kKnownServices.begin());
}

bool isKnownService(std::string_view name) { return knownServiceIndex(name).has_value(); }

bool isBackedUp(std::string_view name, std::int32_t flag) {
  return !isKnownService(name) || flag != 0;
}

bool isBackedUp(const PropertyDictionary& services, std::string_view name) {
  const PropertyValue* const flag = services.find(name);
  return isBackedUp(name, flag == nullptr ? 0 : flag->integerValue());
}

}  // namespace halyard

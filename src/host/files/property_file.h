// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Property lists in files: what base/property_list.h parses, behind a bound on the file's size.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/property_list.h"

namespace halyard::host {

/// Reads a regular file of at most `limit` bytes; absent for anything that is refused.
std::optional<PropertyValue> readPropertyList(const std::string& path,
                                              std::size_t limit = kPreferenceLimit);

/// As readPropertyList; absent too when the root is no dictionary.
std::optional<PropertyDictionary> readDictionary(const std::string& path,
                                                 std::size_t limit = kPreferenceLimit);

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Preference files: read as the program reads them, written so that they are always whole.
#pragma once

#include <optional>
#include <string>

#include "base/property_list.h"
#include "base/result.h"

namespace halyard::hostkit {

/// Reads the dictionary, or says why not. `problem` is empty when the file is simply not there.
std::optional<PropertyDictionary> readPropertyFile(const std::string& path, std::string& problem);

/// Replaces the file by the dictionary, at once and for good: at any instant, a power cut
/// included, it is absent, old or complete. A file that is a link stays one: what it leads to is
/// replaced. The file keeps its mode; a new one gets 0644. Missing folders are not made.
Status writePropertyFile(const std::string& path, const PropertyDictionary& dictionary);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// JSON that lies where others may have written.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// The document in the file; discarded when there is none, when it is longer than `limit` bytes,
/// nested more than 32 deep, or no JSON. Takes memory in proportion to `limit` at the most.
nlohmann::json readJsonFile(const std::string& path, std::size_t limit);

/// The same of a text.
nlohmann::json parseJson(std::string_view text);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Members of a JSON document in which no value is trusted to have its type: a record of another
// version, or one that lies where others may have written. A document of any kind will do; one that
// is no object has no members.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace halyard::hostkit {

/// Null for one that is not there.
const nlohmann::json& memberOf(const nlohmann::json& document, const char* key);

/// Empty unless it is a text.
std::string textOf(const nlohmann::json& document, const char* key);

/// The texts of a list, without what else is in it.
std::vector<std::string> textsOf(const nlohmann::json& document, const char* key);

/// Whether it is true.
bool flagOf(const nlohmann::json& document, const char* key);

/// Absent unless it is a whole number that fits.
std::optional<std::int64_t> integerOf(const nlohmann::json& document, const char* key);
std::optional<std::uint64_t> countOf(const nlohmann::json& document, const char* key);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/json_members.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace halyard::hostkit {

const nlohmann::json& memberOf(const nlohmann::json& document, const char* key) {
  static const nlohmann::json kNull;
  const auto found = document.find(key);
  return found == document.end() ? kNull : *found;
}

std::string textOf(const nlohmann::json& document, const char* key) {
  const nlohmann::json& value = memberOf(document, key);
  return value.is_string() ? value.get<std::string>() : "";
}

std::vector<std::string> textsOf(const nlohmann::json& document, const char* key) {
  std::vector<std::string> texts;
  const nlohmann::json& list = memberOf(document, key);
  if (!list.is_array()) return texts;
  for (const auto& entry : list) {
    if (entry.is_string()) texts.push_back(entry.get<std::string>());
  }
  return texts;
}

bool flagOf(const nlohmann::json& document, const char* key) {
  const nlohmann::json& value = memberOf(document, key);
  return value.is_boolean() && value.get<bool>();
}

std::optional<std::int64_t> integerOf(const nlohmann::json& document, const char* key) {
  const nlohmann::json& value = memberOf(document, key);
  if (!value.is_number_integer()) return std::nullopt;
  if (value.is_number_unsigned() && !std::in_range<std::int64_t>(value.get<std::uint64_t>())) {
    return std::nullopt;
  }
  return value.get<std::int64_t>();
}

std::optional<std::uint64_t> countOf(const nlohmann::json& document, const char* key) {
  const nlohmann::json& value = memberOf(document, key);
  if (!value.is_number_unsigned()) return std::nullopt;
  return value.get<std::uint64_t>();
}

}  // namespace halyard::hostkit

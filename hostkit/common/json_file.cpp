// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/json_file.h"

#include <nlohmann/json.hpp>

#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr int kDeepest = 32;

/// Before it is parsed, since each level costs the parser many times its one byte.
bool isTooDeep(std::string_view text) {
  int depth = 0;
  bool inString = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char character = text[at];
    if (inString && character == '\\') {
      ++at;
    } else if (character == '"') {
      inString = !inString;
    } else if (!inString && (character == '[' || character == '{')) {
      if (++depth > kDeepest) return true;
    } else if (!inString && (character == ']' || character == '}')) {
      --depth;
    }
  }
  return false;
}

}  // namespace

nlohmann::json parseJson(std::string_view text) {
  if (isTooDeep(text)) return nlohmann::json(nlohmann::json::value_t::discarded);
  return nlohmann::json::parse(text, nullptr, false);
}

nlohmann::json readJsonFile(const std::string& path, std::size_t limit) {
  const auto text = host::readFile(path, limit);
  return text ? parseJson(*text) : nlohmann::json(nlohmann::json::value_t::discarded);
}

}  // namespace halyard::hostkit

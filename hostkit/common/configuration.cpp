// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/configuration.h"

#include <algorithm>

#include "base/text.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kLimit = std::size_t{1} << 20;
constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Absent for a line that is none; with an empty key for one that says nothing.
std::optional<ConfigurationLine> parseLine(std::string_view line) {
  line = trimmed(line);
  if (line.empty() || line.front() == '#' || line.front() == ';') return ConfigurationLine{};
  const std::size_t mark = line.find('=');
  if (mark == std::string_view::npos || trimmed(line.substr(0, mark)).empty()) return std::nullopt;
  return ConfigurationLine{std::string(trimmed(line.substr(0, mark))),
                           std::string(trimmed(line.substr(mark + 1))), 0};
}

std::string joined(const std::vector<std::string_view>& keys) {
  std::string text;
  for (const std::string_view key : keys) text.append(text.empty() ? "" : ", ").append(key);
  return text;
}

}  // namespace

std::optional<std::vector<ConfigurationLine>> readConfiguration(
    const std::string& path, const std::vector<std::string_view>& keys, std::string& problem) {
  std::vector<ConfigurationLine> lines;
  if (host::isAbsent(path)) return lines;
  const auto text = host::readFile(path, kLimit);
  if (!text) {
    problem = path + " cannot be read";
    return std::nullopt;
  }
  std::size_t number = 0;
  for (const std::string_view line : splitAt(*text, '\n')) {
    ++number;
    const std::string place = path + ":" + std::to_string(number) + ": ";
    auto parsed = parseLine(line);
    if (!parsed) {
      problem = place + "is no line \"key = value\"";
      return std::nullopt;
    }
    if (parsed->key.empty()) continue;
    if (std::ranges::find(keys, parsed->key) == keys.end()) {
      problem = place + "there is no key '" + parsed->key + "' (there are: " + joined(keys) + ")";
      return std::nullopt;
    }
    parsed->number = number;
    lines.push_back(std::move(*parsed));
  }
  return lines;
}

std::vector<ConfigurationLine> configurationLines(const std::string& path) {
  std::vector<ConfigurationLine> lines;
  const auto text = host::readFile(path, kLimit);
  if (!text) return lines;
  for (const std::string_view line : splitAt(*text, '\n')) {
    auto parsed = parseLine(line);
    if (parsed && !parsed->key.empty()) lines.push_back(std::move(*parsed));
  }
  return lines;
}

Status replaceConfigurationLines(const std::string& path, const std::vector<std::string_view>& keys,
                                 const std::vector<ConfigurationLine>& lines) {
  const auto text = host::readFile(path, kLimit);
  if (!text && !host::isAbsent(path)) return Error{EIO, path};
  if (!text && lines.empty()) return {};
  const std::string before = text.value_or("");
  std::string kept;
  for (const std::string_view line : splitAt(trimLineFeeds(before), '\n')) {
    const auto parsed = parseLine(line);
    if (before.empty() || (parsed && std::ranges::find(keys, parsed->key) != keys.end())) continue;
    kept.append(line).append("\n");
  }
  for (const ConfigurationLine& line : lines) kept += line.key + " = " + line.value + "\n";
  return host::writeFile(path, kept, host::Durability::power);
}

Status addConfigurationLine(const std::string& path, std::string_view key, std::string_view value) {
  const auto before = host::readFile(path, kLimit);
  if (!before && !host::isAbsent(path)) return Error{EIO, path};
  std::string text = before.value_or("");
  if (!text.empty() && !text.ends_with('\n')) text += '\n';
  text.append(key).append(" = ").append(value).append("\n");
  return host::writeFile(path, text, host::Durability::power);
}

Status removeConfigurationLine(const std::string& path, std::string_view key,
                               std::string_view value) {
  const auto text = host::readFile(path, kLimit);
  if (!text) return host::isAbsent(path) ? Status() : Error{EIO, path};
  std::string kept;
  for (const std::string_view line : splitAt(trimLineFeeds(*text), '\n')) {
    const auto parsed = parseLine(line);
    if (parsed && parsed->key == key && parsed->value == value) continue;
    kept.append(line).append("\n");
  }
  return host::writeFile(path, kept, host::Durability::power);
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/volume_names.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"

namespace halyard::hostkit {

namespace {

constexpr std::string_view kEscape = "\\x";
constexpr std::size_t kEscapeDigits = 2;

bool isPlainLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == ':' || letter == '_' || letter == '.';
}

void appendEscaped(std::string& name, char letter) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(letter);
  name.append(kEscape);
  name.push_back(kDigits[value / kDigits.size()]);
  name.push_back(kDigits[value % kDigits.size()]);
}

}  // namespace

bool isPlainMountPoint(std::string_view path) {
  if (path == "/") return true;
  if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) return false;
  return std::ranges::none_of(splitAt(path.substr(1), '/'), [](std::string_view name) {
    return name.empty() || name == "." || name == "..";
  });
}

std::string volumeFolderName(std::string_view mountPoint) {
  if (mountPoint == "/") return std::string(kRootVolumeFolder);
  std::string name;
  for (const char letter : mountPoint.substr(1)) {
    const bool isHidden = letter == '.' && name.empty();
    if (letter == '/') {
      name.push_back('-');
    } else if (isPlainLetter(letter) && !isHidden) {
      name.push_back(letter);
    } else {
      appendEscaped(name, letter);
    }
  }
  if (name != kRootVolumeFolder) return name;
  std::string other;  // A volume at "/System".
  appendEscaped(other, name.front());
  return other + name.substr(1);
}

std::optional<std::string> mountPointOfFolder(std::string_view folder) {
  if (folder == kRootVolumeFolder) return "/";
  std::string path = "/";
  for (std::size_t at = 0; at < folder.size(); ++at) {
    if (!folder.substr(at).starts_with(kEscape)) {
      path.push_back(folder[at] == '-' ? '/' : folder[at]);
      continue;
    }
    const std::string_view digits = folder.substr(at + kEscape.size(), kEscapeDigits);
    unsigned value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    const bool isWhole = digits.size() == kEscapeDigits && end == digits.data() + digits.size();
    if (error != std::errc{} || !isWhole) return std::nullopt;
    path.push_back(static_cast<char>(value));
    at += kEscape.size() + kEscapeDigits - 1;
  }
  // Of the ways to escape a path one alone is taken.
  if (path == "/" || !isPlainMountPoint(path) || volumeFolderName(path) != folder) {
    return std::nullopt;
  }
  return path;
}

}  // namespace halyard::hostkit

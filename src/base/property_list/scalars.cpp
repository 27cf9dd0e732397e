// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "base/property_list/scalars.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "base/text.h"

namespace halyard {

namespace {

constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 64;

constexpr std::array<std::uint8_t, 256> kBase64Values = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (std::size_t i = 0; i < kBase64Digits.size(); ++i) {
    values[static_cast<unsigned char>(kBase64Digits[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isXmlSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isXmlSpace(text.back())) text.remove_suffix(1);
  return text;
}

/// Takes a sign off the front; whether it was "-".
bool takeSign(std::string_view& text) {
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  return negative;
}

}  // namespace

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::optional<std::int64_t> parseInteger(std::string_view text) {
  text = trimmed(text);
  const bool negative = takeSign(text);
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  // Unsigned: neither a second sign nor a limit that differs between the two halves of the range.
  std::uint64_t magnitude = 0;
  const auto [rest, error] =
      std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc() || rest != text.data() + text.size()) return std::nullopt;
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  if (magnitude > kMost + (negative ? 1 : 0)) return std::nullopt;
  return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

std::optional<double> parseReal(std::string_view text) {
  text = trimmed(text);
  const bool negative = takeSign(text);
  double magnitude = 0;
  if (equalsIgnoringCase(text, "nan")) {
    magnitude = std::numeric_limits<double>::quiet_NaN();
  } else if (equalsIgnoringCase(text, "inf") || equalsIgnoringCase(text, "infinity")) {
    magnitude = std::numeric_limits<double>::infinity();
  } else {
    // Only a number: from_chars would take a second sign and further names as well.
    if (text.empty() || (text.front() != '.' && (text.front() < '0' || text.front() > '9'))) {
      return std::nullopt;
    }
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (error != std::errc() || rest != text.data() + text.size()) return std::nullopt;
  }
  return negative ? -magnitude : magnitude;
}

std::string realText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-infinity" : "+infinity";
  std::array<char, 32> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), end};  // The longest shortest form has 24 characters.
}

std::optional<std::string> decodeBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  std::size_t digits = 0;  // of the open group, padding included
  std::size_t padding = 0;
  for (const char c : text) {
    if (isXmlSpace(c)) continue;
    const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
    if (c == '=' ? digits < 2 : value == kNoDigit || padding > 0) return std::nullopt;
    if (c == '=') ++padding;
    group = group << 6 | (c == '=' ? 0U : value);
    if (++digits < 4) continue;
    for (std::size_t i = 0; i < 3 - padding; ++i) {
      bytes.push_back(static_cast<char>(group >> (16 - 8 * i) & 0xFFU));
    }
    digits = 0;
    group = 0;
  }
  if (digits != 0) return std::nullopt;
  bytes.shrink_to_fit();  // The text may have been mostly white space.
  return bytes;
}

void appendBase64(std::string_view bytes, std::string& text) {
  while (!bytes.empty()) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text.push_back(i > bytes.size() ? '=' : kBase64Digits[group >> (18 - 6 * i) & 0x3FU]);
    }
    bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3));
  }
}

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/visible_text.h"

#include <array>
#include <cstdint>

namespace halyard::hostkit {

namespace {

struct Character {
  std::uint32_t code = 0;
  std::size_t length = 0;  // 0: no UTF-8 begins here.
};

// The shortest form only, no halves of pairs, nothing above U+10FFFF.
Character characterAt(std::string_view text) {
  struct Form {
    unsigned char mask, lead;
    std::uint32_t least;
  };
  static constexpr std::array<Form, 4> kForms = {
      {{0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}}};
  const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  for (std::size_t extra = 0; extra < kForms.size(); ++extra) {
    const Form& form = kForms[extra];
    if ((byteAt(0) & form.mask) != form.lead) continue;
    if (text.size() <= extra) return {};
    std::uint32_t code = byteAt(0) & static_cast<unsigned char>(~form.mask);
    for (std::size_t at = 1; at <= extra; ++at) {
      if ((byteAt(at) & 0xC0U) != 0x80U) return {};
      code = code << 6U | (byteAt(at) & 0x3FU);
    }
    const bool isCharacter =
        code >= form.least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return isCharacter ? Character{code, extra + 1} : Character{};
  }
  return {};
}

bool isHarmless(std::uint32_t code) {
  if (code == '\t') return true;
  if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return false;
  const bool breaksLines = code == 0x2028 || code == 0x2029;
  const bool turnsWriting = code == 0x061C || code == 0x200E || code == 0x200F ||
                            (code >= 0x202A && code <= 0x202E) ||
                            (code >= 0x2066 && code <= 0x2069);
  return !breaksLines && !turnsWriting;
}

void appendEscaped(std::string& result, std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    result += "\\x";
    result += kDigits[byte >> 4U];
    result += kDigits[byte & 0x0FU];
  }
}

}  // namespace

std::string visibleText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Character character = characterAt(text);
    const std::string_view bytes = text.substr(0, character.length == 0 ? 1 : character.length);
    if (character.length != 0 && isHarmless(character.code)) {
      result += bytes;
    } else {
      appendEscaped(result, bytes);
    }
    text.remove_prefix(bytes.size());
  }
  return result;
}

}  // namespace halyard::hostkit

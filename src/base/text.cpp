// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "base/text.h"

#include <algorithm>
#include <limits>

namespace halyard {

namespace {

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isContinuation(unsigned char byte) { return (byte & 0xC0U) == 0x80U; }

char foldedLetter(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

const char* orNull(const MaybeString& text) { return text ? text->c_str() : "(null)"; }

std::string joinPath(const MaybeString& left, const MaybeString& right) {
  return std::string(orNull(left)) + "/" + orNull(right);
}

std::string appendPath(std::string_view left, std::string_view right) {
  std::string path(left);
  while (!path.empty() && path.back() == '/') path.pop_back();
  while (!right.empty() && right.front() == '/') right.remove_prefix(1);
  if (right.empty()) return path.empty() && !left.empty() ? "/" : path;
  return path + "/" + std::string(right);
}

std::vector<std::string_view> splitAt(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(separator, start);
    pieces.push_back(text.substr(start, end - start));
    if (end == std::string_view::npos) return pieces;
    start = end + 1;
  }
}

void forEachLine(std::string_view text, const std::function<void(std::string_view line)>& visit) {
  for (;;) {
    const std::size_t end = text.find('\n');
    visit(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> components;
  if (path.starts_with('/')) components.emplace_back("/");
  for (const std::string_view piece : splitAt(path, '/')) {
    if (!piece.empty()) components.emplace_back(piece);
  }
  return components;
}

std::string joinComponents(const std::vector<std::string>& components) {
  std::string path;
  for (const std::string& component : components) {
    if (!path.empty() && path.back() != '/') path += '/';
    path += component;
  }
  return path;
}

std::string lastPathComponent(std::string_view path) {
  const auto components = pathComponents(path);
  return components.empty() ? std::string() : components.back();
}

std::string parentPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, {}, foldedLetter, foldedLetter);
}

bool IntegerReader::take(std::string_view piece) {
  constexpr std::int64_t kCeiling = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  for (const char c : piece) {
    if (state_ == State::blanks) {
      if (isBlank(c)) continue;
      state_ = State::digits;
      if (c == '-' || c == '+') {
        negative_ = c == '-';
        continue;
      }
    }
    if (state_ == State::ended) break;
    if (c < '0' || c > '9') {
      state_ = State::ended;
      break;
    }
    magnitude_ = std::min(magnitude_ * 10 + (c - '0'), kCeiling);
  }
  return state_ != State::ended;
}

std::int32_t IntegerReader::value() const {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t value = negative_ ? -magnitude_ : magnitude_;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

std::int32_t leadingInteger(std::string_view text) {
  IntegerReader reader;
  (void)reader.take(text);  // Whether more could follow does not matter: this is all there is.
  return reader.value();
}

std::string_view afterCharacters(std::string_view text, std::size_t count) {
  const auto startsCharacter = [](char c) {
    return !isContinuation(static_cast<unsigned char>(c));
  };
  std::size_t seen = 0;
  const auto start =
      std::ranges::find_if(text, [&](char c) { return startsCharacter(c) && seen++ == count; });
  return text.substr(static_cast<std::size_t>(start - text.begin()));
}

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char c) { return !isContinuation(static_cast<unsigned char>(c)); }));
}

std::size_t utf8SequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char lowest = 0x80;  // of the second byte
  unsigned char highest = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) lowest = 0xA0;   // no overlong form
    if (lead == 0xED) highest = 0x9F;  // no surrogate
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) lowest = 0x90;
    if (lead == 0xF4) highest = 0x8F;  // at most U+10FFFF
  } else {
    return 0;
  }
  if (text.size() < length || byte(1) < lowest || byte(1) > highest) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!isContinuation(byte(i))) return 0;
  }
  return length;
}

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8SequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string_view trimLineFeeds(std::string_view text) {
  while (text.starts_with('\n')) text.remove_prefix(1);
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

}  // namespace halyard

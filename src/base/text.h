// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Text helpers without any knowledge of the host: pure functions over bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard {

/// A text that may be absent; absent is not the same as empty.
using MaybeString = std::optional<std::string>;

/// The text for a "%s": the string itself, "(null)" when absent. Valid as long as `text` is.
const char* orNull(const MaybeString& text);

/// `left`, "/", `right`, joined as text and never normalised; "(null)" stands for an absent one.
std::string joinPath(const MaybeString& left, const MaybeString& right);

/// As joinPath, but a leading "/" of `right` and a trailing one of `left` count once:
/// ("/a", "/etc/x") gives "/a/etc/x"; ("/a", "/") gives "/a".
std::string appendPath(std::string_view left, std::string_view right);

/// The pieces between the separators; always at least one piece, empty pieces included.
std::vector<std::string_view> splitAt(std::string_view text, char separator);

/// Calls `visit` with each piece between line feeds, as splitAt gives them, without a list of them.
void forEachLine(std::string_view text, const std::function<void(std::string_view line)>& visit);

/// "/" first for an absolute path, then the names; doubled and trailing slashes disappear.
std::vector<std::string> pathComponents(std::string_view path);
/// The inverse of pathComponents.
std::string joinComponents(const std::vector<std::string>& components);
/// The last of pathComponents(path); empty for an empty path.
std::string lastPathComponent(std::string_view path);
/// The folder of an absolute path's last name: the text before its last slash, "/" at the top.
std::string parentPath(const std::string& path);
/// What follows the last "." of the last component; empty without one. The name ".inProgress"
/// alone has the extension "inProgress".
std::string pathExtension(std::string_view path);

/// Letters fold A-Z only, whatever the locale.
bool equalsIgnoringCase(std::string_view left, std::string_view right);

/// Reads a decimal integer from text that arrives in pieces: white space is skipped, then one
/// sign, then digits up to the first other character; saturates at the 32-bit limits; 0 without
/// digits.
class IntegerReader {
 public:
  /// Takes the next piece; false once the number has ended and further text cannot change it.
  bool take(std::string_view piece);
  std::int32_t value() const;

 private:
  enum class State { blanks, digits, ended };
  State state_ = State::blanks;
  bool negative_ = false;
  std::int64_t magnitude_ = 0;
};

/// The integer at the start of `text`, by the rules of IntegerReader.
std::int32_t leadingInteger(std::string_view text);

/// Number of Unicode code points in UTF-8 text; a stray byte that continues nothing counts as none.
std::size_t characterCount(std::string_view text);

/// What follows the first `count` code points; empty when there are no more.
std::string_view afterCharacters(std::string_view text, std::size_t count);

/// Length of the well-formed UTF-8 sequence at the start of a text that is not empty; 0 when the
/// text starts with none.
std::size_t utf8SequenceLength(std::string_view text);

/// Whether the bytes are well-formed UTF-8 (no surrogates, no overlong forms, at most U+10FFFF).
bool isValidUtf8(std::string_view text);

/// Without the line feeds at both ends.
std::string_view trimLineFeeds(std::string_view text);

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a terminal can show.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// Columns of the terminal that the descriptor leads to; 80 for one that does not say, 0 for what
/// is no terminal.
std::size_t terminalWidth(int descriptor);

/// Whether a line can be drawn over: a terminal, and TERM names one that is not "dumb".
bool canRedraw(int descriptor);

/// How many columns the text takes, in UTF-8; wide letters take two.
std::size_t columnsOf(std::string_view text);
/// The beginning of the text that takes no more than so many columns.
std::string cutToColumns(std::string_view text, std::size_t columns);

/// While it lives, this thread takes text for UTF-8, whatever the environment says; where the host
/// has no such locale, a byte counts as a column.
class Utf8Scope {
 public:
  Utf8Scope();
  ~Utf8Scope();
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;

 private:
  void* locale_ = nullptr;
  void* before_ = nullptr;
};

}  // namespace halyard::hostkit

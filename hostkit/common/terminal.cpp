// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/terminal.h"

#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>

namespace halyard::hostkit {

namespace {

struct Letter {
  std::size_t length = 1;
  std::size_t columns = 1;
};

// A byte that begins no letter is shown as something of one column.
Letter letterAt(std::string_view text) {
  std::mbstate_t state{};
  wchar_t letter = 0;
  const std::size_t length = std::mbrtowc(&letter, text.data(), text.size(), &state);
  if (length == 0 || length > text.size()) return {};
  const int columns = ::wcwidth(letter);
  return {length, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

}  // namespace

std::size_t terminalWidth(int descriptor) {
  constexpr std::size_t kUsualWidth = 80;
  if (::isatty(descriptor) != 1) return 0;
  winsize size{};
  const bool says = ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return says ? size.ws_col : kUsualWidth;
}

bool canRedraw(int descriptor) {
  const char* term = std::getenv("TERM");
  if (term == nullptr || *term == '\0' || std::string_view(term) == "dumb") return false;
  return ::isatty(descriptor) == 1;
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  const Utf8Scope scope;
  while (!text.empty()) {
    const Letter letter = letterAt(text);
    columns += letter.columns;
    text.remove_prefix(letter.length);
  }
  return columns;
}

std::string cutToColumns(std::string_view text, std::size_t columns) {
  const Utf8Scope scope;
  std::size_t at = 0;
  while (at < text.size()) {
    const Letter letter = letterAt(text.substr(at));
    if (letter.columns > columns) break;
    columns -= letter.columns;
    at += letter.length;
  }
  return std::string(text.substr(0, at));
}

Utf8Scope::Utf8Scope() : locale_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
  if (locale_ != nullptr) before_ = ::uselocale(static_cast<locale_t>(locale_));
}

Utf8Scope::~Utf8Scope() {
  if (locale_ == nullptr) return;
  (void)::uselocale(static_cast<locale_t>(before_));
  ::freelocale(static_cast<locale_t>(locale_));
}

}  // namespace halyard::hostkit

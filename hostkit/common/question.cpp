// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/question.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "base/text.h"
#include "common/messages.h"
#include "common/visible_text.h"

namespace halyard::hostkit {

bool confirmed(const std::string& question) {
  if (::isatty(STDIN_FILENO) == 0) {
    printError("nothing was done: there is no terminal to ask on; say --yes to go ahead");
    return false;
  }
  (void)std::fflush(stdout);
  (void)std::fprintf(stderr, "%s [y/N] ", visibleText(question).c_str());
  std::array<char, 64> line{};
  if (std::fgets(line.data(), line.size(), stdin) == nullptr) (void)std::fputc('\n', stderr);
  const std::string answer(trimLineFeeds(line.data()));
  if (equalsIgnoringCase(answer, "y") || equalsIgnoringCase(answer, "yes")) return true;
  printNote("nothing was done");
  return false;
}

}  // namespace halyard::hostkit

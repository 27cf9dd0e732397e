// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/command_line_lint.h"

#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

// The executable that was meant when its path has blanks; empty when there is none.
std::string executableWithBlanks(const std::string& command) {
  for (std::size_t blank = command.find(' '); blank != std::string::npos;
       blank = command.find(' ', blank + 1)) {
    const std::size_t next = command.find(' ', blank + 1);
    std::string longer = command.substr(0, next);
    if (host::isExecutableFile(longer)) return longer;
  }
  return {};
}

}  // namespace

void lintCommandLine(const std::string& key, const std::string& command, FindingList& list) {
  const std::string program = command.substr(0, command.find(' '));
  const std::string quoted = "'" + command + "'";
  if (program.empty()) {
    list.error(key, quoted + " begins with a blank, so no program is run", "remove the blank");
    return;
  }
  if (!program.starts_with('/')) {
    list.error(key, quoted + ": " + program + " is not absolute, so it is never run",
               "write the path from / on");
  } else if (!host::isExecutableFile(program)) {
    const std::string meant = executableWithBlanks(command);
    if (!meant.empty()) {
      list.error(key, quoted + " is split at every blank: " + program + " is run, not " + meant,
                 "use a path without blanks");
    } else {
      list.error(key, quoted + ": " + program + " is no executable file", "install it");
    }
  }
  if (command.find("  ") != std::string::npos || command.ends_with(' ')) {
    list.warning(key, quoted + ": two blanks in a row make an empty argument", "use single blanks");
  }
  if (command.find_first_of("\"'\\") != std::string::npos) {
    list.warning(key, quoted + ": quotes and backslashes are passed on as they stand",
                 "put what needs a shell into a script");
  }
  if (command.find_first_of("|<>;&$`*") != std::string::npos) {
    list.warning(key, quoted + ": no shell reads it; its signs are passed on as they stand",
                 "put what needs a shell into a script");
  }
}

}  // namespace halyard::hostkit

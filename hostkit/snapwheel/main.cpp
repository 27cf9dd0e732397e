// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// snapwheel: takes, lists, removes, restores and checks snapshots of this host.

#include "common/program.h"
#include "snapwheel/command_line.h"

int main(int count, char** words) {
  namespace hostkit = halyard::hostkit;
  namespace snapwheel = halyard::snapwheel;
  snapwheel::CommandOptions options;
  snapwheel::Command command;
  CLI::App app("Takes, lists, removes, restores and checks snapshots of this host.", "snapwheel");
  snapwheel::addCommandLine(app, options, command);
  return hostkit::runProgram(app, hostkit::wordsOf(count, words), [&] { return command(options); });
}

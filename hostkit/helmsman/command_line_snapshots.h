// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The words of the command line that look at snapshots, keep and remove them.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace halyard::hostkit {

/// Gives the program a subcommand that root alone may run.
using AddRootCommand = std::function<CLI::App*(const std::string& name, const std::string& help,
                                               std::function<int()> action)>;

void addSnapshotCommands(const AddRootCommand& add);

/// "--from SNAPSHOT".
void addFrom(CLI::App* command, std::string& snapshot);

}  // namespace halyard::hostkit

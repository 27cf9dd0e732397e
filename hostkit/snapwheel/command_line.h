// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The engine's commands and options, on the command line and in its configuration file.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "snapwheel/commands.h"

namespace halyard::snapwheel {

using Command = std::function<int(const CommandOptions&)>;

/// Has the parser fill the options, and the command that was chosen. A line of the file that is no
/// option, or has no value that the option takes, is a wrong usage. All three must outlive the
/// parse.
void addCommandLine(CLI::App& app, CommandOptions& options, Command& command);

}  // namespace halyard::snapwheel

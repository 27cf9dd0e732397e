// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Reads what a run printed: function-log lines and platform log lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/private_root.h"

namespace halyard::test {

/// "Start <name>" or "End   <name>", 55 dashes and "+".
std::string started(std::string_view name);
std::string ended(std::string_view name);
/// Start and end of each name in turn, for operations that call none of their own.
std::vector<std::string> startedAndEnded(const std::vector<std::string>& names);
/// The lines that are function-log lines, in order.
std::vector<std::string> functionLines(const CommandResult& result);
/// The same without the 55 dashes and the "+"; a line with more dashes keeps the rest of them.
std::vector<std::string> functionSteps(const CommandResult& result);

/// What every run prints first and last in its function log, around the given lines.
std::vector<std::string> wholeFunctionLog(const std::vector<std::string>& ofTheCommand);

/// The messages of the platform log lines "<time> Halyard[<pid>] <message>" on standard error.
std::vector<std::string> logMessages(const CommandResult& result);

/// The lines of standard output from the first one that begins with the text on.
std::vector<std::string> outputFrom(const CommandResult& result, std::string_view start);

}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What drivectl, helmsman and snapwheel have in common as programs: how a command line is refused,
// how a command ends, and what a caller who asked for JSON gets when nothing can be answered.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/exit_status.h"

namespace CLI {
class App;
}

namespace halyard::hostkit {

/// Ends a command: the text goes to standard error, the status to the caller.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, int status = kFailure)
      : std::runtime_error(text), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// Gives the command line what every program takes: --version, exactly one subcommand, and the exit
/// statuses at the end of its help.
void prepareCommandLine(CLI::App& app);

/// Parses the words (without the program's name), runs the command, and returns the exit status of
/// the process. The app's name is the program's in all messages.
///
/// A command line that cannot be understood is refused by the word that is wrong. With "--json"
/// among the words, an end without an answer prints {"format": 1, "error": {...}} on standard
/// output, on one line, beside the message on standard error. An answer that could not be written
/// is a failure. A closed pipe and a size limit fail the write and do not end the process.
int runProgram(CLI::App& app, const std::vector<std::string>& words,
               const std::function<int()>& command);

/// The words of main(), without the program's name.
std::vector<std::string> wordsOf(int count, char** words);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/halyard_run.h"

#include <array>
#include <cstdlib>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/waiting.h"
#include "helmsman/program/pid_file_state.h"
#include "host/files/files.h"
#include "product/paths.h"

namespace halyard::hostkit {

void LineReader::take(std::string_view piece) {
  rest_ += piece;
  std::size_t start = 0;
  for (std::size_t end = 0; (end = rest_.find('\n', start)) != std::string::npos; start = end + 1) {
    line_(std::string_view(rest_).substr(start, end - start));
  }
  rest_.erase(0, start);
}

void LineReader::finish() {
  if (!rest_.empty()) line_(rest_);
  rest_.clear();
}

host::TaskResult runStoppable(const std::string& program, const std::vector<std::string>& words,
                              const host::TaskOptions& options) {
  // The signal of a parent's death outlives exec(2), for no program with privileges of its own.
  std::vector<std::string> all = {"--pdeathsig", "CONT", program};
  all.insert(all.end(), words.begin(), words.end());
  return host::RunTask(std::string(kSetprivProgram), all, options);
}

host::TaskResult runHalyard(const std::vector<std::string>& words, const host::TaskOptions& options,
                            Diagnostics diagnostics) {
  static constexpr std::array<const char*, 4> kFlags = {"DEBUG", "VERBOSE", "FUNCLOG", "PROGRESS"};
  for (const char* flag : kFlags) ::unsetenv(flag);
  if (diagnostics == Diagnostics::on) ::setenv("DEBUG", "1", 1);
  host::TaskResult result = runStoppable(paths::kProgram, words, options);
  ::unsetenv("DEBUG");
  return result;
}

bool halyardIsReady(int& status) {
  status = kFailure;
  if (!host::isExecutableFile(paths::kProgram)) {
    printError(std::string(paths::kProgram) + " is not installed");
    return false;
  }
  if (!host::exists(paths::kSetupMarker)) {
    printError("this host is not set up yet (see: helmsman setup)");
    return false;
  }
  return noHalyardRuns(status);
}

bool noHalyardRuns(int& status) {
  status = kFailure;
  PidFileState state;
  const auto isDone = [&state] {
    state = pidFileState();
    return state.owner != PidFileState::Owner::halyard || state.isStuck();
  };
  (void)waitFor(isDone, [&state] { return describe(state); });
  if (state.isLeftover()) {
    if (removeLeftoverPidFile()) printNote(describe(state) + "; removed it");
    state = pidFileState();
  }
  if (state.owner == PidFileState::Owner::none) return true;
  printError(describe(state));
  if (state.owner == PidFileState::Owner::halyard && !state.isStuck()) status = kBusy;
  return false;
}

}  // namespace halyard::hostkit

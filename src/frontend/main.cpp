// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The process entry.
#include <array>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/dispatch.h"
#include "frontend/options.h"
#include "frontend/run/command_line.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/run_state.h"
#include "frontend/usage.h"
#include "host/files/files.h"
#include "host/process/process.h"
#include "product/paths.h"

namespace halyard {

namespace {

constexpr std::int32_t kWrongWordCount = 1;
constexpr std::int32_t kAlreadyRunning = 37;

void readRunFlags() {
  RunState& state = runState();
  const std::array<std::pair<const char*, bool*>, 4> flags = {{{"DEBUG", &state.debug},
                                                               {"VERBOSE", &state.verbose},
                                                               {"FUNCLOG", &state.functionLog},
                                                               {"PROGRESS", &state.progress}}};
  for (const auto& [variable, flag] : flags) {
    if (std::getenv(variable) != nullptr) *flag = true;
  }
}

/// From the fifth word, whatever option it belongs to.
std::string snapshotRepositoryOf(const std::vector<std::string>& words) {
  if (words.size() < 4) return {};
  return joinComponents(pathComponents(joinPath(words[3], paths::kRepositoryName)));
}

std::int32_t runProgram(const std::vector<std::string>& words, int wordCount) {
  // Made before the flags are read: its end line shows, its start line never does.
  const FunctionLog scope("main()", FunctionLog::Blanks::one);
  readRunFlags();
  (void)IsStandardServer();
  CommandLine line{
      .wordCount = wordCount, .options = {}, .snapshotRepository = snapshotRepositoryOf(words)};
  Prefs();
  if (runState().verbose) printText("Halyard was called.\n");
  if (!isAcceptableWordList(words)) {
    printText("Wrong number of parameters supplied.\n");
    debugDump(words);
    Usage();
    endProcess(kWrongWordCount);
  }
  if (host::exists(paths::kPidFile)) {
    printText("Backup process is already running.\n");
    endProcess(kAlreadyRunning);
  }
  ParseOptions(words, line);
  return validateOptionsAndDispatch(line);
}

}  // namespace

}  // namespace halyard

int main(int argc, char** argv) {
  halyard::host::prepareProcess();
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) words.emplace_back(argv[i]);
  return halyard::runProgram(words, argc);
}

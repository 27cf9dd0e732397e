// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/engine_call.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/waiting.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

// False when the engine gave no answer.
bool passOnJson(const std::string& output) {
  const nlohmann::json answer = nlohmann::json::parse(output, nullptr, false);
  if (!answer.is_object()) return false;
  if (answer.contains("error")) {
    printJsonLine(answer, JsonLine::last);
  } else {
    printJson(answer);
  }
  return true;
}

}  // namespace

int callEngine(std::vector<std::string> words, AnswerAs form) {
  const auto left = waitLeft();
  // After the word of the command: behind what an administrator typed it could be taken for that.
  if (left.count() != 0) {
    words.insert(words.begin() + 1, {"--wait", std::to_string(left.count())});
  }
  if (form == AnswerAs::json) words.insert(words.begin() + 1, "--json");
  const host::TaskResult result = host::RunTask(std::string(paths::kSnapshotTool), words);
  // Both are the engine's own words, which shows names as a terminal may see them.
  (void)std::fputs(result.error.c_str(), stderr);
  if (form == AnswerAs::text) {
    (void)std::fputs(result.output.c_str(), stdout);
  } else if (!passOnJson(result.output)) {
    printError("the engine gave no answer");
    return kFailure;
  }
  if (!finishOutput()) return kFailure;
  return result.status >= kSuccess && result.status <= kPartial ? result.status : kFailure;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/pin.h"

#include <utility>
#include <vector>

#include "common/exit_status.h"
#include "common/messages.h"
#include "helmsman/snapshots/engine_call.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

namespace {

int callFor(const PinArguments& arguments, const char* word, std::vector<std::string> more) {
  std::string problem;
  const auto snapshot = chooseSnapshot(arguments.snapshot, problem);
  if (!snapshot) {
    printError(problem);
    return kFailure;
  }
  const bool isPath = arguments.snapshot.starts_with('/');
  std::vector<std::string> words = {word, isPath ? snapshot->path : snapshot->name};
  words.insert(words.end(), more.begin(), more.end());
  return callEngine(std::move(words));
}

}  // namespace

int pin(const PinArguments& arguments) {
  if (arguments.note.empty()) return callFor(arguments, "pin", {});
  return callFor(arguments, "pin", {"--note=" + arguments.note});
}

int unpin(const PinArguments& arguments) { return callFor(arguments, "unpin", {}); }

}  // namespace halyard::hostkit

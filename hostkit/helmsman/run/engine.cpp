// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/engine.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "base/text.h"
#include "common/json_members.h"

namespace halyard::hostkit {

namespace {

/// The line of the engine that says what went wrong, or its status.
std::string reasonOf(const host::TaskResult& result) {
  const std::string_view text = trimLineFeeds(result.error);
  const std::string line(text.substr(text.find_last_of('\n') + 1));
  return line.empty() ? "the engine ended with status " + std::to_string(result.status) : line;
}

}  // namespace

EngineSnapshot takeSnapshot(const RunEngine& runEngine, const std::vector<std::string>& leftOut) {
  std::vector<std::string> words = {"snapshot", "--json"};
  for (const std::string& path : leftOut) {
    if (path.find_first_of("*?[\\") != std::string::npos) continue;
    words.insert(words.end(), {"--exclude", path});
  }
  const host::TaskResult result = runEngine(words);
  const nlohmann::json answer = nlohmann::json::parse(result.output, nullptr, false);
  EngineSnapshot snapshot;
  snapshot.path = textOf(answer, "path");
  snapshot.hasReference = !textOf(answer, "reference").empty();
  snapshot.copiedBytes = countOf(answer, "copiedBytes").value_or(snapshot.copiedBytes);
  if (result.status != 0) {
    snapshot.problem =
        (snapshot.path.empty() ? "no snapshot was taken: " : "the snapshot is not complete: ") +
        reasonOf(result);
  } else if (snapshot.path.empty()) {
    snapshot.problem = "the engine did not name its snapshot";
  }
  return snapshot;
}

std::vector<std::string> snapshotsToPrune(const RunEngine& runEngine) {
  const std::string output = runEngine({"prune", "--dry-run", "--json"}).output;
  return textsOf(nlohmann::json::parse(output, nullptr, false), "removed");
}

std::string pruneSnapshots(const RunEngine& runEngine) {
  const host::TaskResult result = runEngine({"prune"});
  return result.status == 0 ? std::string() : reasonOf(result);
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/engine.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/json_members.h"
#include "common/waiting.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kToldLines = 25;  // The engine itself names twenty items of a kind.
constexpr std::size_t kLineLimit = 500;

/// What the engine said, a bounded number of bounded lines: the last ones, which tell the outcome.
std::vector<std::string> linesOf(const host::TaskResult& result) {
  std::vector<std::string> lines;
  for (const std::string_view line : splitAt(trimLineFeeds(result.error), '\n')) {
    if (!line.empty()) lines.emplace_back(line.substr(0, kLineLimit));
  }
  if (lines.size() <= kToldLines) return lines;
  const std::size_t untold = lines.size() - kToldLines;
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(untold));
  lines.insert(lines.begin(), "the engine said " + std::to_string(untold) + " lines more");
  return lines;
}

/// It waits for another one as long as this process still does.
std::vector<std::string> patient(std::vector<std::string> words) {
  const auto left = waitLeft();
  if (left.count() != 0) words.insert(words.end(), {"--wait", std::to_string(left.count())});
  return words;
}

/// The line of the engine that says what went wrong, or its status.
std::string reasonOf(const host::TaskResult& result) {
  const std::vector<std::string> lines = linesOf(result);
  return lines.empty() ? "the engine ended with status " + std::to_string(result.status)
                       : lines.back();
}

}  // namespace

EngineSnapshot takeSnapshot(const RunEngine& runEngine,
                            const std::vector<std::string>& furtherVolumes,
                            const std::vector<std::string>& leftOut) {
  std::vector<std::string> words = patient({"snapshot", "--json"});
  for (const std::string& mountPoint : furtherVolumes) {
    words.insert(words.end(), {"--add-volume", mountPoint});
  }
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
  std::vector<std::string> lines = linesOf(result);
  if (result.status != 0) {
    if (!lines.empty()) lines.pop_back();  // The last problem tells it.
    snapshot.problems = std::move(lines);
    snapshot.problems.push_back(
        (snapshot.path.empty() ? "no snapshot was taken: " : "the snapshot is not complete: ") +
        reasonOf(result));
  } else if (snapshot.path.empty()) {
    snapshot.problems.emplace_back("the engine did not name its snapshot");
  } else {
    snapshot.remarks = std::move(lines);
  }
  snapshot.isOnlyTorn = result.status == kPartial && !snapshot.path.empty() &&
                        countOf(answer, "missingCount") == std::uint64_t{0} &&
                        countOf(answer, "tornCount").value_or(0) != 0 &&
                        !flagOf(answer, "unfinishedBackup");
  return snapshot;
}

std::vector<std::string> snapshotsToPrune(const RunEngine& runEngine) {
  const std::string output = runEngine({"prune", "--dry-run", "--json"}).output;
  return textsOf(nlohmann::json::parse(output, nullptr, false), "removed");
}

std::string pruneSnapshots(const RunEngine& runEngine) {
  const host::TaskResult result = runEngine(patient({"prune"}));
  return result.status == 0 ? std::string() : reasonOf(result);
}

}  // namespace halyard::hostkit

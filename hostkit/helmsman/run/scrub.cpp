// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/scrub.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/json_members.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/sizes.h"
#include "common/times.h"
#include "helmsman/run/scrub_record.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kMostProblems = 20;
constexpr std::size_t kMostDamaged = 10000;

/// Why the engine gave no answer.
std::string failureOf(const host::TaskResult& result, const nlohmann::json& answer) {
  std::string told = textOf(memberOf(answer, "error"), "message");
  if (!told.empty()) return told;
  const std::string_view text = trimLineFeeds(result.error);
  const std::string line(text.substr(text.find_last_of('\n') + 1));
  return line.empty() ? "the engine ended with status " + std::to_string(result.status) : line;
}

/// Files that this part does not read are as other parts found them.
void takeDamage(const nlohmann::json& answer, ScrubRecord& record) {
  std::erase_if(record.damaged,
                [&](const DamagedSnapshotFile& file) { return file.part == record.part; });
  for (const nlohmann::json& entry : memberOf(answer, "damaged")) {
    DamagedSnapshotFile file{textOf(entry, "path"), textOf(entry, "reason"),
                             textsOf(entry, "snapshots"), record.part};
    // What cannot be opened is told by every part.
    std::erase_if(record.damaged, [&](const DamagedSnapshotFile& other) {
      return other.path == file.path && other.snapshots == file.snapshots;
    });
    if (record.damaged.size() < kMostDamaged) record.damaged.push_back(std::move(file));
  }
}

/// Problems other than damaged files.
void takeProblems(const nlohmann::json& answer, ScrubRecord& record) {
  std::size_t untold = 0;
  for (const nlohmann::json& finding : memberOf(answer, "findings")) {
    const std::string path = textOf(finding, "path");
    const bool isFile = std::ranges::any_of(
        memberOf(answer, "damaged"),
        [&](const nlohmann::json& file) { return textOf(file, "path") == path; });
    if (textOf(finding, "severity") != "problem" || isFile) continue;
    if (record.problems.size() == kMostProblems) {
      ++untold;
    } else {
      record.problems.push_back(path + ": " + textOf(finding, "text"));
    }
  }
  if (untold != 0) record.problems.push_back("and " + std::to_string(untold) + " more");
}

void judge(const host::TaskResult& result, ScrubRecord& record) {
  const nlohmann::json answer = nlohmann::json::parse(result.output, nullptr, false);
  const bool isAnswer = memberOf(answer, "findings").is_array() && result.status <= kFailure;
  if (!isAnswer) {
    record.result = ScrubRecord::Result::failed;
    record.problems.push_back(failureOf(result, answer));
    return;
  }
  record.partsRead[record.part] = record.finished;
  record.bytesRead = countOf(answer, "bytesRead").value_or(0);
  takeDamage(answer, record);
  takeProblems(answer, record);
  const bool isGood = result.status == kSuccess && memberOf(answer, "damaged").empty();
  record.result = isGood ? ScrubRecord::Result::good : ScrubRecord::Result::damage;
}

void print(const ScrubRecord& record) {
  printLine("part " + std::to_string(record.part) + " of " + std::to_string(record.parts) + ": " +
            sizeText(record.bytesRead) + " read");
  for (const DamagedSnapshotFile& file : record.damaged) {
    std::string names;
    for (const std::string& name : file.snapshots) names += (names.empty() ? "" : ", ") + name;
    printLine("damaged: " + file.path + ": " + file.reason + ", in " + names);
  }
}

}  // namespace

int scrub(const ScrubArguments& arguments) {
  std::string problem;
  const auto configuration = helmsmanConfiguration(problem);
  if (configuration && arguments.part > configuration->scrubParts) {
    problem = "there are " + std::to_string(configuration->scrubParts) + " parts";
  }
  if (!problem.empty()) {
    printError(problem);
    return kUsageError;
  }
  const auto before = readScrubRecord();
  ScrubRecord record;
  record.parts = configuration->scrubParts;
  record.part = arguments.part != 0 ? arguments.part : nextPart(before, record.parts);
  if (before) record.damaged = before->damaged;
  if (before && before->parts == record.parts) record.partsRead = before->partsRead;
  record.started = secondsNow();
  const host::TaskResult result =
      host::RunTask(std::string(paths::kSnapshotTool),
                    {"check", "--json", "--part",
                     std::to_string(record.part) + "/" + std::to_string(record.parts)});
  record.finished = secondsNow();
  judge(result, record);

  const bool isKept = keepScrubRecord(record);
  if (!isKept) printError(std::string(kScrubFile) + " could not be written");
  for (const std::string& text : record.problems) printError(text);
  if (record.result == ScrubRecord::Result::failed) return kFailure;
  if (arguments.json) {
    printJson(scrubJson(record));
  } else {
    print(record);
  }
  if (!finishOutput() || !isKept) return kFailure;
  return record.result == ScrubRecord::Result::good ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

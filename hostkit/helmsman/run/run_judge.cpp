// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/run_judge.h"

#include <algorithm>

#include "base/text.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

// No constants of the compiler: with a sanitizer gcc 12 does not take their addresses for such.
const std::string_view kEntryPrefix = texts::fixedPart(texts::kDescriptorEntry, 0);
const std::string_view kCopyPrefix = texts::fixedPart(texts::kCopyFailed, 0);
const std::string_view kCopyMark = texts::fixedPart(texts::kCopyFailed, 1);
constexpr std::string_view kProgressPrefix = texts::kProgressStart;
constexpr std::string_view kErrorPrefix = texts::kErrorStart;

struct CallFailure {
  std::string service;
  std::string status;
};

// The two values of a line in this format, wherever it begins.
std::optional<CallFailure> parseCallFailure(std::string_view line, std::string_view format) {
  const std::string_view prefix = texts::fixedPart(format, 0);
  const std::string_view statusMark = texts::fixedPart(format, 1);
  const std::size_t start = line.find(prefix);
  const std::size_t mark = line.rfind(statusMark);
  if (start == std::string_view::npos || mark == std::string_view::npos ||
      mark < start + prefix.size()) {
    return std::nullopt;
  }
  const std::size_t name = start + prefix.size();
  return CallFailure{std::string(line.substr(name, mark - name)),
                     std::string(line.substr(mark + statusMark.size()))};
}

std::string statusText(const std::string& status) {
  if (status == "127") return "was not found";
  if (status == "126") return "cannot be executed";
  return "ended with status " + status;
}

}  // namespace

RunJudge::RunJudge(std::vector<InstalledDescriptor> expected) {
  for (InstalledDescriptor& descriptor : expected) {
    Entry entry;
    entry.descriptor = std::move(descriptor);
    entries_.push_back(std::move(entry));
  }
}

void RunJudge::outputLine(std::string_view line) {
  if (line.starts_with(kEntryPrefix)) {
    const std::string_view name = line.substr(kEntryPrefix.size());
    const auto found = std::find_if(entries_.begin(), entries_.end(), [name](const Entry& entry) {
      return entry.descriptor.fileName == name;
    });
    current_ = found == entries_.end() ? nullptr : &*found;
    if (current_ != nullptr) current_->reached = true;
  } else if (line.starts_with(kCopyPrefix) && current_ != nullptr) {
    noteFailedCopy(*current_, line);
  }
}

void RunJudge::noteFailedCopy(Entry& entry, std::string_view line) {
  const std::string folder = joinPath(paths::kMetadataFolder, entry.descriptor.serviceName());
  for (const std::string& file : entry.descriptor.files()) {
    // A path may hold " to ": only the whole expected text tells which file is meant.
    std::string expected(kCopyPrefix);
    expected.append(file).append(kCopyMark).append(folder);
    if (!line.starts_with(expected)) continue;
    entry.failedCopies.push_back(file);
    return;
  }
  entry.problems.emplace_back(line);
}

void RunJudge::errorLine(std::string_view line) {
  struct Call {
    std::string_view format;
    std::string_view what;
  };
  static constexpr Call kCalls[] = {{texts::kBackupCallFailed, "its backup program "},
                                    {texts::kPostBackupCallFailed, "a post-backup command "}};
  for (const Call& call : kCalls) {
    const auto failure = parseCallFailure(line, call.format);
    if (!failure) continue;
    for (Entry& entry : entries_) {
      if (entry.descriptor.serviceName() != failure->service) continue;
      entry.problems.push_back(std::string(call.what) + statusText(failure->status));
    }
  }
}

void RunJudge::progressLine(std::string_view line) {
  const auto step = parseProgressLine(line);
  if (!step) return;
  if (step->service.empty()) {
    sawEnd_ = sawEnd_ || step->message == texts::kRunDone;
    return;
  }
  if (step->message == texts::kSizeBegun || step->message == texts::kSizeDone) return;
  for (Entry& entry : entries_) {
    if (entry.descriptor.serviceName() != step->service) continue;
    entry.reached = true;
    entry.ended = entry.ended || step->message == texts::kServiceDone;
  }
}

void RunJudge::judgeCopies(const Entry& entry, const CopyFailure& copyFailure,
                           ServiceResult& result) {
  const std::vector<std::string> files = entry.descriptor.files();
  for (const std::string& file : entry.failedCopies) {
    // Listed twice and copied once is copied: the second copy finds the first in its place.
    if (std::count(files.begin(), files.end(), file) >
        std::count(entry.failedCopies.begin(), entry.failedCopies.end(), file)) {
      continue;
    }
    if (const auto problem = copyFailure(result.name, file)) {
      result.problems.push_back(*problem);
    } else {
      result.missing.push_back(file);
    }
  }
}

std::vector<ServiceResult> RunJudge::results(const CopyFailure& copyFailure) const {
  std::vector<ServiceResult> results;
  for (const Entry& entry : entries_) {
    ServiceResult result;
    result.name = entry.descriptor.serviceName();
    result.log = entry.descriptor.backupLog();
    result.problems = entry.problems;
    judgeCopies(entry, copyFailure, result);
    // What was printed may be lost when Halyard is killed; the progress log is not.
    if (sawEnd_) {
      result.copied = static_cast<int>(entry.descriptor.files().size() - entry.failedCopies.size());
    }
    if (!entry.reached) result.problems.emplace_back("the run did not come to it");
    if (entry.reached && !entry.ended) result.problems.emplace_back("the run ended within it");
    result.done = result.problems.empty();
    results.push_back(std::move(result));
  }
  return results;
}

std::optional<ProgressStep> parseProgressLine(std::string_view line) {
  ProgressStep step;
  if (line.starts_with(kErrorPrefix)) {
    step.isError = true;
    step.message = std::string(line.substr(kErrorPrefix.size()));
    return step;
  }
  if (!line.starts_with(kProgressPrefix)) return std::nullopt;
  const std::string_view rest = line.substr(kProgressPrefix.size());
  // A service's name may hold the separator, a message never does.
  static constexpr std::string_view kSeparator = texts::kSeparator;
  const std::size_t mark = rest.rfind(kSeparator);
  if (mark != std::string_view::npos) step.service = std::string(rest.substr(0, mark));
  step.message =
      std::string(mark == std::string_view::npos ? rest : rest.substr(mark + kSeparator.size()));
  return step;
}

}  // namespace halyard::hostkit

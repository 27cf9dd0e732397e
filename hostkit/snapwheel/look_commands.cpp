// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The commands that look into snapshots or bring them back.
#include <chrono>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "snapwheel/command_support.h"

namespace halyard::snapwheel {

namespace {

nlohmann::json restoreJson(const RestoreRequest& request, const RestoreOutcome& outcome) {
  nlohmann::json notHeld = nlohmann::json::array();
  for (const NotHeld& path : outcome.notHeld) {
    notHeld.push_back({{"path", path.path}, {"why", path.why}});
  }
  nlohmann::json document = {{"snapshot", request.snapshotPath},
                             {"target", request.target},
                             {"dryRun", request.dryRun},
                             {"items", outcome.items},
                             {"bytes", outcome.bytes},
                             {"failed", outcome.failed},
                             {"notHeld", std::move(notHeld)},
                             {"missing", outcome.lack.missing},
                             {"torn", outcome.lack.torn},
                             {"lost",
                              {{"owners", outcome.lost.owners},
                               {"permissions", outcome.lost.permissions},
                               {"extendedAttributes", outcome.lost.extended},
                               {"inodeFlags", outcome.flags.lacking}}},
                             {"unknownFlags", outcome.flags.unknown}};
  if (request.dryRun) document["replaced"] = outcome.replaced;
  return document;
}

/// What the target could not hold is a lack, unless that was accepted.
int restoreStatus(const RestoreRequest& request, const RestoreOutcome& outcome) {
  const std::uint64_t lost = outcome.lost.items + outcome.flags.lacking;
  if (outcome.failed != 0) {
    hostkit::printError(countText(outcome.failed, "item") + " could not be restored as they were");
  }
  if (outcome.lost.items != 0) {
    const LostCounts& counts = outcome.lost;
    hostkit::printWarning(
        "the target cannot hold all attributes: " + countText(counts.owners, "item") +
        " without owner, " + std::to_string(counts.permissions) + " without permissions, " +
        std::to_string(counts.extended) + " without extended attributes");
  }
  // Whoever asks for a file wants to know; that the snapshot as a whole holds such was its status.
  const bool isTorn = outcome.lack.torn != 0 && !request.paths.empty();
  const bool isWhole = outcome.failed == 0 && outcome.notHeld.empty() &&
                       outcome.lack.missing == 0 && !isTorn &&
                       (lost == 0 || request.withoutAttributes);
  return isWhole ? hostkit::kSuccess : hostkit::kPartial;
}

}  // namespace

int runRestore(const CommandOptions& options) {
  const auto begin = std::chrono::steady_clock::now();
  RestoreRequest request = options.restore;
  // The path of a snapshot says everything: on a rescue system no destination is set.
  if (options.names.front().starts_with('/')) {
    request.snapshotPath = options.names.front();
  } else {
    const Repository repository = openRepository(options);
    request.snapshotPath = repository.path(repository.find(options.names.front()));
  }
  const RestoreOutcome outcome = restoreSnapshot(request);
  if (options.json) {
    hostkit::printJson(restoreJson(request, outcome));
  } else if (request.dryRun) {
    hostkit::printLine(request.target + ": " + countText(outcome.items, "item") + " of " +
                       request.snapshotPath + " would be written (" +
                       hostkit::sizeText(outcome.bytes) + "), " + std::to_string(outcome.replaced) +
                       " of them in the place of others");
  } else {
    hostkit::printLine(request.target + ": " + countText(outcome.items, "item") + " of " +
                       appendPath(request.snapshotPath, outcome.volume) + " restored (" +
                       hostkit::sizeText(outcome.bytes) + "), " + secondsText(begin));
  }
  return restoreStatus(request, outcome);
}

namespace {

nlohmann::json toJson(const std::vector<DamagedFile>& damaged) {
  nlohmann::json list = nlohmann::json::array();
  for (const DamagedFile& file : damaged) {
    list.push_back({{"path", file.path}, {"reason", file.reason}, {"snapshots", file.snapshots}});
  }
  return list;
}

}  // namespace

int runCheck(const CommandOptions& options) {
  const Repository repository = openRepository(options);
  const CheckReport report = checkRepository(repository, options.depth, options.part);
  nlohmann::json findings = nlohmann::json::array();
  std::uint64_t problems = 0;
  for (const Finding& finding : report.findings) {
    const bool isProblem = finding.severity == Severity::problem;
    problems += isProblem ? 1 : 0;
    findings.push_back({{"severity", isProblem ? "problem" : "note"},
                        {"path", finding.path},
                        {"text", finding.text}});
    if (!options.json) {
      hostkit::printLine((isProblem ? "problem: " : "note: ") + finding.path + ": " + finding.text);
    }
  }
  if (options.json) {
    hostkit::printJson({{"snapshots", report.snapshots},
                        {"items", report.items},
                        {"bytesRead", report.bytesRead},
                        {"problems", problems},
                        {"findings", findings},
                        {"damaged", toJson(report.damaged)}});
  } else {
    hostkit::printLine(countText(report.snapshots, "snapshot") + ", " +
                       countText(report.items, "item") + " looked at, " +
                       hostkit::sizeText(report.bytesRead) + " read, " +
                       countText(problems, "problem"));
  }
  return problems == 0 ? hostkit::kSuccess : hostkit::kFailure;
}

}  // namespace halyard::snapwheel

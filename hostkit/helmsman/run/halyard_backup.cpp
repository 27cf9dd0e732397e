// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/halyard_backup.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "base/text.h"
#include "common/machine.h"
#include "common/paths.h"
#include "common/tree_size.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/run/metadata_check.h"
#include "helmsman/run/progress_follower.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kProgressLogMode = 0770;
constexpr std::size_t kProgressLogLimit = std::size_t{64} << 20;

// What Halyard runs after it has logged this step.
const char* programAfter(const ProgressStep& step) {
  if (step.message == texts::kPreBackupBegun) return "a pre-backup command";
  if (step.message == texts::kPostBackupBegun) return "a post-backup command";
  return "its backup program";
}

std::optional<std::string> copyFailure(const EarlierBackups& earlier, const std::string& service,
                                       const std::string& file) {
  if (!host::isAbsent(file)) return "could not copy " + file;
  if (std::ranges::find(earlier.leftOut, file) != earlier.leftOut.end()) return std::nullopt;
  // Not the latest: that one may be the first that lacks it.
  const Snapshot* whole = newestWhole(earlier.snapshots, {service});
  if (whole != nullptr &&
      host::exists(appendPath(joinPath(whole->metadataFolder, service), file))) {
    return file + " is gone, and " + whole->name +
           " has it (if it is meant to be gone: helmsman volumes leave-out " + shellWord(file) +
           ")";
  }
  return std::nullopt;
}

// Why it was ended says more than the status that it ended with.
void addStalls(const std::vector<Stall>& stalls, std::vector<ServiceResult>& services) {
  for (const Stall& stall : stalls) {
    if (stall.wasAskedForSize) continue;
    for (ServiceResult& service : services) {
      if (service.name != stall.service) continue;
      std::erase_if(service.problems, [&stall](const std::string& problem) {
        return problem.starts_with(stall.program + " ended with status 1");
      });
      service.problems.insert(service.problems.begin(), stall.text());
      service.done = false;
    }
  }
}

}  // namespace

host::TaskResult runFollowed(RunGuard& guard, const std::function<void(const ProgressStep&)>& step,
                             const std::function<host::TaskResult()>& start) {
  // Halyard empties it too, but not before the follower has read what another run left.
  if (host::exists(paths::kProgressLog))
    (void)host::createOrEmptyFile(paths::kProgressLog, kProgressLogMode);
  const ProgressFollower follower(paths::kProgressLog, [&](const ProgressStep& made) {
    guard.enter({made.service, programAfter(made), made.message == texts::kSizeBegun, {}});
    step(made);
  });
  return guard.run(paths::kProgram, start);
}

HalyardBackup runHalyardBackup(std::vector<InstalledDescriptor> descriptors,
                               const EarlierBackups& earlier, RunGuard& guard,
                               const std::function<void(const ProgressStep&)>& step) {
  const std::string signatureBefore = signatureIn(paths::kMetadataFolder);
  RunJudge judge(std::move(descriptors));
  LineReader output([&judge](std::string_view line) { judge.outputLine(line); });
  LineReader errors([&judge](std::string_view line) { judge.errorLine(line); });
  host::TaskOptions options;
  options.output = [&output](std::string_view piece) { output.take(piece); };
  options.error = [&errors](std::string_view piece) { errors.take(piece); };
  const host::TaskResult result = runFollowed(guard, step, [&options] {
    return runHalyard({"-cmd", "backup", "-source", "/"}, options);
  });
  output.finish();
  errors.finish();
  const std::string log = host::readFile(paths::kProgressLog, kProgressLogLimit).value_or("");
  for (const std::string_view line : splitAt(log, '\n')) judge.progressLine(line);

  HalyardBackup backup;
  backup.services = judge.results([&](const std::string& service, const std::string& file) {
    return copyFailure(earlier, service, file);
  });
  backup.stalls = guard.takeStalls();
  addStalls(backup.stalls, backup.services);
  for (ServiceResult& service : backup.services) {
    service.bytes = treeBytes(joinPath(paths::kMetadataFolder, service.name));
  }
  backup.isWhole = result.status == 0 && judge.sawEnd() &&
                   !signatureIn(paths::kMetadataFolder).empty() &&
                   signatureIn(paths::kMetadataFolder) != signatureBefore;
  if (guard.signal() != 0) return backup;
  if (result.status != 0) {
    backup.problems.push_back("Halyard ended with status " + std::to_string(result.status));
  } else if (!judge.sawEnd()) {
    backup.problems.emplace_back("Halyard's run did not come to its end");
  }
  for (std::string& text : metadataProblems(paths::kMetadataFolder, signatureBefore)) {
    backup.problems.push_back(std::move(text));
  }
  return backup;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/check.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "helmsman/lint/descriptor_lint.h"
#include "helmsman/lint/finding.h"
#include "helmsman/lint/host_lint.h"
#include "helmsman/lint/preference_lint.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr const char* word(Finding::Severity severity) {
  return severity == Finding::Severity::error ? "error" : "warning";
}

// Metadata folders that show what a backup of this host holds.
std::vector<std::string> backupFolders() {
  std::vector<std::string> folders = {paths::kMetadataFolder};
  std::string ignored;
  if (const auto latest = chooseSnapshot("", ignored); latest && !latest->metadataFolder.empty()) {
    folders.push_back(latest->metadataFolder);
  }
  return folders;
}

void askForSize(const InstalledDescriptor& descriptor, Findings& findings) {
  const auto program = descriptor.content.text(descriptor_keys::kBackupBinaryPath);
  // What cannot be run has its own finding.
  if (!program || !host::isExecutableFile(*program)) return;
  const host::TaskResult result = host::RunTask(*program, {"-cmd", "size", "-opt", "all"});
  lintSizeAnswer(descriptor, result.output, findings);
}

// Has snapwheel itself read its configuration: it refuses what it does not know.
void lintEngineConfiguration(Findings& findings) {
  if (!host::exists(kEngineConfigFile) || !host::isExecutableFile(paths::kSnapshotTool)) return;
  const host::TaskResult result =
      host::RunTask(std::string(paths::kSnapshotTool), {"list", "--help"});
  if (result.status == kSuccess) return;
  const std::string_view reason = trimLineFeeds(result.error);
  FindingList list(kEngineConfigFile, findings);
  list.error("", "snapwheel does not take it: " + std::string(reason.substr(0, reason.find('\n'))),
             "mend it; until then no snapshot is taken or removed");
}

// Reads helmsman's own configuration and the files of its folder "services", as a backup does.
void lintHelmsmanConfiguration(Findings& findings) {
  std::string problem;
  if (helmsmanConfiguration(problem)) return;
  FindingList list(kNativePreferenceFolder, findings);
  list.error("", problem, "mend it; until then nothing is backed up");
}

void noteWhatIsNotHere(const std::vector<InstalledDescriptor>& descriptors) {
  for (const InstalledDescriptor& descriptor : descriptors) {
    if (!isOnThisHost(descriptor)) printNote(descriptor.serviceName() + " is not on this host");
  }
}

void print(const Findings& findings, bool asJson) {
  if (asJson) {
    nlohmann::json list = nlohmann::json::array();
    for (const Finding& finding : findings) {
      list.push_back({{"severity", word(finding.severity)},
                      {"file", finding.file},
                      {"key", finding.key},
                      {"problem", finding.problem},
                      {"advice", finding.advice}});
    }
    printJson({{"findings", std::move(list)}});
    return;
  }
  for (const Finding& finding : findings) {
    printLine(std::string(word(finding.severity)) + ": " + finding.file + ": " +
              (finding.key.empty() ? "" : finding.key + ": ") + finding.problem);
    printLine("    " + finding.advice);
  }
}

int conclude(const Findings& findings, const std::vector<InstalledDescriptor>& descriptors,
             const CheckArguments& arguments) {
  print(findings, arguments.json);
  const auto errors = std::count_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == Finding::Severity::error;
  });
  const auto warnings = static_cast<std::ptrdiff_t>(findings.size()) - errors;
  if (!arguments.json) {
    noteWhatIsNotHere(descriptors);
    printNote(std::to_string(descriptors.size()) + " descriptors, " + std::to_string(errors) +
              " errors, " + std::to_string(warnings) + " warnings");
  }
  return errors == 0 && finishOutput() ? kSuccess : kFailure;
}

}  // namespace

int check(const CheckArguments& arguments) {
  Findings findings;
  const auto descriptors = installedDescriptors();
  if (!host::exists(paths::kSetupMarker)) {
    FindingList(paths::kSetupMarker, findings)
        .error("", "this host is not set up yet", "run helmsman setup");
    return conclude(findings, descriptors, arguments);
  }
  const std::vector<std::string> folders = backupFolders();
  for (const InstalledDescriptor& descriptor : descriptors) {
    lintDescriptor(descriptor, folders, findings);
    if (!arguments.noSize) askForSize(descriptor, findings);
  }
  lintTogether(descriptors, findings);
  lintServicePreferences(descriptors, findings);
  lintEnginePreferences(findings);
  lintEngineConfiguration(findings);
  lintHelmsmanConfiguration(findings);
  lintHost(findings);
  return conclude(findings, descriptors, arguments);
}

}  // namespace halyard::hostkit

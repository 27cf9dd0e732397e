// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/configuration_lint.h"

#include <string>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/paths.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

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

void lintHelmsmanConfiguration(Findings& findings) {
  std::string problem;
  if (helmsmanConfiguration(problem)) return;
  FindingList list(kNativePreferenceFolder, findings);
  list.error("", problem, "mend it; until then nothing is backed up");
}

}  // namespace halyard::hostkit

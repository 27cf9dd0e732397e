// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/run/pid_file.h"

#include <string>

#include "frontend/run/function_log.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/process/process.h"
#include "host/tree/move_item.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard {

void setPidForProcess(const MaybeString& command) {
  const FunctionLog scope(__func__);
  removePidProcessFile();
  const std::string line =
      std::to_string(host::processIdentifier()) + texts::kSeparator + orNull(command) + "\n";
  // A run without its marker is still a run.
  (void)host::writeFile(paths::kPidFile, line, host::Durability::power);
}

void removePidProcessFile() {
  const FunctionLog scope(__func__);
  if (!host::exists(paths::kPidFile)) return;
  (void)host::removeItem(paths::kPidFile);
  (void)host::syncFolderOf(paths::kPidFile);  // Back after a power cut, it would stop every run.
}

}  // namespace halyard

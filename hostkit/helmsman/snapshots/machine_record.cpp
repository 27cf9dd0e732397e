// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/machine_record.h"

#include <sys/stat.h>

#include <cerrno>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/machine.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/question.h"
#include "common/safe_folder.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "product/computer_name.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kRecordMode = 0640;
constexpr mode_t kRepositoryMode = 0775;
constexpr mode_t kHostFolderMode = 0750;

}  // namespace

std::string adoptFolder(const std::string& destination) {
  const std::string machine = machineIdentifier();
  if (machine.empty()) {
    return "this machine has no identifier in /etc/machine-id (run: systemd-machine-id-setup)";
  }
  const std::string repository = repositoryAt(destination);
  const std::string path = joinPath(repository, computerName());
  if (::mkdir(repository.c_str(), kRepositoryMode) == 0) {
    (void)::chmod(repository.c_str(), kRepositoryMode);  // The umask may have taken bits away.
  }
  (void)::mkdir(path.c_str(), kHostFolderMode);  // What cannot be made cannot be opened either.
  const Result<host::Descriptor> folder = openFolderSafely(path);
  const Status written = folder
                             ? host::writeFileAt(folder->get(), kMachineRecordName, machine + "\n",
                                                 host::Durability::power, kRecordMode)
                             : folder.error();
  if (!written) {
    return path + ": " + errnoText(written.error().code);
  }
  return {};
}

std::string settleFolder(const std::string& destination, bool canAsk) {
  std::string refusal = folderRefusal(destination);
  if (refusal.empty() || !canAsk) return refusal;
  printWarning(refusal);
  if (!confirmed("Take " + snapshotFolder(destination) + " for this host's folder?")) {
    return "the folder of the snapshots was not taken for this host's";
  }
  return adoptFolder(destination);
}

int adoptDestination() {
  std::string problem;
  const auto destination = backupDestination(problem);
  if (destination) problem = adoptFolder(*destination);
  if (!problem.empty()) {
    printError(problem);
    return kFailure;
  }
  printNote(snapshotFolder(*destination) + " is this host's now");
  return kSuccess;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Halyard's part of a backup: run, followed, and judged.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "helmsman/run/expected_services.h"
#include "helmsman/run/run_guard.h"
#include "helmsman/run/run_judge.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

struct HalyardBackup {
  std::vector<ServiceResult> services;
  std::vector<std::string> problems;  ///< Those of no single service.
  std::vector<Stall> stalls;          ///< The services know those that matter to them.
  bool isWhole = false;               ///< Halyard came to its end and left its signature.
};

/// What tells a listed file that was never here from one that is lost.
struct EarlierBackups {
  std::vector<Snapshot> snapshots;   ///< Of this host, oldest first.
  std::vector<std::string> leftOut;  ///< What may be missing on purpose.
};

/// Runs Halyard's backup onto "/.Halyards" under guard, hands out its steps, and judges it by what
/// it printed and left behind. A listed file that this host does not have is no problem unless the
/// newest snapshot that holds its service whole has it.
HalyardBackup runHalyardBackup(std::vector<InstalledDescriptor> descriptors,
                               const EarlierBackups& earlier, RunGuard& guard,
                               const std::function<void(const ProgressStep&)>& step);

/// Runs Halyard under guard and hands out the steps of its progress log.
host::TaskResult runFollowed(RunGuard& guard, const std::function<void(const ProgressStep&)>& step,
                             const std::function<host::TaskResult()>& start);

}  // namespace halyard::hostkit

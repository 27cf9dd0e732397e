// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A whole-system restore, service by service: what it will put back, and what it did.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "helmsman/restore/restore_plan.h"
#include "helmsman/restore/restore_trace.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// One service of the backup, or one that is installed here.
struct ServiceRecovery {
  enum class Result { restored, partial, unknown, failed, notInBackup };

  std::string name;
  bool held = false;      ///< The backup has a folder of it.
  bool ended = false;     ///< The run came to its end.
  bool saidDone = false;  ///< Its restore program says that it worked.
  bool canVerify = false;
  std::vector<std::string> lacks;  ///< Why the backup holds only a part of it.
  std::vector<std::string> problems;
  std::vector<PlannedItem> plan;

  Result result() const;
};

struct Recovery {
  Snapshot source;  ///< "/.Halyards" as it stands before the run; nothing but it is known.
  std::vector<ServiceRecovery> services;
  std::vector<std::string> problems;  ///< Those of no single service.

  /// kSuccess when every service of the backup is back whole, kFailure when none is, else kPartial.
  int status() const;
};

/// What the restore works on: every descriptor, in the program's order, and what the backup holds
/// without one. Called before the run, which removes the backup from the live system.
Recovery planRecovery();

/// Takes up what the run left behind: its progress log, what its restore programs told, and what
/// stands at the paths.
void judgeRecovery(Recovery& recovery, std::string_view progressLog, const PlugInJournal& told);

/// "restored", "in part", "unknown", "failed", "not in the backup".
const char* resultWord(ServiceRecovery::Result result);

nlohmann::json recoveryJson(const Recovery& recovery);

}  // namespace halyard::hostkit

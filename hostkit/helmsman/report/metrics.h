// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman metrics": the state of the backups for Prometheus.
#pragma once

#include <string>

#include "helmsman/run/backup_health.h"

namespace halyard::hostkit {

/// The textfile: times are seconds since 1970-01-01 UTC, sizes bytes, results 1 for good and 0 for
/// anything else; a last good time is 0 when no good backup is there. Services that are switched
/// off are left out; so is everything of a last backup without a record of one.
std::string metricsText(const BackupHealth& health);

struct MetricsArguments {
  bool write = false;      ///< Into the textfile folder instead of standard output.
  std::string folder;      ///< Another folder for it.
  std::string unitFailed;  ///< Record that this unit failed instead, for OnFailure=.
};

/// Returns the exit status.
int metrics(const MetricsArguments& arguments);

/// Writes the file when its folder is there; false, and an error, when it could not be written.
bool writeMetricsWhereWanted();

}  // namespace halyard::hostkit

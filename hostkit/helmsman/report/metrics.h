// "helmsman metrics": the state of the backups for Prometheus.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "helmsman/run/run_record.h"

namespace halyard::hostkit {

/// The textfile: times are seconds since 1970-01-01 UTC, sizes bytes, results 1 for good and 0 for
/// anything else. Without a record only halyard_backup_known 0.
std::string metricsText(const std::optional<RunRecord>& record);

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

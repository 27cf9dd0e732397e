// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What is known of the contents of this host's snapshots: /var/lib/halyard/scrub.json.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "common/problem.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/timer.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// A file in snapshots that does not hold what was put there.
struct DamagedSnapshotFile {
  std::string path;
  std::string reason;
  std::vector<std::string> snapshots;
  unsigned part = 0;  ///< That found it.
};

struct ScrubRecord {
  enum class Result { good, damage, failed };
  Result result = Result::failed;
  std::int64_t started = 0;
  std::int64_t finished = 0;
  unsigned part = 0;  ///< Of the last run.
  unsigned parts = 0;
  std::uint64_t bytesRead = 0;
  std::map<unsigned, std::int64_t> partsRead;  ///< When each part was last read to its end.
  std::vector<DamagedSnapshotFile> damaged;    ///< By all parts.
  std::vector<std::string> problems;           ///< What else the last run found, or why it failed.
};

/// Absent when there is none, or none that can be read.
std::optional<ScrubRecord> readScrubRecord();
/// On disk when this returns; false when it could not be written.
bool keepScrubRecord(const ScrubRecord& record);
nlohmann::json scrubJson(const ScrubRecord& record);

/// The part that was not read for the longest time.
unsigned nextPart(const std::optional<ScrubRecord>& record, unsigned parts);
/// When it was; absent when one never was.
std::optional<std::int64_t> oldestPart(const std::optional<ScrubRecord>& record, unsigned parts);

/// What status and metrics say of it.
struct ScrubHealth {
  ScrubPeriod period = ScrubPeriod::off;
  TimerReport timer;  ///< Not asked for while the period is off.
  unsigned parts = 0;
  std::optional<ScrubRecord> record;  ///< Without the damage of snapshots that are gone.
  std::vector<Problem> problems;
};

/// `snapshots` are those that are there; null when that is not known.
///
/// Runs: systemctl, when systemd is the init system and a period is set.
ScrubHealth scrubHealth(std::int64_t now, const std::vector<Snapshot>* snapshots);

/// "part 3 of 6 read 2 days ago, nothing damaged".
std::string scrubText(const ScrubHealth& health, std::int64_t now);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/clock_check.h"

#include "common/times.h"
#include "common/version.h"
#include "helmsman/run/run_record.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

namespace {

constexpr std::int64_t kTolerance = 600;

}  // namespace

KnownPast knownPast() {
  KnownPast past;
  past.buildYear = buildYear();
  std::string ignored;
  if (const auto newest = chooseSnapshot("", ignored)) {
    past.newestSnapshot = beginOf(*newest);
  }
  if (const auto record = readLastRecord()) past.lastRecord = record->finished;
  return past;
}

std::string clockProblem(std::int64_t now, const KnownPast& past) {
  const std::string says = "the clock of this host says " + timeText(now) + ", ";
  const std::string advice = " (see: timedatectl)";
  if (now < parseTime(std::to_string(past.buildYear) + "-01-01T00:00:00Z").value_or(0)) {
    return says + "a year before this program was made" + advice;
  }
  if (past.newestSnapshot && *past.newestSnapshot > now + kTolerance) {
    return says + "and the newest snapshot is of " + timeText(*past.newestSnapshot) +
           " (see: timedatectl; if the clock is right now: purge the snapshots of the future, then "
           "run helmsman backup)";
  }
  if (past.lastRecord && *past.lastRecord > now + kTolerance) {
    return says + "and the last backup ended at " + timeText(*past.lastRecord) + advice;
  }
  return {};
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/scrub_schedule.h"

#include "common/configuration.h"
#include "common/messages.h"
#include "common/paths.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/timer.h"

namespace halyard::hostkit {

ScrubPeriod storedScrub() {
  std::string ignored;
  const auto configuration = helmsmanConfiguration(ignored);
  return configuration ? configuration->scrub.value_or(ScrubPeriod::off) : ScrubPeriod::off;
}

std::string scrubCalendar(ScrubPeriod period) {
  // Away from the nights, when backups run.
  return period == ScrubPeriod::monthly ? "*-*-01 13:00:00" : "Sun *-*-* 13:00:00";
}

bool scheduleScrub(ScrubPeriod period) {
  if (!makeFolders(kNativePreferenceFolder, 0755) ||
      !replaceConfigurationLines(kHelmsmanConfiguration, {kScrubKey},
                                 {{kScrubKey, scrubWord(period), 0}})) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return false;
  }
  return setTimer(Timed::scrub, period == ScrubPeriod::off ? TimerState::off : TimerState::on,
                  scrubCalendar(period));
}

bool scheduleScrubUnlessChosen() {
  std::string problem;
  const auto configuration = helmsmanConfiguration(problem);
  if (!configuration) {
    printWarning(problem + "; whether the repository is read stays as it is");
    return true;
  }
  if (configuration->scrub) return true;
  if (!scheduleScrub(ScrubPeriod::weekly)) return false;
  printNote("a part of the repository is read every week (see: helmsman schedule --scrub)");
  return true;
}

}  // namespace halyard::hostkit

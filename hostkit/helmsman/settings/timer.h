// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The systemd timers that start backups, and the reading of the repository.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/problem.h"

namespace halyard::hostkit {

enum class TimerState { off, on };

/// What a timer starts: "helmsman backup" or "helmsman scrub".
enum class Timed { backup, scrub };

/// Gives its timer its calendar (a drop-in, so that the packaged unit stays as it is), and starts
/// or stops it when systemd runs here. Without systemd the drop-in alone is written, with a note.
/// False, with the reason printed, when any of it failed.
bool setTimer(Timed timed, TimerState state, const std::string& calendar);

/// Whether systemd is the init system of this host.
bool systemdRuns();

/// What systemd has loaded of the units that start it.
struct TimerReport {
  std::string unknown;          ///< Why that cannot be known; empty when it is.
  bool starts = false;          ///< The timer waits for its next time and has something to start.
  std::vector<Problem> faults;  ///< What keeps it from starting, now or after the next boot.
};

/// Asks systemd. `calendar` is what the timer ought to go by.
///
/// Runs: systemctl, when systemd is the init system.
TimerReport timerReport(Timed timed, const std::string& calendar);

/// The same, from what "systemctl show" prints of timer and service, in this order: lines KEY=VALUE
/// and an empty line between the two.
TimerReport timerReportFrom(Timed timed, std::string_view shown, const std::string& calendar);

}  // namespace halyard::hostkit

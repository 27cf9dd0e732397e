// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The systemd timer that starts backups.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/problem.h"

namespace halyard::hostkit {

enum class TimerState { off, on };

/// Gives the timer its calendar (a drop-in, so that the packaged unit stays as it is), and starts
/// or stops it when systemd runs here. Without systemd the drop-in alone is written, with a note.
/// False, with the reason printed, when any of it failed.
bool setTimer(TimerState state, const std::string& calendar);

/// The same for the timer that reads a part of the repository.
bool setScrubTimer(TimerState state, const std::string& calendar);

/// Whether systemd is the init system of this host.
bool systemdRuns();

/// What systemd has loaded of the units that start backups.
struct TimerReport {
  std::string unknown;          ///< Why that cannot be known; empty when it is.
  bool starts = false;          ///< The timer waits for its next time and has something to start.
  std::vector<Problem> faults;  ///< What keeps backups from starting, now or after the next boot.
};

/// Asks systemd. `calendar` is what the timer ought to go by.
///
/// Runs: systemctl, when systemd is the init system.
TimerReport timerReport(const std::string& calendar);

/// The same, from what "systemctl show" prints of timer and service, in this order: lines KEY=VALUE
/// and an empty line between the two.
TimerReport timerReportFrom(std::string_view shown, const std::string& calendar);

}  // namespace halyard::hostkit

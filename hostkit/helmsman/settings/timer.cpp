// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/timer.h"

#include <map>
#include <vector>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr char kDropInName[] = "schedule.conf";

struct TimerPlace {
  const char* unit;
  const char* service;   // What it starts.
  const char* folder;    // Of its drop-in.
  const char* command;   // What to start by other means where no systemd does.
  const char* switchOn;  // Advice.
};

const TimerPlace& placeOf(Timed timed) {
  static constexpr TimerPlace kBackup = {kTimerUnit, kBackupUnit, kTimerDropInFolder, "backup",
                                         "run helmsman schedule --on"};
  static constexpr TimerPlace kScrub = {kScrubTimerUnit, kScrubUnit, kScrubDropInFolder, "scrub",
                                        "run helmsman schedule --scrub weekly, monthly or off"};
  return timed == Timed::backup ? kBackup : kScrub;
}

bool runSystemctl(const std::vector<std::string>& words) {
  host::TaskOptions options;
  options.plainLocale = true;
  const host::TaskResult result = host::RunTask(std::string(kSystemctlProgram), words, options);
  if (result.status == 0) return true;
  std::string command = "systemctl";
  for (const std::string& word : words) command += " " + word;
  printError(command + " failed: " + std::string(trimLineFeeds(result.error)));
  return false;
}

using UnitProperties = std::map<std::string, std::string, std::less<>>;

std::string propertyOf(const UnitProperties& unit, std::string_view key) {
  const auto found = unit.find(key);
  return found == unit.end() ? std::string() : found->second;
}

// One map a unit. A key that comes again, as one line a calendar does, adds a line to its value.
std::vector<UnitProperties> unitsIn(std::string_view shown) {
  std::vector<UnitProperties> units(1);
  for (const std::string_view line : splitAt(trimLineFeeds(shown), '\n')) {
    const std::size_t equals = line.find('=');
    if (line.empty()) {
      units.emplace_back();
    } else if (equals != std::string_view::npos) {
      std::string& value = units.back()[std::string(line.substr(0, equals))];
      value += (value.empty() ? "" : "\n") + std::string(line.substr(equals + 1));
    }
  }
  return units;
}

// Adds a fault unless systemd has the unit.
bool isLoaded(const char* name, const UnitProperties& unit, std::vector<Problem>& faults) {
  const std::string state = propertyOf(unit, "LoadState");
  if (state == "loaded") return true;
  const std::string unitName = name;
  if (state == "masked") {
    faults.push_back({unitName + " is masked", "run systemctl unmask " + unitName});
  } else if (state == "not-found") {
    faults.push_back({unitName + " is not installed", "install the package halyard-hostkit"});
  } else {
    faults.push_back(
        {unitName + " cannot be loaded (" + state + ")", "see: systemctl status " + unitName});
  }
  return false;
}

}  // namespace

TimerReport timerReportFrom(Timed timed, std::string_view shown, const std::string& calendar) {
  const TimerPlace& timer = placeOf(timed);
  TimerReport report;
  const std::vector<UnitProperties> units = unitsIn(shown);
  if (units.size() != 2 || propertyOf(units[0], "LoadState").empty() ||
      propertyOf(units[1], "LoadState").empty()) {
    report.unknown = "systemd gives no answer";
    return report;
  }
  if (isLoaded(timer.unit, units[0], report.faults)) {
    const std::string enabled = propertyOf(units[0], "UnitFileState");
    const std::string active = propertyOf(units[0], "ActiveState");
    report.starts = active == "active";
    if (enabled != "enabled" || !report.starts) {
      report.faults.push_back(
          {std::string(timer.unit) + " is " + enabled + " and " + active, timer.switchOn});
    } else if (propertyOf(units[0], "TimersCalendar").find("OnCalendar=" + calendar + " ;") ==
               std::string::npos) {
      report.faults.push_back(
          {std::string(timer.unit) + " goes by another calendar than the schedule",
           timer.switchOn});
    }
  }
  if (!isLoaded(timer.service, units[1], report.faults)) report.starts = false;
  return report;
}

TimerReport timerReport(Timed timed, const std::string& calendar) {
  if (!systemdRuns()) return {"systemd does not run here", false, {}};
  const TimerPlace& timer = placeOf(timed);
  host::TaskOptions options;
  options.plainLocale = true;
  const host::TaskResult result =
      host::RunTask(std::string(kSystemctlProgram),
                    {"show", "--property=LoadState,UnitFileState,ActiveState,TimersCalendar",
                     timer.unit, timer.service},
                    options);
  return timerReportFrom(timed, result.status == 0 ? result.output : "", calendar);
}

bool systemdRuns() { return host::isDirectory("/run/systemd/system"); }

bool setTimer(Timed timed, TimerState state, const std::string& calendar) {
  const TimerPlace& timer = placeOf(timed);
  // The empty assignment takes the packaged calendar away: lines add up otherwise.
  const std::string text =
      "# Written by helmsman schedule.\n[Timer]\nOnCalendar=\nOnCalendar=" + calendar + "\n";
  const std::string path = joinPath(timer.folder, kDropInName);
  if (!makeFolders(timer.folder, 0755) || !host::writeFile(path, text, host::Durability::power)) {
    printError(path + " could not be written");
    return false;
  }
  if (!systemdRuns()) {
    if (state == TimerState::on) {
      printWarning(std::string("systemd does not run here: start ") + paths::kAdministrationTool +
                   " " + timer.command + " by other means");
    }
    return true;
  }
  return runSystemctl({"daemon-reload"}) &&
         runSystemctl({state == TimerState::on ? "enable" : "disable", "--now", timer.unit});
}

}  // namespace halyard::hostkit

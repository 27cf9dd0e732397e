// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman schedule": when backups run by themselves and how long snapshots stay.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/property_list.h"
#include "helmsman/settings/retention_settings.h"

namespace halyard::hostkit {

/// The schedule as the engine's preference file keeps it.
struct Schedule {
  enum class Period { daily, weekly, monthly };
  Period period = Period::daily;
  std::string day = "Sunday";  ///< Of weekly and monthly: "Monday" to "Sunday".
  int week = 1;                ///< Of monthly: which of those days of the month, 1 to 4.
  int minutes = 120;           ///< After midnight, local time.
  int daysToRetain = 30;

  bool operator==(const Schedule&) const = default;
};

/// Reads "Period", "Day", "Week", "Time" and "DaysToRetain"; what is missing or makes no sense
/// takes its default.
Schedule scheduleFrom(const PropertyDictionary& enginePreferences);
void storeSchedule(const Schedule& schedule, PropertyDictionary& enginePreferences);

/// systemd's calendar expression for it: "Mon *-*-* 02:00:00".
std::string calendarExpression(const Schedule& schedule);

/// "every Monday at 02:00, snapshots kept for 30 days".
std::string describe(const Schedule& schedule, const Retention& retention);

/// "every day", "every Monday", "every first Sunday of the month".
std::string periodText(const Schedule& schedule);

/// How old a good backup may become, in seconds: two periods. One that is older shows that the run
/// after it did not come, or was not good.
std::int64_t longestAge(const Schedule& schedule);

/// "HH:MM" as minutes after midnight; absent for anything else.
std::optional<int> parseTimeOfDay(std::string_view text);
/// A day's name in any case, or its first three letters or more, as its full name; absent for
/// anything else.
std::optional<std::string> parseDay(std::string_view text);

struct ScheduleArguments {
  bool daily = false;
  std::string weekly;   ///< A day.
  std::string monthly;  ///< WEEK:DAY, as in "1:Sunday".
  std::string at;       ///< "HH:MM".
  std::string keep;     ///< As parseKeep takes it.
  std::string scrub;    ///< "weekly", "monthly" or "off".
  bool off = false;
  bool on = false;
  bool json = false;
};

/// Shows the schedule when nothing is to be changed, and writes nothing then; as JSON also what it
/// was changed to. Otherwise checks everything, then writes the preferences and the timer's
/// calendar, and has systemd take it up when it runs here.
///
/// Writes:  the engine's preference file ("AutoBackup" with on and off) and, for other rules than
///          days, its configuration file; the timer's drop-in.
/// Runs:    systemctl, when systemd is the init system.
/// Returns: the exit status.
int schedule(const ScheduleArguments& arguments);

/// Whether the engine's preferences switch automatic backups on.
bool isAutomatic(const PropertyDictionary& enginePreferences);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/schedule.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/configuration.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/property_file.h"
#include "helmsman/settings/scrub_schedule.h"
#include "helmsman/settings/settings.h"
#include "helmsman/settings/timer.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

constexpr int kMinutesADay = 24 * 60;

constexpr std::array<const char*, 7> kDays = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                              "Friday", "Saturday", "Sunday"};
constexpr char kDaysToSay[] =
    "say Monday, Tuesday, Wednesday, Thursday, Friday, Saturday or Sunday, or three or more of its "
    "first letters";
constexpr std::array<const char*, 3> kPeriods = {"Daily", "Weekly", "Monthly"};

const char* periodName(Schedule::Period period) {
  return kPeriods[static_cast<std::size_t>(period)];
}

std::string clockText(int minutes) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%02d:%02d", minutes / 60, minutes % 60);
  return text.data();
}

int integerIn(const PropertyDictionary& dictionary, std::string_view key, int least, int most,
              int otherwise) {
  const PropertyValue* value = dictionary.find(key);
  if (value == nullptr) return otherwise;
  const int number = value->integerValue();
  return number >= least && number <= most ? number : otherwise;
}

bool understandPeriod(const ScheduleArguments& arguments, Schedule& schedule) {
  if (arguments.daily) schedule.period = Schedule::Period::daily;
  if (!arguments.weekly.empty()) {
    const auto day = parseDay(arguments.weekly);
    if (!day) {
      printError("'" + arguments.weekly + "' is no day of the week: " + kDaysToSay);
      return false;
    }
    schedule.period = Schedule::Period::weekly;
    schedule.day = *day;
  }
  if (!arguments.monthly.empty()) {
    const std::size_t colon = arguments.monthly.find(':');
    const auto day = colon == 1 ? parseDay(std::string_view(arguments.monthly).substr(2))
                                : std::optional<std::string>{};
    const char week = arguments.monthly.front();
    if (!day || week < '1' || week > '4') {
      printError("'" + arguments.monthly +
                 "' is no WEEK:DAY, such as 1:Sunday; the weeks are 1 to 4, and for the " + "day " +
                 kDaysToSay);
      return false;
    }
    schedule.period = Schedule::Period::monthly;
    schedule.week = week - '0';
    schedule.day = *day;
  }
  return true;
}

bool understand(const ScheduleArguments& arguments, Schedule& schedule) {
  if (!understandPeriod(arguments, schedule)) return false;
  if (!arguments.at.empty()) {
    const auto minutes = parseTimeOfDay(arguments.at);
    if (!minutes) {
      printError("'" + arguments.at + "' is no time of day from 00:00 to 23:59, such as 02:30");
      return false;
    }
    schedule.minutes = *minutes;
  }
  if (!arguments.keep.empty()) {
    std::string problem;
    const auto retention = parseKeep(arguments.keep, problem);
    if (!retention) {
      printError(problem);
      return false;
    }
    if (*retention->days != 0) schedule.daysToRetain = *retention->days;
  }
  return true;
}

int show(const PropertyDictionary& preferences, bool asJson) {
  const Schedule schedule = scheduleFrom(preferences);
  const bool on = integerIn(preferences, keys::kAutoBackup, INT32_MIN, INT32_MAX, 0) != 0;
  const Retention retention = storedRetention();
  if (asJson) {
    nlohmann::json keep = {{"days", retention.days.value_or(schedule.daysToRetain)}};
    for (std::size_t at = 0; at < kRetentionRules.size(); ++at) {
      keep[std::string(kRetentionRules[at].word)] = retention.counts[at];
    }
    printJson({{"enabled", on},
               {"period", periodName(schedule.period)},
               {"day", schedule.day},
               {"week", schedule.week},
               {"time", clockText(schedule.minutes)},
               {"daysToRetain", schedule.daysToRetain},
               {"keep", std::move(keep)},
               {"scrub", scrubWord(storedScrub())},
               {"calendar", calendarExpression(schedule)}});
  } else {
    printLine(std::string(on ? "on: " : "off: ") + describe(schedule, retention));
    if (storedScrub() != ScrubPeriod::off) {
      printLine(std::string("a part of the repository is read ") + scrubWord(storedScrub()));
    }
  }
  return finishOutput() ? kSuccess : kFailure;
}

int showStored(bool asJson) {
  std::string problem;
  const auto preferences = readPropertyFile(paths::kEnginePreferenceFile, problem);
  if (!problem.empty()) {
    printError(problem);
    return kFailure;
  }
  if (!preferences) printNote("nothing is set yet (see: helmsman setup); this is the default");
  return show(preferences.value_or(PropertyDictionary{}), asJson);
}

bool changesAnything(const ScheduleArguments& arguments) {
  return arguments.daily || !arguments.weekly.empty() || !arguments.monthly.empty() ||
         !arguments.at.empty() || !arguments.keep.empty() || arguments.off || arguments.on;
}

// Automatic backups without a destination would fail every night.
bool canSwitchOn(const PropertyDictionary& preferences) {
  if (preferences.find(keys::kBackupAlias) != nullptr) return true;
  printError("set a destination first (see: helmsman destination --list)");
  return false;
}

}  // namespace

Schedule scheduleFrom(const PropertyDictionary& enginePreferences) {
  Schedule schedule;
  const std::string period = enginePreferences.text(keys::kPeriod).value_or("");
  if (equalsIgnoringCase(period, kPeriods[1])) schedule.period = Schedule::Period::weekly;
  if (equalsIgnoringCase(period, kPeriods[2])) schedule.period = Schedule::Period::monthly;
  schedule.day = parseDay(enginePreferences.text(keys::kDay).value_or("")).value_or(schedule.day);
  schedule.week = integerIn(enginePreferences, keys::kWeek, 1, 4, schedule.week);
  schedule.minutes =
      integerIn(enginePreferences, keys::kTime, 0, kMinutesADay - 1, schedule.minutes);
  schedule.daysToRetain =
      integerIn(enginePreferences, keys::kDaysToRetain, 1, kMostKept, schedule.daysToRetain);
  return schedule;
}

void storeSchedule(const Schedule& schedule, PropertyDictionary& enginePreferences) {
  enginePreferences.set(keys::kDay, schedule.day);
  enginePreferences.set(keys::kPeriod, periodName(schedule.period));
  enginePreferences.set(keys::kDaysToRetain, schedule.daysToRetain);
  enginePreferences.set(keys::kTime, schedule.minutes);
  enginePreferences.set(keys::kWeek, schedule.week);
}

std::string calendarExpression(const Schedule& schedule) {
  const std::string clock = " " + clockText(schedule.minutes) + ":00";
  const std::string day = schedule.day.substr(0, 3);
  if (schedule.period == Schedule::Period::daily) return "*-*-*" + clock;
  if (schedule.period == Schedule::Period::weekly) return day + " *-*-*" + clock;
  // The n-th such day of a month falls on the days 7(n-1)+1 to 7n.
  std::array<char, 16> days{};
  (void)std::snprintf(days.data(), days.size(), "%02d..%02d", 7 * (schedule.week - 1) + 1,
                      7 * schedule.week);
  return day + " *-*-" + days.data() + clock;
}

std::string periodText(const Schedule& schedule) {
  static constexpr std::array<const char*, 4> kOrdinals = {"first", "second", "third", "fourth"};
  std::string text = "every ";
  if (schedule.period == Schedule::Period::daily) {
    text += "day";
  } else if (schedule.period == Schedule::Period::weekly) {
    text += schedule.day;
  } else {
    text += std::string(kOrdinals[static_cast<std::size_t>(schedule.week - 1)]) + " " +
            schedule.day + " of the month";
  }
  return text;
}

std::string describe(const Schedule& schedule, const Retention& retention) {
  return periodText(schedule) + " at " + clockText(schedule.minutes) + ", snapshots kept " +
         keepText(retention, schedule.daysToRetain);
}

std::int64_t longestAge(const Schedule& schedule) {
  constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60;
  constexpr int kDaysOfLongestMonth = 31;
  const int days = schedule.period == Schedule::Period::daily    ? 1
                   : schedule.period == Schedule::Period::weekly ? 7
                                                                 : kDaysOfLongestMonth;
  return 2 * kDay * days;
}

std::optional<int> parseTimeOfDay(std::string_view text) {
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  if (text.size() != 5 || text[2] != ':' || !isDigit(text[0]) || !isDigit(text[1]) ||
      !isDigit(text[3]) || !isDigit(text[4])) {
    return std::nullopt;
  }
  const int hours = leadingInteger(text.substr(0, 2));
  const int minutes = leadingInteger(text.substr(3));
  if (hours > 23 || minutes > 59) return std::nullopt;
  return hours * 60 + minutes;
}

std::optional<std::string> parseDay(std::string_view text) {
  if (text.size() < 3) return std::nullopt;
  for (const std::string_view day : kDays) {
    if (text.size() <= day.size() && equalsIgnoringCase(day.substr(0, text.size()), text)) {
      return std::string(day);
    }
  }
  return std::nullopt;
}

int schedule(const ScheduleArguments& arguments) {
  const auto scrub = parseScrubPeriod(arguments.scrub);
  if (!arguments.scrub.empty() && !scrub) {
    printError("'" + arguments.scrub + "' is none of weekly, monthly and off");
    return kUsageError;
  }
  if (!changesAnything(arguments)) {
    const bool isScheduled = !scrub || scheduleScrub(*scrub);
    return isScheduled ? showStored(arguments.json) : kFailure;
  }
  Schedule understood;
  if (!understand(arguments, understood)) return kUsageError;  // Before anything is written.
  if (repairSettings() != kSuccess) return kFailure;
  std::string problem;
  auto preferences = readPropertyFile(paths::kEnginePreferenceFile, problem);
  if (!preferences) {
    printError(problem);
    return kFailure;
  }
  Schedule changed = scheduleFrom(*preferences);
  if (!understand(arguments, changed)) return kUsageError;
  if (arguments.on && !canSwitchOn(*preferences)) return kFailure;
  storeSchedule(changed, *preferences);
  if (arguments.on || arguments.off) preferences->set(keys::kAutoBackup, arguments.on ? 1 : 0);
  if (!writePropertyFile(paths::kEnginePreferenceFile, *preferences)) {
    printError(std::string(paths::kEnginePreferenceFile) + " could not be written");
    return kFailure;
  }
  if (!arguments.keep.empty()) {
    if (const Status kept = storeRetention(*parseKeep(arguments.keep, problem)); !kept) {
      printError(std::string(kEngineConfigFile) +
                 " could not be written: " + errnoText(kept.error().code));
      return kFailure;
    }
  }
  const bool on = integerIn(*preferences, keys::kAutoBackup, INT32_MIN, INT32_MAX, 0) != 0;
  if (!setTimer(Timed::backup, on ? TimerState::on : TimerState::off,
                calendarExpression(changed))) {
    return kFailure;
  }
  if (scrub && !scheduleScrub(*scrub)) return kFailure;
  if (on && !scheduleScrubUnlessChosen()) return kFailure;
  if (arguments.json) return show(*preferences, true);
  printNote(std::string(on ? "on: " : "off: ") + describe(changed, storedRetention()));
  return kSuccess;
}

bool isAutomatic(const PropertyDictionary& enginePreferences) {
  const PropertyValue* value = enginePreferences.find(keys::kAutoBackup);
  return value != nullptr && value->integerValue() != 0;
}

}  // namespace halyard::hostkit

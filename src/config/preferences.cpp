// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "config/preferences.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "base/property_list.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/process/task.h"
#include "host/volumes/alias.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard {

namespace {

namespace keys = preference_keys;

bool isAnyPreferenceFileMissing() {
  return !host::exists(paths::kPreferenceFile) || !host::exists(paths::kEnginePreferenceFile);
}

void runAdministrationTool() {
  host::RunTask(paths::kAdministrationTool, {"settings", "backup"},
                {.output = host::dropOutput, .error = host::dropOutput});
}

PreferenceRecord::Value valueOf(const PropertyDictionary& dictionary, std::string_view key) {
  const PropertyValue* const value = dictionary.find(key);
  if (value == nullptr) return std::nullopt;
  return *value;
}

/// The volume of an alias record kept as data or as a string; absent when it does not resolve.
MaybeString destinationOf(const PropertyDictionary& engine) {
  const PropertyValue* const alias = engine.find(keys::kBackupAlias);
  if (alias == nullptr) return std::nullopt;
  const std::string* record = alias->asData();
  if (record == nullptr) record = alias->asString();
  if (record == nullptr) return std::nullopt;
  return host::resolveAlias(*record);
}

void loadServices(PreferenceRecord& record) {
  const auto file = host::readDictionary(paths::kPreferenceFile);
  if (!file) return;
  const PropertyDictionary* const services = file->dictionary(keys::kServices);
  for (std::size_t i = 0; i < kKnownServices.size(); ++i) {
    record.services.at(i) =
        services == nullptr ? std::nullopt : valueOf(*services, kKnownServices.at(i));
  }
}

void loadEngine(PreferenceRecord& record) {
  const auto file = host::readDictionary(paths::kEnginePreferenceFile);
  if (!file) return;
  const PropertyValue* const autoBackup = file->find(keys::kAutoBackup);
  record.autoBackup = autoBackup != nullptr && autoBackup->integerValue() != 0 ? 1 : 0;
  record.backupDestination = destinationOf(*file);
  record.day = valueOf(*file, keys::kDay);
  record.period = valueOf(*file, keys::kPeriod);
  record.daysToRetain = valueOf(*file, keys::kDaysToRetain);
  record.time = valueOf(*file, keys::kTime);
  record.week = valueOf(*file, keys::kWeek);
}

MaybeString textOf(const PreferenceRecord::Value& value) {
  if (!value) return std::nullopt;
  const std::string* const text = value->asString();
  return text == nullptr ? value->description() : *text;
}

std::int32_t integerOf(const PreferenceRecord::Value& value) {
  return value ? value->integerValue() : 0;
}

void printEngineRecord(const PreferenceRecord& record) {
  debugLine("snapwheel_BackupAlias", record.backupDestination);
  debugLine("snapwheel_AutoBackup", long{record.autoBackup});
  debugLine("snapwheel_Day", textOf(record.day));
  debugLine("snapwheel_Period", textOf(record.period));
  debugLine("snapwheel_DaysToRetain", long{integerOf(record.daysToRetain)});
  debugLine("snapwheel_Time", long{integerOf(record.time)});
  debugLine("snapwheel_Week", long{integerOf(record.week)});
}

void printServices(const PreferenceRecord& record) {
  // Kept: three labels name the data of a service; management tools read them.
  constexpr std::array<const char*, kKnownServices.size()> kLabels = {
      "serverprefs_servicesDict_agendaData", "serverprefs_servicesDict_parleyHost",
      "serverprefs_servicesDict_rosterHost", "serverprefs_servicesDict_depotHost",
      "serverprefs_servicesDict_postData",   "serverprefs_servicesDict_hostProfile",
      "serverprefs_servicesDict_siteData"};
  for (std::size_t i = 0; i < kLabels.size(); ++i) {
    debugLine(kLabels.at(i), long{record.serviceFlag(i)});
  }
}

}  // namespace

void repairMissingPreferences() {
  if (isAnyPreferenceFileMissing()) runAdministrationTool();
}

const PreferenceRecord& get_Helmsman_Prefs() {
  const FunctionLog scope(__func__);
  if (isAnyPreferenceFileMissing()) {
    printText("Fixing up default prefs by calling plugin...");
    runAdministrationTool();
    printText("done.\n");
  }
  PreferenceRecord& record = runState().preferences;
  loadServices(record);
  loadEngine(record);
  return record;
}

std::int32_t willDoBackup() {
  const FunctionLog scope(__func__);
  const PreferenceRecord& record = get_Helmsman_Prefs();
  return record.hasAnyService() && record.autoBackup == 1 ? 1 : 0;
}

void forEachServiceKey(const std::function<bool(const std::string& key)>& visit) {
  const auto file = host::readDictionary(paths::kPreferenceFile);
  const PropertyDictionary* const services = file ? file->dictionary(keys::kServices) : nullptr;
  if (services == nullptr) return;
  for (const auto& [key, value] : *services) {
    if (!visit(key)) return;
  }
}

std::int32_t isValidService(const MaybeString& name) {
  bool found = false;
  {
    const FunctionLog scope(__func__);
    repairMissingPreferences();
    forEachServiceKey([&](const std::string& key) {
      debugText("%s\n", key.c_str());
      found = name == key;
      return !found;
    });
  }
  debugText("%s\n", found ? "FOUND" : "NOT FOUND");
  return found ? 1 : 0;
}

bool isListedService(const MaybeString& name) {
  bool found = false;
  forEachServiceKey([&](const std::string& key) {
    found = name == key;
    if (found) debugText("%s\n", key.c_str());
    return !found;
  });
  return found;
}

void Prefs() {
  const FunctionLog scope(__func__);
  get_Helmsman_Prefs();
  PreferenceRecord& record = runState().preferences;
  loadEngine(record);
  printEngineRecord(record);
  if (host::exists(paths::kPreferenceFile)) {
    loadServices(record);
    printServices(record);
  }
}

}  // namespace halyard

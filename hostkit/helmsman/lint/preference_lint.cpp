// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/preference_lint.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "base/text.h"
#include "common/property_file.h"
#include "helmsman/settings/schedule.h"
#include "host/volumes/alias.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

using Kind = PropertyValue::Kind;

std::optional<PropertyDictionary> readOrFind(const char* path, FindingList& list) {
  std::string problem;
  auto dictionary = readPropertyFile(path, problem);
  if (!dictionary) {
    if (problem.empty()) {
      list.error("", "is missing", "run helmsman settings backup");
    } else {
      list.error("", "is no property list with a dictionary",
                 "mend it, or remove it and run "
                 "helmsman settings backup");
    }
  }
  return dictionary;
}

void lintFlag(const std::string& service, const PropertyValue& value,
              const std::vector<InstalledDescriptor>& descriptors, FindingList& list) {
  if (value.kind() != Kind::integer && value.kind() != Kind::boolean) {
    list.warning(service, "is neither integer nor boolean", "set it to 0 or 1");
  }
  const int flag = value.integerValue();
  const bool installed = std::any_of(
      descriptors.begin(), descriptors.end(),
      [&](const InstalledDescriptor& descriptor) { return descriptor.serviceName() == service; });
  if (!isKnownService(service)) {
    if (!installed) {
      list.warning(service, "is no service that is known, and has no descriptor",
                   "install it, or remove the key");
    } else if (flag == 0) {
      list.warning(service, "is 0, and every backup takes it: only the seven can be switched off",
                   "run helmsman enable " + service + ", or remove its descriptor");
    }
    return;
  }
  if (flag != 0 && flag != 1) {
    list.warning(service, "is " + std::to_string(flag) + ": backed up, and left out of the size",
                 "set it to 0 or 1");
  }
  if (flag != 0 && !installed) {
    list.warning(service, "is on, and no descriptor of it is installed",
                 "install it, or run helmsman disable " + service);
  }
}

void lintDestination(const PropertyDictionary& preferences, FindingList& list) {
  const PropertyValue* alias = preferences.find(keys::kBackupAlias);
  const bool automatic = preferences.find(keys::kAutoBackup) != nullptr &&
                         preferences.find(keys::kAutoBackup)->integerValue() != 0;
  if (alias == nullptr) {
    if (automatic) {
      list.error(keys::kBackupAlias, "is missing while backups are on", "run helmsman destination");
    } else {
      list.warning(keys::kBackupAlias, "is missing: nothing is backed up yet",
                   "run helmsman destination");
    }
    return;
  }
  const std::string* record = alias->asData() != nullptr ? alias->asData() : alias->asString();
  if (record == nullptr) {
    list.error(keys::kBackupAlias, "is neither data nor a string", "run helmsman destination");
  } else if (!host::resolveAlias(*record)) {
    list.error(keys::kBackupAlias, "'" + *record + "' leads to no volume",
               "connect the volume, or run helmsman destination");
  }
}

// The schedule reads what makes no sense as its default; that is told here.
void lintSchedule(const PropertyDictionary& preferences, FindingList& list) {
  static constexpr std::array<const char*, 5> kKeys = {
      keys::kDay, keys::kPeriod, keys::kDaysToRetain, keys::kTime, keys::kWeek};
  PropertyDictionary understood;
  storeSchedule(scheduleFrom(preferences), understood);
  for (const char* key : kKeys) {
    const PropertyValue* value = preferences.find(key);
    if (value == nullptr) {
      list.warning(key, "is missing; " + understood.find(key)->description() + " is taken",
                   "run helmsman schedule");
      continue;
    }
    const auto same = [&] {
      const auto text = understood.text(key);
      return text ? equalsIgnoringCase(preferences.text(key).value_or(""), *text)
                  : value->integerValue() == understood.find(key)->integerValue();
    };
    if (!same()) {
      list.warning(key,
                   value->description() + " makes no sense; " +
                       understood.find(key)->description() + " is taken",
                   "run helmsman schedule");
    }
  }
}

}  // namespace

void lintServicePreferences(const std::vector<InstalledDescriptor>& descriptors,
                            Findings& findings) {
  FindingList list(paths::kPreferenceFile, findings);
  const auto preferences = readOrFind(paths::kPreferenceFile, list);
  if (!preferences) return;
  for (const auto& [key, value] : *preferences) {
    if (key != keys::kServices) {
      list.error(key, "is no key that is read", "check the spelling, or remove it");
    }
  }
  const PropertyDictionary* services = preferences->dictionary(keys::kServices);
  if (services == nullptr) {
    list.error(keys::kServices, "is missing or no dictionary: no service is known",
               "remove the file and run helmsman settings backup");
    return;
  }
  for (const auto& [service, value] : *services) lintFlag(service, value, descriptors, list);
  for (const InstalledDescriptor& descriptor : descriptors) {
    const std::string name = descriptor.serviceName();
    if (name.empty() || services->find(name) != nullptr) continue;
    list.warning(name, "has a descriptor and is no key: it cannot be restored, browsed or verified",
                 "run helmsman enable " + name);
  }
}

void lintEnginePreferences(Findings& findings) {
  static constexpr std::array<const char*, 7> kKnown = {
      keys::kAutoBackup,   keys::kBackupAlias, keys::kDay, keys::kPeriod,
      keys::kDaysToRetain, keys::kTime,        keys::kWeek};
  FindingList list(paths::kEnginePreferenceFile, findings);
  const auto preferences = readOrFind(paths::kEnginePreferenceFile, list);
  if (!preferences) return;
  for (const auto& [key, value] : *preferences) {
    if (std::find(kKnown.begin(), kKnown.end(), key) == kKnown.end()) {
      list.error(key, "is no key that is read", "check the spelling, or remove it");
    }
  }
  lintDestination(*preferences, list);
  lintSchedule(*preferences, list);
}

}  // namespace halyard::hostkit

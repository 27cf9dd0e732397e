// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/settings.h"

#include <algorithm>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/property_file.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/service_links.h"
#include "helmsman/settings/services.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

constexpr int kDaysToRetain = 30;
constexpr int kMinutesAfterMidnight = 2 * 60;

// True when the file is there afterwards.
bool provideFile(const char* folder, const char* path, const PropertyDictionary& content) {
  if (host::exists(path)) return true;
  std::string problem;
  if (!host::isAbsent(path)) {
    printError(std::string(path) + " cannot be looked at");
    return false;
  }
  if (provideFolder(std::string(folder), problem) == FolderOutcome::failed) {
    printError(problem);
    return false;
  }
  if (!writePropertyFile(path, content)) {
    printError(std::string(path) + " could not be written");
    return false;
  }
  printNote(std::string("wrote ") + path);
  return true;
}

}  // namespace

PropertyDictionary defaultServicePreferences(const std::vector<std::string>& installedNames) {
  PropertyDictionary services;
  for (const std::string_view name : kKnownServices) {
    const bool installed =
        std::find(installedNames.begin(), installedNames.end(), name) != installedNames.end();
    services.set(std::string(name), installed ? 1 : 0);
  }
  PropertyDictionary preferences;
  preferences.set(keys::kServices, std::move(services));
  return preferences;
}

PropertyDictionary defaultEnginePreferences() {
  PropertyDictionary preferences;
  preferences.set(keys::kAutoBackup, 0);
  preferences.set(keys::kDay, "Sunday");
  preferences.set(keys::kPeriod, "Daily");
  preferences.set(keys::kDaysToRetain, kDaysToRetain);
  preferences.set(keys::kTime, kMinutesAfterMidnight);
  preferences.set(keys::kWeek, 1);
  return preferences;
}

int repairSettings() {
  bool linked = true;
  if (host::isAbsent(paths::kPreferenceFile) && host::isDirectory(kServiceFolder)) {
    std::string problem;
    linked =
        provideFolder(std::string(paths::kConfigurationFolder), problem) != FolderOutcome::failed &&
        placeFirstLinks();
  }
  std::vector<std::string> names;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    names.push_back(descriptor.serviceName());
  }
  const bool services = provideFile(paths::kConfigurationFolder, paths::kPreferenceFile,
                                    defaultServicePreferences(names));
  const bool engine =
      provideFile(kPreferenceFolder, paths::kEnginePreferenceFile, defaultEnginePreferences());
  return linked && services && engine ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/enable.h"

#include <algorithm>
#include <optional>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/property_file.h"
#include "helmsman/settings/service_links.h"
#include "helmsman/settings/services.h"
#include "helmsman/settings/settings.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/preference_keys.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

bool hasDescriptor(const std::string& service) {
  if (isShipped(service)) return true;
  const auto descriptors = installedDescriptors();
  return std::any_of(
      descriptors.begin(), descriptors.end(),
      [&](const InstalledDescriptor& descriptor) { return descriptor.serviceName() == service; });
}

// The keys that are there, and the seven, the shipped and the installed ones that may be added.
PropertyDictionary namesToChooseFrom(const PropertyDictionary& services) {
  PropertyDictionary names = services;
  for (const std::string_view name : kKnownServices) {
    if (names.find(name) == nullptr) names.set(std::string(name), 0);
  }
  for (const ShippedDescriptor& shipped : shippedDescriptors()) {
    if (names.find(shipped.service) == nullptr) names.set(shipped.service, 0);
  }
  for (const std::string& name : servicesWithoutKey()) {
    if (names.find(name) == nullptr) names.set(name, 0);
  }
  return names;
}

// False when the switch cannot be thrown for this service.
bool canSwitch(const std::string& service, ServiceSwitch position) {
  if (position == ServiceSwitch::on && !hasDescriptor(service)) {
    printError(service + ": no descriptor with this ServiceName is installed in " +
               paths::kConfigurationFolder + " or " + kServiceFolder);
    return false;
  }
  // The flag of any other is not looked at, but its key lets it be restored.
  if (position == ServiceSwitch::off && !isKnownService(service) && !isShipped(service)) {
    printError(service +
               ": every backup takes it, whatever its flag says; remove its descriptor instead");
    return false;
  }
  return true;
}

// Moves the links of the services; those whose link moved have changed.
bool moveLinks(const std::vector<std::string>& services, ServiceSwitch position,
               std::vector<std::string>& changed) {
  for (const std::string& service : services) {
    const LinkChange change =
        position == ServiceSwitch::on ? placeLinks(service) : removeLinks(service);
    if (!change.problem.empty()) {
      printError(change.problem);
      return false;
    }
    const bool told = std::find(changed.begin(), changed.end(), service) != changed.end();
    if (change.changed && !told) changed.push_back(service);
  }
  return true;
}

// The services that were meant; absent, with each reason told, when any cannot be switched.
std::optional<std::vector<std::string>> chosenServices(const std::vector<std::string>& names,
                                                       const PropertyDictionary& choice,
                                                       ServiceSwitch position) {
  std::vector<std::string> services;
  bool understood = true;
  for (const std::string& typed : names) {
    std::string problem;
    const auto service = completeServiceName(choice, typed, problem);
    if (!service) printError(problem);
    if (service && canSwitch(*service, position)) {
      services.push_back(*service);
    } else {
      understood = false;
    }
  }
  if (!understood) return std::nullopt;
  return services;
}

}  // namespace

int switchServices(const std::vector<std::string>& names, ServiceSwitch position) {
  if (!host::exists(paths::kSetupMarker)) {
    printWarning("this host is not set up yet (see: helmsman setup)");
  }
  if (repairSettings() != kSuccess) return kFailure;
  std::string problem;
  auto preferences = readPropertyFile(paths::kPreferenceFile, problem);
  if (!preferences) {
    printError(problem);
    return kFailure;
  }
  const PropertyDictionary* present = preferences->dictionary(keys::kServices);
  PropertyDictionary flags = present == nullptr ? PropertyDictionary{} : *present;
  const auto services = chosenServices(names, namesToChooseFrom(flags), position);
  if (!services) return kFailure;

  const int value = position == ServiceSwitch::on ? 1 : 0;
  std::vector<std::string> changed;
  for (const std::string& service : *services) {
    const PropertyValue* flag = flags.find(service);
    if (flag == nullptr || flag->integerValue() != value) changed.push_back(service);
    flags.set(service, value);
  }
  const bool flagsChanged = !changed.empty();
  // At every instant a service whose flag is on has its descriptor.
  if (position == ServiceSwitch::on && !moveLinks(*services, position, changed)) return kFailure;
  preferences->set(keys::kServices, std::move(flags));
  if (flagsChanged && !writePropertyFile(paths::kPreferenceFile, *preferences)) {
    printError(std::string(paths::kPreferenceFile) + " could not be written");
    return kFailure;
  }
  if (position == ServiceSwitch::off && !moveLinks(*services, position, changed)) return kFailure;

  const char* word = position == ServiceSwitch::on ? "on" : "off";
  if (changed.empty()) printNote(std::string("nothing to do: already ") + word);
  for (const std::string& service : changed) printNote(service + " is " + word + " now");
  return kSuccess;
}

}  // namespace halyard::hostkit

#include "helmsman/settings/enable.h"

#include <algorithm>
#include <optional>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/property_file.h"
#include "helmsman/settings/services.h"
#include "helmsman/settings/settings.h"

namespace halyard::hostkit {

namespace {

bool hasDescriptor(const std::string& service) {
  const auto descriptors = installedDescriptors();
  return std::any_of(
      descriptors.begin(), descriptors.end(),
      [&](const InstalledDescriptor& descriptor) { return descriptor.serviceName() == service; });
}

// The keys that are there and the seven that may be added.
PropertyDictionary namesToChooseFrom(const PropertyDictionary& services) {
  PropertyDictionary names = services;
  for (const std::string_view name : kKnownServices) {
    if (names.find(name) == nullptr) names.set(std::string(name), 0);
  }
  return names;
}

// False when the switch cannot be thrown for this service.
bool canSwitch(const std::string& service, ServiceSwitch position) {
  if (position == ServiceSwitch::on && !hasDescriptor(service)) {
    printError(service + ": no descriptor with this ServiceName is installed in " + kConfigFolder);
    return false;
  }
  if (!isKnownService(service)) {
    printError(service +
               ": every backup takes it, whatever its flag says; remove its descriptor instead");
    return false;
  }
  return true;
}

}  // namespace

int switchServices(const std::vector<std::string>& names, ServiceSwitch position) {
  if (repairSettings() != kSuccess) return kFailure;
  std::string problem;
  auto preferences = readPropertyFile(kPreferenceFile, problem);
  if (!preferences) {
    printError(problem);
    return kFailure;
  }
  const PropertyDictionary* present = preferences->dictionary("services");
  PropertyDictionary services = present == nullptr ? PropertyDictionary{} : *present;

  const int value = position == ServiceSwitch::on ? 1 : 0;
  const PropertyDictionary choice = namesToChooseFrom(services);
  std::vector<std::string> changed;
  bool understood = true;
  for (const std::string& typed : names) {
    const auto service = completeServiceName(choice, typed, problem);
    if (!service) printError(problem);
    if (!service || !canSwitch(*service, position)) {
      understood = false;
      continue;
    }
    const PropertyValue* flag = services.find(*service);
    if (flag == nullptr || flag->integerValue() != value) changed.push_back(*service);
    services.set(*service, value);
  }
  if (!understood) return kFailure;

  const char* word = position == ServiceSwitch::on ? "on" : "off";
  if (changed.empty()) {
    printNote(std::string("nothing to do: already ") + word);
    return kSuccess;
  }
  preferences->set("services", std::move(services));
  if (!writePropertyFile(kPreferenceFile, *preferences)) {
    printError(std::string(kPreferenceFile) + " could not be written");
    return kFailure;
  }
  for (const std::string& service : changed) printNote(service + " is " + word + " now");
  return kSuccess;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/expected_services.h"

#include <algorithm>
#include <utility>

namespace halyard::hostkit {

ExpectedServices expectedServices() {
  const PropertyDictionary preferences = servicePreferences();
  ExpectedServices expected;
  for (InstalledDescriptor& descriptor : installedDescriptors()) {
    if (!descriptor.readable || descriptor.serviceName().empty()) {
      expected.problems.push_back(
          descriptor.path +
          (descriptor.readable ? " names no service" : " is no descriptor that can be read") +
          "; mend it or move it away");
    } else if (isBackedUp(preferences, descriptor.serviceName())) {
      expected.descriptors.push_back(std::move(descriptor));
    }
  }
  for (const auto& preference : preferences) {
    const std::string& name = preference.first;
    const bool described =
        std::ranges::any_of(expected.descriptors, [&name](const InstalledDescriptor& descriptor) {
          return descriptor.serviceName() == name;
        });
    if (preference.second.integerValue() != 0 && !described) expected.undescribed.push_back(name);
  }
  return expected;
}

std::string undescribedText(const std::string& service) {
  return "it is switched on and has no descriptor (see: helmsman disable " + service + ")";
}

}  // namespace halyard::hostkit

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
  for (const auto& [name, flag] : preferences) {
    const bool described =
        std::ranges::any_of(expected.descriptors, [&name](const InstalledDescriptor& descriptor) {
          return descriptor.serviceName() == name;
        });
    if (flag.integerValue() == 0 || described) continue;
    expected.problems.push_back(name + " is switched on and has no descriptor (see: helmsman " +
                                "disable " + name + ")");
  }
  return expected;
}

}  // namespace halyard::hostkit

// What a backup has to hold to be good.
#pragma once

#include <string>
#include <vector>

#include "helmsman/settings/services.h"

namespace halyard::hostkit {

struct ExpectedServices {
  std::vector<InstalledDescriptor> descriptors;  ///< That the program will process, in its order.
  std::vector<std::string> problems;  ///< What is switched on and cannot be in the backup.
};

/// By the descriptors and preferences as they are now. A service that is switched on without a
/// descriptor, and a descriptor that cannot be read or names no service, are problems: the program
/// passes over them in silence.
ExpectedServices expectedServices();

}  // namespace halyard::hostkit

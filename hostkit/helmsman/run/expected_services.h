// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a backup has to hold to be good.
#pragma once

#include <string>
#include <vector>

#include "helmsman/settings/services.h"

namespace halyard::hostkit {

struct ExpectedServices {
  std::vector<InstalledDescriptor> descriptors;  ///< That the program will process, in its order.
  std::vector<std::string> undescribed;  ///< Services that are switched on without a descriptor.
  std::vector<std::string> problems;     ///< Descriptors that the program passes over.
};

/// By the descriptors and preferences as they are now. The program passes over a service that is
/// switched on without a descriptor, and over a descriptor that cannot be read or names no service,
/// in silence.
ExpectedServices expectedServices();

/// What is wrong with one of `undescribed`, and the command that mends it.
std::string undescribedText(const std::string& service);

}  // namespace halyard::hostkit

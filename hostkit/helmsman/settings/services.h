// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The services of this host: what the preferences say of them and which descriptors are installed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_list.h"
#include "product/service_names.h"

namespace halyard::hostkit {

/// A file of the configuration folder that the program takes for a descriptor.
struct InstalledDescriptor {
  std::string fileName;
  std::string path;
  bool readable = false;  ///< A property list with a dictionary.
  PropertyDictionary content;

  /// ServiceName, or empty.
  std::string serviceName() const;
  /// The data files, then the configuration files, as they are copied.
  std::vector<std::string> files() const;
  /// BackupLog, or empty.
  std::string backupLog() const;
};

/// In the order in which the program takes them.
std::vector<InstalledDescriptor> installedDescriptors();

/// The "services" dictionary of the preference file; empty when there is none.
PropertyDictionary servicePreferences();

/// Installed services that the preferences have no key for: they are backed up, and cannot be
/// restored, browsed or verified.
std::vector<std::string> servicesWithoutKey();

/// Finds a service by what an administrator typed: its exact key in the preferences, else its plain
/// word (see servers.h), else the one key that differs in letter case only or begins with the text
/// in any case. Absent, with the reason, when no key or more than one fits.
std::optional<std::string> completeServiceName(const PropertyDictionary& services,
                                               std::string_view typed, std::string& problem);

/// The descriptors that a command for one service acts on: those whose file name holds the name.
std::vector<InstalledDescriptor> descriptorsOfService(std::string_view service);

/// The files that those descriptors list, each once.
std::vector<std::string> filesOfService(std::string_view service);

}  // namespace halyard::hostkit

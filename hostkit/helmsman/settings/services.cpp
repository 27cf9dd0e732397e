// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/services.h"

#include <algorithm>

#include "base/text.h"
#include "helmsman/settings/servers.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/service_descriptor.h"

namespace halyard::hostkit {

std::string InstalledDescriptor::serviceName() const {
  return content.text(descriptor_keys::kServiceName).value_or("");
}

std::vector<std::string> InstalledDescriptor::files() const {
  std::vector<std::string> all =
      content.texts(descriptor_keys::kDataFiles).value_or(std::vector<std::string>{});
  for (std::string& file :
       content.texts(descriptor_keys::kConfigurationFiles).value_or(std::vector<std::string>{})) {
    all.push_back(std::move(file));
  }
  return all;
}

std::string InstalledDescriptor::backupLog() const {
  return content.text(descriptor_keys::kBackupLog).value_or("");
}

std::vector<InstalledDescriptor> installedDescriptors() {
  std::vector<InstalledDescriptor> descriptors;
  scanServiceDescriptors({.taken = [&descriptors](const std::string& path) {
    // A link that leads nowhere was a service once; it must not go unnoticed.
    if (!host::exists(path) && !host::isSymbolicLink(path)) return;
    InstalledDescriptor descriptor;
    descriptor.fileName = lastPathComponent(path);
    descriptor.path = path;
    if (auto content = host::readDictionary(path)) {
      descriptor.readable = true;
      descriptor.content = std::move(*content);
    }
    descriptors.push_back(std::move(descriptor));
  }});
  return descriptors;
}

PropertyDictionary servicePreferences() {
  const auto preferences = host::readDictionary(paths::kPreferenceFile);
  if (!preferences) return {};
  const PropertyDictionary* services = preferences->dictionary(preference_keys::kServices);
  return services == nullptr ? PropertyDictionary{} : *services;
}

std::vector<std::string> servicesWithoutKey() {
  const PropertyDictionary services = servicePreferences();
  std::vector<std::string> names;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    const std::string name = descriptor.serviceName();
    if (!name.empty() && services.find(name) == nullptr) names.push_back(name);
  }
  return names;
}

std::optional<std::string> completeServiceName(const PropertyDictionary& services,
                                               std::string_view typed, std::string& problem) {
  if (const auto meant = serviceOfWord(typed); meant && services.find(*meant) != nullptr) {
    // A key that is spelt like the word comes first.
    return std::string(services.find(typed) == nullptr ? *meant : typed);
  }
  std::vector<std::string> fitting;
  std::string known;
  for (const auto& [key, value] : services) {
    if (key == typed) return key;
    known += (known.empty() ? "" : ", ") + key;
    if (const auto word = wordOfService(key); !word.empty()) known.append(" (").append(word) += ")";
    if (!typed.empty() && key.size() >= typed.size() &&
        equalsIgnoringCase(std::string_view(key).substr(0, typed.size()), typed)) {
      fitting.push_back(key);
    }
  }
  const auto whole = std::find_if(fitting.begin(), fitting.end(), [typed](const std::string& key) {
    return key.size() == typed.size();
  });
  if (whole != fitting.end()) return *whole;
  if (fitting.size() == 1) return fitting.front();

  const std::string quoted = "'" + std::string(typed) + "'";
  const std::vector<std::string> others = servicesWithoutKey();
  if (fitting.empty() && std::find(others.begin(), others.end(), typed) != others.end()) {
    problem = std::string(typed) + " has a descriptor, and the preferences do not know it yet " +
              "(see: helmsman enable " + std::string(typed) + ")";
  } else if (fitting.empty()) {
    problem = "there is no service " + quoted +
              (known.empty() ? "; the preferences name none (see: helmsman setup)"
                             : "; there are: " + known);
  } else {
    problem = quoted + " can be any of:";
    for (const std::string& key : fitting) problem += " " + key;
  }
  return std::nullopt;
}

std::vector<InstalledDescriptor> descriptorsOfService(std::string_view service) {
  std::vector<InstalledDescriptor> descriptors;
  for (InstalledDescriptor& descriptor : installedDescriptors()) {
    if (descriptor.fileName.find(service) != std::string::npos) {
      descriptors.push_back(std::move(descriptor));
    }
  }
  return descriptors;
}

std::vector<std::string> filesOfService(std::string_view service) {
  std::vector<std::string> files;
  for (const InstalledDescriptor& descriptor : descriptorsOfService(service)) {
    for (std::string& file : descriptor.files()) {
      if (std::find(files.begin(), files.end(), file) == files.end()) {
        files.push_back(std::move(file));
      }
    }
  }
  return files;
}

}  // namespace halyard::hostkit

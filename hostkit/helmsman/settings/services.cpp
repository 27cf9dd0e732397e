#include "helmsman/settings/services.h"

#include <algorithm>

#include "base/text.h"
#include "common/paths.h"
#include "host/files/files.h"
#include "host/files/property_file.h"

namespace halyard::hostkit {

bool isKnownService(std::string_view name) {
  return std::find(kKnownServices.begin(), kKnownServices.end(), name) != kKnownServices.end();
}

std::string InstalledDescriptor::serviceName() const {
  return content.text("ServiceName").value_or("");
}

std::vector<std::string> InstalledDescriptor::files() const {
  std::vector<std::string> all = content.texts("DataFiles").value_or(std::vector<std::string>{});
  for (std::string& file :
       content.texts("ConfigurationFiles").value_or(std::vector<std::string>{})) {
    all.push_back(std::move(file));
  }
  return all;
}

bool isTakenAsDescriptor(std::string_view fileName, bool executable) {
  if (characterCount(fileName) < characterCount(kPreferenceFileName)) return !executable;
  return !fileName.starts_with(kPreferenceFileName);
}

std::vector<InstalledDescriptor> installedDescriptors() {
  std::vector<InstalledDescriptor> descriptors;
  for (const std::string& name : host::listDirectory(kConfigFolder)) {
    const std::string path = joinPath(kConfigFolder, name);
    if (!isTakenAsDescriptor(name, host::isExecutableFile(path)) || !host::exists(path)) continue;
    InstalledDescriptor descriptor;
    descriptor.fileName = name;
    descriptor.path = path;
    if (auto content = host::readDictionary(path)) {
      descriptor.readable = true;
      descriptor.content = std::move(*content);
    }
    descriptors.push_back(std::move(descriptor));
  }
  return descriptors;
}

PropertyDictionary servicePreferences() {
  const auto preferences = host::readDictionary(kPreferenceFile);
  if (!preferences) return {};
  const PropertyDictionary* services = preferences->dictionary("services");
  return services == nullptr ? PropertyDictionary{} : *services;
}

bool isBackedUp(const PropertyDictionary& services, std::string_view serviceName) {
  if (!isKnownService(serviceName)) return true;
  const PropertyValue* flag = services.find(serviceName);
  return flag != nullptr && flag->integerValue() != 0;
}

std::optional<std::string> completeServiceName(const PropertyDictionary& services,
                                               std::string_view typed, std::string& problem) {
  std::vector<std::string> fitting;
  std::string known;
  for (const auto& [key, value] : services) {
    if (key == typed) return key;
    known += (known.empty() ? "" : ", ") + key;
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
  if (fitting.empty()) {
    problem = "there is no service " + quoted +
              (known.empty() ? "; the preferences name none" : "; there are: " + known);
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

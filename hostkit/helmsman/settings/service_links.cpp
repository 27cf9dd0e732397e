// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/service_links.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "helmsman/settings/services.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/files/sync.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

bool hasInstalledDescriptor(std::string_view service) {
  const auto installed = installedDescriptors();
  return std::any_of(installed.begin(), installed.end(), [service](const auto& descriptor) {
    return descriptor.serviceName() == service;
  });
}

// Empty, or why the link could not be made. One of this name that leads nowhere gives way.
std::string link(const ShippedDescriptor& shipped) {
  const std::string target = joinPath(kServiceFolder, shipped.fileName);
  const std::string path = joinPath(paths::kConfigurationFolder, shipped.fileName);
  if (host::isSymbolicLink(path) && host::isAbsent(path)) (void)::unlink(path.c_str());
  if (::symlink(target.c_str(), path.c_str()) == 0) return {};
  return path + ": " + errnoText(errno);
}

LinkChange settled(LinkChange change) {
  if (change.changed && change.problem.empty() &&
      !host::syncFileSystem(paths::kConfigurationFolder)) {
    change.problem = std::string(paths::kConfigurationFolder) + " could not be written to the disk";
  }
  return change;
}

bool placed(std::string_view service) {
  const LinkChange change = placeLinks(service);
  if (!change.problem.empty()) printError(change.problem);
  if (change.changed) printNote("linked the descriptor of " + std::string(service));
  return change.problem.empty();
}

}  // namespace

std::vector<ShippedDescriptor> shippedDescriptors() {
  std::vector<ShippedDescriptor> shipped;
  for (const std::string& name : host::listDirectory(kServiceFolder)) {
    if (!name.ends_with(".plist")) continue;
    const auto content = host::readDictionary(joinPath(kServiceFolder, name));
    const std::string service =
        content ? content->text(descriptor_keys::kServiceName).value_or("") : "";
    if (!service.empty()) shipped.push_back({name, service});
  }
  return shipped;
}

bool isShipped(std::string_view service) {
  const auto shipped = shippedDescriptors();
  return std::any_of(shipped.begin(), shipped.end(),
                     [service](const auto& one) { return one.service == service; });
}

bool leadsToShipped(const std::string& path) {
  const auto real = host::realPath(path);
  return real && parentPath(*real) == host::realPath(kServiceFolder).value_or(kServiceFolder);
}

LinkChange placeLinks(std::string_view service) {
  LinkChange change;
  if (hasInstalledDescriptor(service)) return change;
  for (const ShippedDescriptor& shipped : shippedDescriptors()) {
    if (shipped.service != service) continue;
    change.problem = link(shipped);
    change.changed = change.problem.empty();
    break;  // One is enough: a second descriptor would run the service twice.
  }
  return settled(std::move(change));
}

LinkChange removeLinks(std::string_view service) {
  LinkChange change;
  for (const ShippedDescriptor& shipped : shippedDescriptors()) {
    const std::string path = joinPath(paths::kConfigurationFolder, shipped.fileName);
    if (shipped.service != service || !host::isSymbolicLink(path) ||
        host::realPath(path) != host::realPath(joinPath(kServiceFolder, shipped.fileName))) {
      continue;
    }
    if (::unlink(path.c_str()) != 0) {
      change.problem = path + ": " + errnoText(errno);
      return change;
    }
    change.changed = true;
  }
  return settled(std::move(change));
}

bool placeLinksOfServicesThatAreOn() {
  bool complete = true;
  for (const auto& [service, flag] : servicePreferences()) {
    if (flag.integerValue() != 0) complete = placed(service) && complete;
  }
  return complete;
}

bool placeFirstLinks() {
  if (!installedDescriptors().empty()) return true;
  bool complete = true;
  for (const ShippedDescriptor& shipped : shippedDescriptors()) {
    complete = placed(shipped.service) && complete;
  }
  return complete;
}

}  // namespace halyard::hostkit

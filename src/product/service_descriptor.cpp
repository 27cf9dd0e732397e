// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/service_descriptor.h"

#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/paths.h"

namespace halyard {

namespace {

bool isShort(std::string_view name) {
  static const std::size_t kPreferenceNameLength = characterCount(paths::kPreferenceFileName);
  return characterCount(name) < kPreferenceNameLength;
}

/// Whether the entry may be a descriptor; tells the visitor what it sees on the way.
bool takes(const std::string& name, const std::string& path, const DescriptorVisitor& visitor) {
  const bool shortName = isShort(name);
  if (shortName && visitor.shortName) visitor.shortName(name);
  const bool taken = isTakenAsDescriptor(name, shortName && host::isExecutableFile(path));
  if (taken && !shortName && visitor.longName) visitor.longName(name);
  return taken;
}

}  // namespace

ServiceDescriptor ServiceDescriptor::read(const std::string& path) {
  auto keys = host::readDictionary(path);
  return keys ? ServiceDescriptor(std::move(*keys)) : ServiceDescriptor();
}

std::vector<std::string> ServiceDescriptor::list(std::string_view key) const {
  return keys_.texts(key).value_or(std::vector<std::string>());
}

MaybeString ServiceDescriptor::entry(std::string_view key, std::string_view entry) const {
  const PropertyDictionary* const actions = keys_.dictionary(key);
  return actions == nullptr ? std::nullopt : actions->text(entry);
}

bool isTakenAsDescriptor(std::string_view name, bool executable) {
  if (isShort(name)) return !executable;  // a plug-in may live beside its descriptor
  return !name.starts_with(paths::kPreferenceFileName);
}

void scanServiceDescriptors(const DescriptorVisitor& visitor) {
  for (const std::string& name : host::listDirectory(paths::kConfigurationFolder)) {
    if (visitor.entry) visitor.entry(name);
    const std::string path = joinPath(paths::kConfigurationFolder, name);
    if (takes(name, path, visitor) && visitor.taken) visitor.taken(path);
  }
}

FoundDescriptor findServiceDescriptor(const MaybeString& service) {
  FoundDescriptor found;
  if (!service) return found;
  for (const std::string& name : host::listDirectory(paths::kConfigurationFolder)) {
    if (name.find(*service) == std::string::npos) continue;
    found.path = joinPath(paths::kConfigurationFolder, name);
  }
  if (!found.path.empty()) found.descriptor = ServiceDescriptor::read(found.path);
  return found;
}

}  // namespace halyard

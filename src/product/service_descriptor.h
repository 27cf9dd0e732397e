// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Service descriptors: one property list a service in the configuration folder.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/property_list.h"
#include "base/text.h"
#include "product/descriptor_keys.h"

namespace halyard {

/// One descriptor. Every value may be absent; a value of the wrong type reads as absent, an array
/// entry that is no string is skipped.
class ServiceDescriptor {
 public:
  ServiceDescriptor() = default;  ///< Without any key.
  explicit ServiceDescriptor(PropertyDictionary keys) : keys_(std::move(keys)) {}

  /// The descriptor in a file; without any key when it is no dictionary or cannot be read.
  static ServiceDescriptor read(const std::string& path);

  MaybeString text(std::string_view key) const { return keys_.text(key); }
  /// The strings of an array; empty when absent.
  std::vector<std::string> list(std::string_view key) const;
  /// The text `entry` of the dictionary `key`.
  MaybeString entry(std::string_view key, std::string_view entry) const;

  MaybeString serviceName() const { return text(descriptor_keys::kServiceName); }
  /// The default action, used for backup and for restore.
  MaybeString defaultAction() const {
    return entry(descriptor_keys::kBackupActions, descriptor_keys::kDefault);
  }

 private:
  PropertyDictionary keys_;
};

/// What a scan tells its caller; every function may be empty.
struct DescriptorVisitor {
  std::function<void(const std::string& name)> entry{};      ///< Each entry, before it is judged.
  std::function<void(const std::string& name)> shortName{};  ///< A short one, before its test.
  std::function<void(const std::string& name)> longName{};   ///< A long one that is taken.
  std::function<void(const std::string& path)> taken{};      ///< Each taken entry, by its path.
};

/// Whether an entry of the configuration folder may be a descriptor: a name shorter than
/// "com.vantor.Halyard.plist" unless it is an executable file; one at least as long, executable or
/// not, unless it begins with that name.
bool isTakenAsDescriptor(std::string_view name, bool executable);

/// Walks the configuration folder in ascending name order and takes what may be a descriptor.
///
/// Nothing else is filtered: a taken entry need not exist any more, nor be a property list. The
/// folder is listed once; each entry is judged when its turn comes, so that a plug-in may change
/// the next one.
void scanServiceDescriptors(const DescriptorVisitor& visitor);

/// A descriptor found by service name.
struct FoundDescriptor {
  std::string path;  ///< Empty when no entry matches.
  ServiceDescriptor descriptor;
};

/// The last entry of the configuration folder whose name contains `service` (case-sensitive, the
/// preference file and executables included). Without a match the path is empty and no key is set.
FoundDescriptor findServiceDescriptor(const MaybeString& service);

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/descriptor_conflicts.h"

#include <algorithm>
#include <array>

#include "product/descriptor_keys.h"

namespace halyard::hostkit {

namespace {

std::string awayWith(const InstalledDescriptor& descriptor) {
  return "mv " + descriptor.path + " /root/";
}

void addLeftover(const InstalledDescriptor& descriptor,
                 std::vector<DescriptorConflict>& conflicts) {
  conflicts.push_back({descriptor.path, "",
                       "was left behind by a package or an editor, and is taken for a descriptor",
                       awayWith(descriptor)});
}

// What the two make of each other's service.
void addPair(const InstalledDescriptor& one, const InstalledDescriptor& other,
             std::vector<DescriptorConflict>& conflicts) {
  const std::string name = one.serviceName();
  if (name.empty() || one.fileName == other.fileName) return;
  const std::string quoted = "'" + name + "'";
  if (other.serviceName() == name) {
    if (one.fileName > other.fileName) return;  // Told once for the two.
    conflicts.push_back({one.path, descriptor_keys::kServiceName,
                         quoted + " is the name in " + other.fileName + " too", awayWith(other)});
  } else if (other.fileName.find(name) != std::string::npos) {
    conflicts.push_back({one.path, descriptor_keys::kServiceName,
                         quoted + " is part of the file name " + other.fileName +
                             ": a restore of this service restores that one too",
                         awayWith(other)});
  }
}

}  // namespace

bool isLeftoverName(std::string_view fileName) {
  static constexpr std::array<std::string_view, 4> kEnds = {"~", ".bak", ".orig", ".rej"};
  static constexpr std::array<std::string_view, 2> kPackageMarks = {".dpkg-", ".ucf-"};
  const std::size_t dot = fileName.rfind('.');
  const std::string_view extension =
      dot == std::string_view::npos ? std::string_view{} : fileName.substr(dot);
  return std::any_of(kEnds.begin(), kEnds.end(),
                     [&](std::string_view end) { return fileName.ends_with(end); }) ||
         std::any_of(kPackageMarks.begin(), kPackageMarks.end(),
                     [&](std::string_view mark) { return extension.starts_with(mark); });
}

std::vector<DescriptorConflict> descriptorConflicts(
    const std::vector<InstalledDescriptor>& descriptors) {
  std::vector<DescriptorConflict> conflicts;
  std::vector<const InstalledDescriptor*> meant;
  for (const InstalledDescriptor& descriptor : descriptors) {
    if (isLeftoverName(descriptor.fileName)) {
      addLeftover(descriptor, conflicts);
    } else {
      meant.push_back(&descriptor);
    }
  }
  for (const InstalledDescriptor* one : meant) {
    for (const InstalledDescriptor* other : meant) addPair(*one, *other, conflicts);
  }
  return conflicts;
}

std::vector<std::string> descriptorProblems() {
  std::vector<std::string> problems;
  for (const DescriptorConflict& conflict : descriptorConflicts(installedDescriptors())) {
    problems.push_back(conflict.path + ": " + conflict.problem + " (run: " + conflict.command +
                       ")");
  }
  return problems;
}

}  // namespace halyard::hostkit

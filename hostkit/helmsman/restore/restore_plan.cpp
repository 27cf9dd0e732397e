// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/restore_plan.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "base/text.h"
#include "common/sizes.h"
#include "common/tree_size.h"
#include "host/files/files.h"
#include "host/volumes/volume.h"
#include "product/descriptor_keys.h"

namespace halyard::hostkit {

namespace {

PlannedItem plannedItem(const std::string& path, bool configuration, const std::string& saved) {
  PlannedItem item;
  item.path = path;
  item.configuration = configuration;
  item.inSnapshot = !host::isAbsent(appendPath(saved, path));
  item.live = !host::isAbsent(path);
  item.previous = identityOf(asidePath(path)).isKnown();
  item.before = identityOf(path);
  if (item.inSnapshot) item.bytes = treeBytes(appendPath(saved, path));
  return item;
}

// The folder nearest to the path that is there already.
std::string standingFolder(std::string path) {
  while (path.size() > 1 && !host::isDirectory(path)) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return "/";
    path.resize(std::max<std::size_t>(slash, 1));
  }
  return path;
}

}  // namespace

std::vector<PlannedItem> planRestore(const std::vector<InstalledDescriptor>& descriptors,
                                     const Snapshot& snapshot) {
  std::vector<PlannedItem> plan;
  for (const InstalledDescriptor& descriptor : descriptors) {
    const std::string saved = joinPath(snapshot.metadataFolder, descriptor.serviceName());
    for (const char* key : {descriptor_keys::kConfigurationFiles, descriptor_keys::kDataFiles}) {
      const bool configuration = key == std::string_view(descriptor_keys::kConfigurationFiles);
      for (const std::string& path :
           descriptor.content.texts(key).value_or(std::vector<std::string>{})) {
        plan.push_back(plannedItem(path, configuration, saved));
      }
    }
  }
  return plan;
}

std::vector<std::string> roomProblems(const std::vector<PlannedItem>& plan) {
  struct Need {
    std::uint64_t bytes = 0;
    std::uint64_t free = 0;
  };
  std::map<std::string, Need> needs;
  for (const PlannedItem& item : plan) {
    if (!item.inSnapshot) continue;
    const auto volume = host::volumeOf(standingFolder(item.path));
    if (!volume) continue;
    Need& need = needs[volume->mountPoint];
    need.bytes += item.bytes;
    need.free = volume->freeBytes;
  }
  std::vector<std::string> problems;
  for (const auto& [mountPoint, need] : needs) {
    // The live items stay beside the restored ones, so nothing is freed.
    if (need.bytes <= need.free) continue;
    problems.push_back("the volume at " + mountPoint + " needs " + sizeText(need.bytes) +
                       " and has " + sizeText(need.free) + " free");
  }
  return problems;
}

std::vector<std::string> restoreProblems(const std::vector<PlannedItem>& plan) {
  std::vector<std::string> problems;
  for (const PlannedItem& item : plan) {
    if (!item.inSnapshot) continue;
    if (!host::exists(item.path)) {
      problems.push_back(item.path + " was not put back" +
                         (item.live ? "; the live one is " + asidePath(item.path) : ""));
    } else if (item.live && identityOf(item.path) == item.before) {
      problems.push_back(item.path + " was not replaced");
    }
  }
  return problems;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/backup_state.h"

#include "base/text.h"
#include "common/incomplete_mark.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/tree_size.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kSignatureLimit = std::size_t{64} << 10;

bool stands(const std::string& path) { return host::exists(path) || host::isSymbolicLink(path); }

std::string metadataFolderOf(const std::string& volumePath) {
  return appendPath(volumePath, paths::kMetadataFolder);
}

std::vector<std::string> servicesIn(const std::string& metadataFolder) {
  std::vector<std::string> services = host::listDirectory(metadataFolder);
  std::erase_if(services, [&](const std::string& name) {
    return !host::isRealDirectory(joinPath(metadataFolder, name));
  });
  return services;
}

}  // namespace

std::vector<std::string> backupProblems(const std::string& volumePath) {
  const std::string folder = metadataFolderOf(volumePath);
  if (!host::isRealDirectory(folder)) return {};
  std::vector<std::string> problems;
  if (!stands(joinPath(folder, paths::kSignatureName))) {
    problems.emplace_back("the backup of the services is not signed");
  }
  for (const std::string& service : servicesIn(folder)) {
    if (hostkit::incompleteReasons(folder, service)) problems.push_back(service + " is not whole");
  }
  return problems;
}

std::optional<std::string> lackOfService(const std::string& source, const std::string& volumePath,
                                         const std::string& service) {
  const auto live = hostkit::treeCount(joinPath(metadataFolderOf(source), service));
  const auto saved = hostkit::treeCount(joinPath(metadataFolderOf(volumePath), service));
  if (live == saved) return std::nullopt;
  return "the snapshot holds " + std::to_string(saved.items) + " of its " +
         std::to_string(live.items) + " items, " + hostkit::sizeText(saved.bytes) + " of " +
         hostkit::sizeText(live.bytes);
}

std::uint64_t markLackingServices(const std::string& source, const std::string& volumePath) {
  const std::string folder = metadataFolderOf(volumePath);
  if (!host::isRealDirectory(folder)) return 0;
  std::uint64_t made = 0;
  for (const std::string& service : servicesIn(metadataFolderOf(source))) {
    const auto lack = lackOfService(source, volumePath, service);
    if (!lack) continue;
    auto reasons = hostkit::incompleteReasons(folder, service).value_or(std::vector<std::string>());
    reasons.push_back(*lack);
    const std::string place = joinPath(folder, service);
    const std::uint64_t before = hostkit::treeCount(place).items;
    if (!hostkit::markIncomplete(folder, service, reasons)) {
      throw Failure(joinPath(place, paths::kIncompleteMark) + " could not be written");
    }
    made += hostkit::treeCount(place).items - before;
    hostkit::printWarning(service + ": " + *lack);
  }
  return made;
}

bool carriesUnfinishedBackup(const std::string& source, const std::string& volumePath) {
  const std::string copy = metadataFolderOf(volumePath);
  if (!host::isRealDirectory(copy)) return false;
  const auto signature = [](const std::string& folder) {
    return host::readFile(joinPath(folder, paths::kSignatureName), kSignatureLimit);
  };
  const auto copied = signature(copy);
  return !copied || copied != signature(metadataFolderOf(source));
}

bool carriesBackup(const std::string& volumePath) {
  const std::string folder = metadataFolderOf(volumePath);
  return host::isRealDirectory(folder) && stands(joinPath(folder, paths::kSignatureName));
}

}  // namespace halyard::snapwheel

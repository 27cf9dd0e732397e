// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "restore/service_files.h"

#include <cstddef>
#include <optional>

#include "frontend/run/output.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/tree/move_item.h"
#include "host/tree/tree_copy.h"
#include "host/volumes/mount_table.h"
#include "product/descriptor_keys.h"

namespace halyard {

namespace {

/// Live paths are absolute; anything else was never backed up and is only shown.
bool isLivePath(const std::string& entry) { return entry.starts_with('/'); }

/// Whether an older aside item was removed for it.
bool setAside(const std::string& live) {
  if (!host::exists(live)) return false;
  const std::string aside = live + ".previous";
  bool isOlderGone = false;
  if (host::exists(aside)) {
    debugLine("Removing item at path", aside);
    isOlderGone = host::removeItem(aside);  // When it stays, so does the live item: the move fails.
  }
  debugText("Move source := %s, asside to := %s\n", live.c_str(), aside.c_str());
  (void)host::moveItem(live, aside);
  return isOlderGone;
}

std::string folderOf(const std::string& live) {
  auto folder = pathComponents(live);
  if (!folder.empty() && folder.back() != "/") folder.pop_back();
  return joinComponents(folder);
}

void showCopied(const std::string& copy, const std::string& live) {
  debugLine("from", copy);
  debugText("to   := %s\n", folderOf(live).c_str());
}

void restoreConfigurationFile(const std::string& /*copy*/, const std::string& live) {
  (void)setAside(live);  // Kept: nothing is copied back here.
}

/// A link that only led into what was set aside is still there to be copied.
bool stillStands(const std::string& copy) {
  return host::exists(copy) || host::isSymbolicLink(copy);
}

/// A copy beside the live path that a power cut cannot harm.
std::optional<host::StagedCopy> stageSafely(const std::string& copy, const std::string& live) {
  auto staged = host::StagedCopy::stage(copy, live);
  if (staged && !host::syncFileSystem(folderOf(live))) return std::nullopt;
  return staged;
}

void restoreDataFile(const std::string& copy, const std::string& live) {
  auto staged = stageSafely(copy, live);
  const bool hasMoreRoom = setAside(live);
  // Kept: a copy that lay inside what was set aside, or inside the older aside item, is gone from
  // its path now, and nothing is put back.
  if (!stillStands(copy)) return;
  if (!staged && hasMoreRoom) staged = stageSafely(copy, live);
  if (staged) (void)staged->publish();
}

std::string copyPath(const std::string& root, const MaybeString& service, const std::string& live) {
  return joinPath(joinPath(root, service), live);
}

}  // namespace

std::vector<std::string> restoreServiceFiles(const std::string& metadataRoot,
                                             const MaybeString& service,
                                             const std::vector<std::string>& configurationFiles,
                                             const std::vector<std::string>& dataFiles,
                                             const ProgressLog& progress) {
  std::vector<std::string> restored;
  const auto restoreEach = [&](const std::vector<std::string>& files, const char* label,
                               void (*restoreFile)(const std::string&, const std::string&)) {
    for (std::size_t i = 0; i < files.size(); ++i) {
      const std::string copy = copyPath(metadataRoot, service, files[i]);
      debugText("%s %d, := %s\n\t%s\n", label, static_cast<int>(i), files[i].c_str(), copy.c_str());
      if (!host::exists(copy)) continue;
      debugLine("dest file", files[i]);
      if (isLivePath(files[i])) {
        restoreFile(copy, files[i]);
        restored.push_back(files[i]);
      }
      showCopied(copy, files[i]);
    }
  };
  progress.step(service, "Restoring configuration files...");
  restoreEach(configurationFiles, "tConfigurationFiles", restoreConfigurationFile);
  progress.step(service, "Configuration file restore done.");
  progress.step(service, "Restoring data files...");
  restoreEach(dataFiles, "tDataFiles", restoreDataFile);
  progress.step(service, "Data file restore done.");
  return restored;
}

std::vector<std::string> restoreServiceFiles(const std::string& metadataRoot,
                                             const ServiceDescriptor& descriptor,
                                             const ProgressLog& progress) {
  return restoreServiceFiles(metadataRoot, descriptor.serviceName(),
                             descriptor.list(descriptor_keys::kConfigurationFiles),
                             descriptor.list(descriptor_keys::kDataFiles), progress);
}

void syncRestored(const std::vector<std::string>& restored) {
  std::vector<std::string> volumes = {"/"};
  for (const std::string& live : restored) volumes.push_back(folderOf(live));
  // A restore executable writes where its server keeps its data, which it does not say.
  for (std::string& volume : host::writableLocalVolumes()) volumes.push_back(std::move(volume));
  (void)host::syncFileSystems(volumes);  // Kept: a failure does not change how a restore ends.
}

}  // namespace halyard

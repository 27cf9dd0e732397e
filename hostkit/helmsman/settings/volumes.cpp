// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/volumes.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "common/configuration.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/sizes.h"
#include "common/table.h"
#include "helmsman/settings/file_system_table.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/helmsman_configuration.h"
#include "helmsman/settings/local_volumes.h"
#include "helmsman/settings/services.h"
#include "product/paths.h"
#include "product/stored_snapshots.h"

namespace halyard::hostkit {

namespace {

bool isListed(const std::vector<std::string>& paths, const std::string& path) {
  return std::ranges::find(paths, path) != paths.end();
}

std::string withoutEndingSlash(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

bool isVolume(const std::string& path) {
  const auto isHere = [&path](const auto& volume) { return volume.mountPoint == path; };
  return std::ranges::any_of(ownVolumes(host::mountedVolumes()), isHere) ||
         std::ranges::any_of(listedVolumes(), isHere);
}

bool isListedByService(const std::string& path) {
  return std::ranges::any_of(installedDescriptors(), [&path](const InstalledDescriptor& installed) {
    return isListed(installed.files(), path);
  });
}

int leaveOut(const std::string& path, const HelmsmanConfiguration& configuration) {
  if (!path.starts_with('/') || path == "/") {
    printError("'" + path +
               "' cannot be left out: name the mount point of another volume than /, " +
               "or a listed file");
    return kUsageError;
  }
  if (isListed(configuration.leftOut, path)) {
    printNote("nothing to do: " + path + " is left out already");
    return kSuccess;
  }
  const bool isOneVolume = isVolume(path);
  if (isListed(configuration.included, path) &&
      !removeConfigurationLine(kHelmsmanConfiguration, kIncludeKey, path)) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return kFailure;
  }
  if (!isOneVolume && !isListedByService(path)) {
    printError(path +
               " is neither the mount point of a volume (see: helmsman volumes) nor listed " +
               "by a service, so nothing would be left out; a folder or file is kept out of " +
               "snapshots by a line in " + kExclusionFile);
    return kFailure;
  }
  if (!makeFolders(kNativePreferenceFolder, 0755) ||
      !addConfigurationLine(kHelmsmanConfiguration, kLeaveOutKey, path)) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return kFailure;
  }
  printNote(isOneVolume ? path + " is left out of backups from now on"
                        : path + " may be missing, or a link, from now on; what stands there is " +
                              "still backed up");
  return kSuccess;
}

bool isLackingAt(const std::string& path, const HelmsmanConfiguration& configuration) {
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  return std::ranges::any_of(localVolumes(session ? session->destination : "",
                                          configuration.leftOut, configuration.included),
                             [&path](const LocalVolume& local) {
                               return local.volume.mountPoint == path &&
                                      local.state == LocalVolume::State::notInSnapshot;
                             });
}

int include(const std::string& path, const HelmsmanConfiguration& configuration) {
  const bool isLeftOut = isListed(configuration.leftOut, path);
  if (!isLeftOut && !isLackingAt(path, configuration)) {
    printNote("nothing to do: " + path + " is not left out");
    return kSuccess;
  }
  if (isLeftOut && !removeConfigurationLine(kHelmsmanConfiguration, kLeaveOutKey, path)) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return kFailure;
  }
  HelmsmanConfiguration now = configuration;
  std::erase(now.leftOut, path);
  if (isLackingAt(path, now)) {
    if (!makeFolders(kNativePreferenceFolder, 0755) ||
        !addConfigurationLine(kHelmsmanConfiguration, kIncludeKey, path)) {
      printError(std::string(kHelmsmanConfiguration) + " could not be written");
      return kFailure;
    }
    printNote("snapshots hold " + path + " from now on");
    return kSuccess;
  }
  printNote(isVolume(path) || isListedByService(path)
                ? path + " is left out no more; a backup that does not hold it is not good"
                : path + " is left out no more; it is neither a volume nor listed by a service");
  return kSuccess;
}

// Absent for one that is not mounted.
std::optional<std::uint64_t> usedBytes(const LocalVolume& local) {
  if (local.volume.totalBytes == 0) return std::nullopt;
  return local.volume.totalBytes - local.volume.freeBytes;
}

void printVolumes(const std::vector<LocalVolume>& all, const std::vector<ListedLink>& links,
                  const std::vector<ListedOnUnmounted>& unmounted) {
  std::vector<std::vector<std::string>> rows = {{"MOUNTED", "DEVICE", "TYPE", "USED", "BACKUP"}};
  for (const LocalVolume& local : all) {
    rows.push_back({local.volume.mountPoint, local.volume.device, local.volume.type,
                    usedBytes(local) ? sizeText(*usedBytes(local)) : "-", stateText(local.state)});
  }
  (void)std::fputs(tableText(rows).c_str(), stdout);
  for (const LocalVolume& local : all) {
    if (isLacking(local)) printNote(lackText(local));
  }
  for (const ListedLink& link : links) printNote(link.service + ": " + lackText(link));
  for (const auto& listed : unmounted) printNote(listed.service + ": " + lackText(listed));
}

nlohmann::json volumesJson(const std::vector<LocalVolume>& all,
                           const std::vector<ListedLink>& links,
                           const std::vector<ListedOnUnmounted>& unmounted) {
  nlohmann::json document = {{"volumes", nlohmann::json::array()},
                             {"links", nlohmann::json::array()},
                             {"unmounted", nlohmann::json::array()}};
  for (const LocalVolume& local : all) {
    document["volumes"].push_back({{"mountPoint", local.volume.mountPoint},
                                   {"device", local.volume.device},
                                   {"type", local.volume.type},
                                   {"usedBytes", nullptr},
                                   {"state", stateText(local.state)}});
    if (const auto used = usedBytes(local)) document["volumes"].back()["usedBytes"] = *used;
  }
  for (const ListedLink& link : links) {
    document["links"].push_back(
        {{"service", link.service}, {"path", link.path}, {"target", link.target}});
  }
  for (const ListedOnUnmounted& listed : unmounted) {
    document["unmounted"].push_back(
        {{"service", listed.service}, {"path", listed.path}, {"mountPoint", listed.mountPoint}});
  }
  return document;
}

}  // namespace

int volumes(const VolumesArguments& arguments) {
  std::string problem;
  const auto configuration = helmsmanConfiguration(problem);
  if (!configuration) {
    printError(problem);
    return kUsageError;
  }
  using Action = VolumesArguments::Action;
  if (arguments.action != Action::show) {
    const std::string path = withoutEndingSlash(arguments.path);
    const int status = arguments.action == Action::leaveOut ? leaveOut(path, *configuration)
                                                            : include(path, *configuration);
    if (status != kSuccess || !arguments.json) return status;
    return volumes({Action::show, "", true});
  }
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  const auto all = localVolumes(session ? session->destination : "", configuration->leftOut,
                                configuration->included);
  const auto links = listedLinks(configuration->leftOut);
  const auto unmounted = listedOnUnmounted();
  if (arguments.json) {
    printJson(volumesJson(all, links, unmounted));
  } else {
    printVolumes(all, links, unmounted);
  }
  return finishOutput() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

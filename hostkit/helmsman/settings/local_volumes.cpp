#include "helmsman/settings/local_volumes.h"

#include <libmount.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/text.h"
#include "common/configuration.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/sizes.h"
#include "common/table.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/services.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/snapshot_engine.h"

namespace halyard::hostkit {

namespace {

using State = LocalVolume::State;

bool isListed(const std::vector<std::string>& paths, const std::string& path) {
  return std::ranges::find(paths, path) != paths.end();
}

bool isAtOrBelow(const std::string& path, const std::string& folder) {
  return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

class FileSystemTable {
 public:
  FileSystemTable() : table_(mnt_new_table_from_file("/etc/fstab"), &mnt_unref_table) {}
  bool mounts(const std::string& mountPoint) const {
    return table_ && mnt_table_find_target(table_.get(), mountPoint.c_str(), MNT_ITER_FORWARD);
  }

 private:
  std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table_;
};

bool isLocal(const Volume& volume) {
  return volume.device.starts_with("/dev/") || volume.type == "zfs";
}

// The service lists what the link leads to as well, or a folder around it.
bool isCovered(const std::string& target, const std::vector<std::string>& files) {
  return std::ranges::any_of(files, [&target](const std::string& file) {
    return !host::isSymbolicLink(file) && isAtOrBelow(target, host::realPath(file).value_or(file));
  });
}

std::string withoutEndingSlash(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

int leaveOut(const std::string& path, const HelmsmanConfiguration& configuration) {
  if (!path.starts_with('/') || path == "/") {
    printError("'" + path +
               "' cannot be left out: name the mount point of another volume than /, " +
               "or a listed file");
    return kFailure;
  }
  if (isListed(configuration.leftOut, path)) {
    printNote("nothing to do: " + path + " is left out already");
    return kSuccess;
  }
  if (!makeFolders(kNativePreferenceFolder, 0755) ||
      !addConfigurationLine(kHelmsmanConfiguration, kLeaveOutKey, path)) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return kFailure;
  }
  printNote(path + " is left out of backups from now on");
  return kSuccess;
}

int include(const std::string& path, const HelmsmanConfiguration& configuration) {
  if (!isListed(configuration.leftOut, path)) {
    printNote("nothing to do: " + path + " is not left out");
    return kSuccess;
  }
  if (!removeConfigurationLine(kHelmsmanConfiguration, kLeaveOutKey, path)) {
    printError(std::string(kHelmsmanConfiguration) + " could not be written");
    return kFailure;
  }
  printNote(path + " is left out no more; a backup that does not hold it is not good");
  return kSuccess;
}

void printVolumes(const std::vector<LocalVolume>& all, const std::vector<ListedLink>& links) {
  std::vector<std::vector<std::string>> rows = {{"MOUNTED", "DEVICE", "TYPE", "USED", "BACKUP"}};
  for (const LocalVolume& local : all) {
    rows.push_back({local.volume.mountPoint, local.volume.device, local.volume.type,
                    sizeText(local.volume.totalBytes - local.volume.freeBytes),
                    stateText(local.state)});
  }
  (void)std::fputs(tableText(rows).c_str(), stdout);
  for (const LocalVolume& local : all) {
    if (local.state == State::notInSnapshot) printNote(lackText(local));
  }
  for (const ListedLink& link : links) printNote(link.service + ": " + lackText(link));
}

nlohmann::json volumesJson(const std::vector<LocalVolume>& all,
                           const std::vector<ListedLink>& links) {
  nlohmann::json document = {{"volumes", nlohmann::json::array()},
                             {"links", nlohmann::json::array()}};
  for (const LocalVolume& local : all) {
    document["volumes"].push_back({{"mountPoint", local.volume.mountPoint},
                                   {"device", local.volume.device},
                                   {"type", local.volume.type},
                                   {"usedBytes", local.volume.totalBytes - local.volume.freeBytes},
                                   {"state", stateText(local.state)}});
  }
  for (const ListedLink& link : links) {
    document["links"].push_back(
        {{"service", link.service}, {"path", link.path}, {"target", link.target}});
  }
  return document;
}

}  // namespace

const char* stateText(State state) {
  switch (state) {
    case State::inSnapshot:
      return "in the snapshot";
    case State::leftOut:
      return "left out";
    case State::notInSnapshot:
      break;
  }
  return "not in the snapshot";
}

std::vector<LocalVolume> localVolumes(const std::string& destination,
                                      const std::vector<std::string>& leftOut) {
  const FileSystemTable table;
  const Result<Volume> holder = volumeOf(destination);
  std::vector<LocalVolume> local;
  for (Volume& volume : mountedVolumes()) {
    const bool isRoot = volume.mountPoint == "/";
    if (!isRoot && (!isLocal(volume) || !table.mounts(volume.mountPoint))) continue;
    if (!isRoot && holder && holder->mountPoint == volume.mountPoint) continue;
    const State state = isRoot                                 ? State::inSnapshot
                        : isListed(leftOut, volume.mountPoint) ? State::leftOut
                                                               : State::notInSnapshot;
    local.push_back({std::move(volume), state});
  }
  return local;
}

std::vector<ListedLink> listedLinks(const std::vector<std::string>& leftOut) {
  const PropertyDictionary preferences = servicePreferences();
  std::vector<ListedLink> links;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    const std::string service = descriptor.serviceName();
    if (service.empty() || !isBackedUp(preferences, service)) continue;
    const std::vector<std::string> files = descriptor.files();
    for (const std::string& file : files) {
      if (!host::isSymbolicLink(file) || isListed(leftOut, file)) continue;
      const auto target = host::realPath(file);
      if (target && !isCovered(*target, files)) links.push_back({service, file, *target});
    }
  }
  return links;
}

std::string lackText(const LocalVolume& volume) {
  return "the volume at " + volume.volume.mountPoint +
         " is not in the snapshot (see: helmsman volumes leave-out " + volume.volume.mountPoint +
         ")";
}

std::string lackText(const ListedLink& link) {
  return link.path +
         " is a link: the service's backup holds the link, not what it leads to; list " +
         link.target + " in its descriptor (or see: helmsman volumes leave-out " + link.path + ")";
}

int volumes(const VolumesArguments& arguments) {
  std::string problem;
  const auto configuration = helmsmanConfiguration(problem);
  if (!configuration) {
    printError(problem);
    return kUsageError;
  }
  const std::string path = withoutEndingSlash(arguments.path);
  if (arguments.action == VolumesArguments::Action::leaveOut) return leaveOut(path, *configuration);
  if (arguments.action == VolumesArguments::Action::include) return include(path, *configuration);
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  const auto all = localVolumes(session ? session->destination : "", configuration->leftOut);
  const auto links = listedLinks(configuration->leftOut);
  if (arguments.json) {
    printJson(volumesJson(all, links));
  } else {
    printVolumes(all, links);
  }
  return finishOutput() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/local_volumes.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "common/exclusions.h"
#include "common/machine.h"
#include "common/paths.h"
#include "helmsman/settings/destination.h"
#include "helmsman/settings/file_system_table.h"
#include "helmsman/settings/services.h"
#include "host/files/files.h"
#include "host/volumes/mount_table.h"

namespace halyard::hostkit {

namespace {

using State = LocalVolume::State;

bool isListed(const std::vector<std::string>& paths, const std::string& path) {
  return std::ranges::find(paths, path) != paths.end();
}

bool isAtOrBelow(const std::string& path, const std::string& folder) {
  return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

bool isAtOrBelowAsText(const std::string& path, const std::string& folder) {
  return folder == "/" || isAtOrBelow(path, folder);
}

// Images that nobody can write to hold nothing that is not elsewhere.
bool isImage(const host::Volume& volume) {
  constexpr std::array<std::string_view, 5> kKinds = {"squashfs", "erofs", "iso9660", "cramfs",
                                                      "romfs"};
  return std::ranges::find(kKinds, volume.type) != kKinds.end();
}

bool isLocal(const host::Volume& volume) {
  const bool hasDevice = volume.device.starts_with("/dev/") || volume.type == "zfs";
  return hasDevice && !isImage(volume) && host::isDirectory(volume.mountPoint);
}

// Whether a volume shows what another one shows as well, by the folders that are mounted of both.
bool isShownBy(const host::Volume& volume, const host::Volume& other) {
  return volume.number == other.number && !volume.root.empty() && !other.root.empty() &&
         isAtOrBelowAsText(volume.root, other.root);
}

// Where the backups are meant to go, wherever that is now.
bool isDestination(const ListedVolume& listed) {
  const std::string specification = destinationSpecification();
  return !specification.empty() &&
         (listed.source == specification || isAtOrBelow(specification, listed.mountPoint));
}

bool isMountedIn(const std::vector<host::Volume>& mounted, const ListedVolume& listed) {
  const std::string place = host::realPath(listed.mountPoint).value_or(listed.mountPoint);
  return std::ranges::find(mounted, place, &host::Volume::mountPoint) != mounted.end();
}

std::vector<ListedVolume> unmountedVolumes(const std::vector<host::Volume>& mounted) {
  if (!host::mounts()) return {};
  std::vector<ListedVolume> volumes = listedVolumes();
  std::erase_if(volumes, [&](const ListedVolume& listed) {
    return isMountedIn(mounted, listed) || isDestination(listed);
  });
  return volumes;
}

// The service lists what the link leads to as well, or a folder around it.
bool isCovered(const std::string& target, const std::vector<std::string>& files) {
  return std::ranges::any_of(files, [&target](const std::string& file) {
    return !host::isSymbolicLink(file) && isAtOrBelow(target, host::realPath(file).value_or(file));
  });
}

// What the services that are backed up list, where it leads in the end.
std::vector<std::string> filesOfServices() {
  const PropertyDictionary preferences = servicePreferences();
  std::vector<std::string> files;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    const std::string service = descriptor.serviceName();
    if (service.empty() || !isBackedUp(preferences, service)) continue;
    for (const std::string& file : descriptor.files()) {
      files.push_back(host::realPath(file).value_or(file));
    }
  }
  return files;
}

bool isInTable(const std::string& mountPoint) {
  return std::ranges::any_of(host::listedMounts(), [&](const host::ListedMount& row) {
    return host::realPath(row.mountPoint).value_or(row.mountPoint) == mountPoint;
  });
}

// By its place, or because a service lists something in it or around it.
bool holdsData(const std::string& mountPoint, const std::vector<std::string>& files) {
  constexpr std::array<const char*, 3> kDataFolders = {"/home", "/srv", "/var"};
  return std::ranges::any_of(kDataFolders,
                             [&](const char* folder) { return isAtOrBelow(mountPoint, folder); }) ||
         std::ranges::any_of(files, [&](const std::string& file) {
           return isAtOrBelow(file, mountPoint) || isAtOrBelow(mountPoint, file);
         });
}

}  // namespace

const char* stateText(State state) {
  switch (state) {
    case State::inSnapshot:
      return "in the snapshot";
    case State::leftOut:
      return "left out";
    case State::notMounted:
      return "not mounted";
    case State::notInSnapshot:
      break;
  }
  return "not in the snapshot";
}

std::vector<host::Volume> ownVolumes(std::vector<host::Volume> mounted) {
  std::erase_if(mounted, [](const host::Volume& volume) {
    return volume.mountPoint != "/" && !isLocal(volume);
  });
  std::vector<host::Volume> own;
  for (std::size_t index = 0; index < mounted.size(); ++index) {
    bool isShown = false;
    for (std::size_t other = 0; other < mounted.size(); ++other) {
      // Of two that show the same the first stays, and "/" before all.
      const bool comesFirst = mounted[index].root != mounted[other].root || other < index ||
                              mounted[other].mountPoint == "/";
      isShown =
          isShown || (other != index && comesFirst && isShownBy(mounted[index], mounted[other]));
    }
    if (!isShown || mounted[index].mountPoint == "/") own.push_back(mounted[index]);
  }
  return own;
}

std::vector<LocalVolume> localVolumes(const std::string& destination,
                                      const std::vector<std::string>& leftOut,
                                      const std::vector<std::string>& included) {
  const Exclusions exclusions = Exclusions::read(kExclusionFile).value_or(Exclusions());
  const auto isLeftOut = [&](const std::string& mountPoint) {
    return isListed(leftOut, mountPoint) || exclusions.matchAtOrAbove(mountPoint.substr(1));
  };
  const std::vector<std::string> files = filesOfServices();
  const auto isTaken = [&](const std::string& mountPoint) {
    return mountPoint == "/" || isListed(included, mountPoint) ||
           (isInTable(mountPoint) && holdsData(mountPoint, files));
  };
  const Result<host::Volume> holder = host::volumeOf(destination);
  const std::vector<host::Volume> mounted = host::mountedVolumes();
  std::vector<LocalVolume> local;
  for (host::Volume& volume : ownVolumes(mounted)) {
    const bool isRoot = volume.mountPoint == "/";
    const bool isOurs =
        holder && (holder->mountPoint == volume.mountPoint || isShownBy(volume, *holder));
    if (!isRoot && isOurs) continue;
    const bool isAway = !isRoot && isLeftOut(volume.mountPoint);
    const State state = isAway                       ? State::leftOut
                        : isTaken(volume.mountPoint) ? State::inSnapshot
                                                     : State::notInSnapshot;
    local.push_back({std::move(volume), state});
  }
  for (const ListedVolume& listed : unmountedVolumes(mounted)) {
    LocalVolume missing;
    missing.volume.mountPoint = listed.mountPoint;
    missing.volume.device = listed.source;
    missing.volume.type = listed.type;
    missing.state = isLeftOut(listed.mountPoint) ? State::leftOut : State::notMounted;
    local.push_back(std::move(missing));
  }
  return local;
}

std::vector<std::string> furtherVolumes(const std::vector<LocalVolume>& volumes) {
  std::vector<std::string> mountPoints;
  for (const LocalVolume& local : volumes) {
    const std::string& mountPoint = local.volume.mountPoint;
    if (local.state == State::inSnapshot && mountPoint != "/") mountPoints.push_back(mountPoint);
  }
  return mountPoints;
}

bool isLacking(const LocalVolume& volume) {
  return volume.state == State::notInSnapshot || volume.state == State::notMounted;
}

std::vector<ListedOnUnmounted> listedOnUnmounted() {
  const std::vector<ListedVolume> unmounted = unmountedVolumes(host::mountedVolumes());
  const PropertyDictionary preferences = servicePreferences();
  std::vector<ListedOnUnmounted> found;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    const std::string service = descriptor.serviceName();
    if (service.empty() || !isBackedUp(preferences, service)) continue;
    for (const std::string& file : descriptor.files()) {
      const std::string path = host::realPath(file).value_or(file);
      for (const ListedVolume& volume : unmounted) {
        if (isAtOrBelow(path, volume.mountPoint) || isAtOrBelow(volume.mountPoint, path)) {
          found.push_back({service, file, volume.mountPoint});
        }
      }
    }
  }
  return found;
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
  const std::string& place = volume.volume.mountPoint;
  return "the volume at " + place +
         (volume.state == State::notMounted ? " is not mounted, and what it holds is not in the "
                                              "snapshot"
                                            : " is not in the snapshot") +
         " (see: helmsman volumes leave-out " + shellWord(place) + ")";
}

std::string lackText(const ListedOnUnmounted& listed) {
  return "the volume at " + listed.mountPoint + " is not mounted, so what " + listed.path +
         " holds there is not saved; mount it";
}

std::string lackText(const ListedLink& link) {
  return link.path +
         " is a link: the service's backup holds the link, not what it leads to; list " +
         link.target + " in its descriptor (or see: helmsman volumes leave-out " +
         shellWord(link.path) + ")";
}

}  // namespace halyard::hostkit

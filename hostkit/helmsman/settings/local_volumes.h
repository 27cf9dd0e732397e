// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The local volumes of this host, and which of them a snapshot holds.
#pragma once

#include <string>
#include <vector>

#include "helmsman/settings/helmsman_configuration.h"
#include "host/volumes/volume.h"

namespace halyard::hostkit {

struct LocalVolume {
  enum class State {
    inSnapshot,
    notInSnapshot,
    notMounted,  ///< /etc/fstab lists it, and nobody can say what it holds.
    leftOut,     ///< Not in the snapshot, because an administrator says so.
  };
  host::Volume volume;
  State state = State::notInSnapshot;
};

const char* stateText(LocalVolume::State state);

/// Those of the mounted volumes that hold files of this host: "/" and what lies on its devices.
/// What is mounted a second time, in whole or in part, counts once, and not at all when it belongs
/// to "/"; single files and images that nobody can write to do not count.
std::vector<host::Volume> ownVolumes(std::vector<host::Volume> mounted);

/// "/", every file system on a device of this host that is mounted, and every one that /etc/fstab
/// wants mounted and that is not; without the one that holds `destination` (empty for none), or is
/// meant to by the preferences. A snapshot holds "/", the mounted ones that /etc/fstab lists and
/// that are at or below /home, /srv or /var, or hold what a service lists, and those that are
/// `included`. Device, type and sizes of one that is
/// not mounted are as the table has them, and 0.
std::vector<LocalVolume> localVolumes(const std::string& destination,
                                      const std::vector<std::string>& leftOut,
                                      const std::vector<std::string>& included);

/// The mount points of those that the engine is to take beside "/".
std::vector<std::string> furtherVolumes(const std::vector<LocalVolume>& volumes);

/// Whether the backup lacks it, unless an administrator says otherwise.
bool isLacking(const LocalVolume& volume);

/// A listed file that is a link to something else: its service's folder holds the link only.
struct ListedLink {
  std::string service;
  std::string path;
  std::string target;  ///< Where it leads in the end.
};

/// Of the services that are backed up; without links that lead nowhere or to what the service lists
/// as well, and without those that are left out.
std::vector<ListedLink> listedLinks(const std::vector<std::string>& leftOut);

/// A listed path that lies on, or around, a volume of /etc/fstab that is not mounted: what is there
/// now is not what the service means.
struct ListedOnUnmounted {
  std::string service;
  std::string path;
  std::string mountPoint;
};

/// Of the services that are backed up. That the volume is left out says nothing of the service.
std::vector<ListedOnUnmounted> listedOnUnmounted();

/// What the backup lacks by all this, and the one thing to do about it, a sentence each.
std::string lackText(const LocalVolume& volume);
std::string lackText(const ListedLink& link);
std::string lackText(const ListedOnUnmounted& listed);

}  // namespace halyard::hostkit

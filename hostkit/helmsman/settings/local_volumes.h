// The local volumes of this host, and which of them a snapshot holds.
#pragma once

#include <string>
#include <vector>

#include "common/volumes.h"
#include "helmsman/settings/helmsman_configuration.h"

namespace halyard::hostkit {

struct LocalVolume {
  enum class State {
    inSnapshot,
    notInSnapshot,
    leftOut,  ///< Not in the snapshot, because an administrator says so.
  };
  Volume volume;
  State state = State::notInSnapshot;
};

const char* stateText(LocalVolume::State state);

/// "/" and every file system on a device of this host that /etc/fstab mounts and that is mounted
/// now, without the one that holds `destination` (empty for none). A snapshot holds "/" alone.
std::vector<LocalVolume> localVolumes(const std::string& destination,
                                      const std::vector<std::string>& leftOut);

/// A listed file that is a link to something else: its service's folder holds the link only.
struct ListedLink {
  std::string service;
  std::string path;
  std::string target;  ///< Where it leads in the end.
};

/// Of the services that are backed up; without links that lead nowhere or to what the service lists
/// as well, and without those that are left out.
std::vector<ListedLink> listedLinks(const std::vector<std::string>& leftOut);

/// What the backup lacks by all this, and the one thing to do about it, a sentence each.
std::string lackText(const LocalVolume& volume);
std::string lackText(const ListedLink& link);

struct VolumesArguments {
  enum class Action {
    show,
    leaveOut,  ///< From now on,
    include,   ///< or no more.
  };
  Action action = Action::show;
  std::string path;  ///< Of what is left out or included.
  bool json = false;
};

/// "helmsman volumes": lists them, or changes what is left out. Returns the exit status.
int volumes(const VolumesArguments& arguments);

}  // namespace halyard::hostkit

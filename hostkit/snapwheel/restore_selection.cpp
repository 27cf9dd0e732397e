// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_selection.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/volume_names.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/system_call.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

constexpr char kNoSuchVolume[] = "is a volume that the snapshot does not hold";

/// Without blanks: no "//", no "." and no "/" at either end.
std::string plainPath(const std::string& hostPath) {
  if (!hostPath.starts_with('/')) {
    throw Failure(hostPath + " is no absolute path", hostkit::kUsageError);
  }
  std::string plain;
  for (const std::string_view name : splitAt(hostPath, '/')) {
    if (name.empty() || name == ".") continue;
    if (name == "..") throw Failure(hostPath + ": name it without \"..\"", hostkit::kUsageError);
    plain += (plain.empty() ? "" : "/") + std::string(name);
  }
  return plain;
}

bool isBelow(const std::string& path, const std::string& folder) {
  return folder.empty() || path == folder || path.starts_with(folder + "/");
}

std::string below(const std::string& path, const std::string& folder) {
  if (folder.empty()) return path;
  return path == folder ? std::string() : path.substr(folder.size() + 1);
}

/// The volume that a path belongs to: the innermost one.
const SnapshotVolume* volumeOfPath(const std::vector<SnapshotVolume>& volumes,
                                   const std::string& path) {
  const SnapshotVolume* found = nullptr;
  for (const SnapshotVolume& volume : volumes) {
    const std::string mountPoint = volume.mountPoint.substr(1);
    if (!isBelow(path, mountPoint)) continue;
    if (found == nullptr || found->mountPoint.size() < volume.mountPoint.size()) found = &volume;
  }
  return found;
}

/// Why the item is not there; empty when it is.
std::string lackOf(const std::string& root, const std::string& path) {
  host::Descriptor at(::open(root.c_str(), host::kFolderFlags));
  std::string reached;
  const std::vector<std::string_view> names = splitAt(path, '/');
  for (std::size_t step = 0; at && step < names.size(); ++step) {
    const std::string item(names[step]);
    reached += "/" + item;
    struct stat status {};
    if (::fstatat(at.get(), item.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return errno == ENOENT ? "is not in the snapshot" : hostkit::errnoText(errno);
    }
    if (step + 1 == names.size()) return "";
    if (S_ISLNK(status.st_mode)) {
      return "is not in the snapshot: " + reached + " is a link there, so name what it leads to";
    }
    at = host::Descriptor(::openat(at.get(), item.c_str(), host::kFolderFlags));
  }
  return "is not in the snapshot";
}

using ChosenPaths = std::map<std::string, std::set<std::string>>;  // By the volume's folder.

/// A folder comes with the volumes that were mounted in it.
void addVolumesBelow(const std::vector<SnapshotVolume>& volumes, const std::string& path,
                     Choice& choice, ChosenPaths& chosen) {
  for (const SnapshotVolume& volume : volumes) {
    const std::string mountPoint = volume.mountPoint.substr(1);
    if (mountPoint == path || !isBelow(mountPoint, path)) continue;
    if (volume.isThere) {
      chosen[volume.folder].insert("");
    } else {
      choice.notHeld.push_back({volume.mountPoint, kNoSuchVolume});
    }
  }
}

/// The folders above a mount point are of the volume that it is in, and had attributes there.
ChosenPaths waysTo(const std::vector<SnapshotVolume>& volumes, const ChosenPaths& chosen) {
  ChosenPaths ways;
  for (auto volume = volumes.rbegin(); volume != volumes.rend(); ++volume) {  // The inner first.
    const bool isMet = chosen.contains(volume->folder) || ways.contains(volume->folder);
    if (volume->isRoot() || !isMet) continue;
    const std::string mountPoint = volume->mountPoint.substr(1);
    const std::size_t slash = mountPoint.rfind('/');
    if (slash == std::string::npos) continue;
    const SnapshotVolume* above = volumeOfPath(volumes, mountPoint.substr(0, slash));
    if (above == nullptr || !above->isThere) continue;
    ways[above->folder].insert(below(mountPoint, above->mountPoint.substr(1)));
  }
  return ways;
}

/// Those that it holds, and then those that it was to hold.
std::vector<SnapshotVolume> volumesMeant(const std::string& snapshotPath,
                                         const std::optional<Manifest>& manifest) {
  std::vector<SnapshotVolume> volumes = volumesOf(snapshotPath);
  if (!manifest) return volumes;
  for (const std::string& mountPoint : manifest->absentVolumes) {
    const bool isKnown =
        std::ranges::find(volumes, mountPoint, &SnapshotVolume::mountPoint) != volumes.end();
    if (isKnown || !hostkit::isPlainMountPoint(mountPoint)) continue;
    volumes.push_back({hostkit::volumeFolderName(mountPoint), mountPoint, false});
  }
  return volumes;
}

}  // namespace

Part Selection::partOf(std::string_view path) const {
  if (isAll()) return Part::all;
  for (std::string_view above = path;;) {
    if (paths_.contains(std::string(above))) return Part::all;
    const std::size_t slash = above.rfind('/');
    if (slash == std::string_view::npos) break;
    above = above.substr(0, slash);
  }
  if (path.empty()) return Part::holdsSome;
  const std::string folder = std::string(path) + "/";
  const auto leadsTo = [&folder](const std::set<std::string>& paths) {
    const auto next = paths.lower_bound(folder);
    return next != paths.end() && next->starts_with(folder);
  };
  return leadsTo(paths_) || leadsTo(ways_) ? Part::holdsSome : Part::none;
}

Choice chooseAll(const std::string& snapshotPath) {
  Choice choice;
  choice.meant = volumesMeant(snapshotPath, readManifest(snapshotPath));
  const std::vector<SnapshotVolume> held = volumesOf(snapshotPath);
  for (const SnapshotVolume& volume : held) {
    if (!volume.isThere) {
      throw Failure(volume.path(snapshotPath) +
                    " is gone, or no folder (--volume restores another one alone)");
    }
    choice.volumes.push_back({volume, Selection()});
  }
  if (held.empty()) throw Failure(snapshotPath + " holds no volume");
  for (std::size_t at = held.size(); at < choice.meant.size(); ++at) {
    choice.notHeld.push_back({choice.meant[at].mountPoint, kNoSuchVolume});
  }
  return choice;
}

Choice chooseVolume(const std::string& snapshotPath, const std::string& folder) {
  Choice choice;
  choice.meant = volumesMeant(snapshotPath, readManifest(snapshotPath));
  const auto isIt = [&folder](const SnapshotVolume& volume) {
    return volume.folder == folder && volume.isThere;
  };
  const auto found = std::ranges::find_if(choice.meant, isIt);
  if (found != choice.meant.end()) {
    choice.volumes.push_back({*found, Selection()});
  } else if (isUsableFolderName(folder) && host::isRealDirectory(snapshotPath + "/" + folder)) {
    choice.volumes.push_back({SnapshotVolume{folder, "/", true}, Selection()});
  } else {
    throw Failure(snapshotPath + " holds no volume \"" + folder + "\"");
  }
  return choice;
}

Choice choose(const std::string& snapshotPath, const std::vector<std::string>& hostPaths) {
  const auto manifest = readManifest(snapshotPath);
  const std::vector<SnapshotVolume> volumes = volumesMeant(snapshotPath, manifest);
  // A snapshot of a folder is as one of a host whose root that folder was.
  const std::string source = manifest ? plainPath(manifest->source) : std::string();
  Choice choice;
  choice.meant = volumes;
  ChosenPaths chosen;
  for (const std::string& hostPath : hostPaths) {
    std::string path = plainPath(hostPath);
    if (!source.empty() && isBelow(path, source)) path = below(path, source);
    const SnapshotVolume* volume = volumeOfPath(volumes, path);
    if (volume == nullptr || !volume->isThere) {
      choice.notHeld.push_back({hostPath, "is on a volume that the snapshot does not hold"});
      continue;
    }
    path = below(path, volume->mountPoint.substr(1));
    const std::string lack = path.empty() ? "" : lackOf(volume->path(snapshotPath), path);
    if (!lack.empty()) {
      choice.notHeld.push_back({hostPath, lack});
      continue;
    }
    chosen[volume->folder].insert(path);
    addVolumesBelow(volumes, volume->hostPath(path), choice, chosen);
  }
  ChosenPaths ways = waysTo(volumes, chosen);
  for (const SnapshotVolume& volume : volumes) {
    if (!chosen.contains(volume.folder) && !ways.contains(volume.folder)) continue;
    choice.volumes.push_back({volume, Selection(chosen[volume.folder], ways[volume.folder])});
  }
  return choice;
}

bool isChosen(const Choice& choice, const std::string& path) {
  const SnapshotVolume* volume = volumeOfPath(choice.meant, path);
  return volume != nullptr && std::ranges::any_of(choice.volumes, [&](const ChosenVolume& chosen) {
           const std::string inside = below(path, volume->mountPoint.substr(1));
           return chosen.volume.folder == volume->folder &&
                  chosen.selection.partOf(inside) == Part::all;
         });
}

}  // namespace halyard::snapwheel

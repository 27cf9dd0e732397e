// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_selection.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "host/files/descriptor.h"
#include "host/files/system_call.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

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
      choice.notHeld.push_back({volume.mountPoint, "is a volume that the snapshot does not hold"});
    }
  }
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
  const auto next = paths_.lower_bound(folder);
  return next != paths_.end() && next->starts_with(folder) ? Part::holdsSome : Part::none;
}

Choice choose(const std::string& snapshotPath, const std::vector<std::string>& hostPaths) {
  const std::vector<SnapshotVolume> volumes = volumesOf(snapshotPath);
  const auto manifest = readManifest(snapshotPath);
  // A snapshot of a folder is as one of a host whose root that folder was.
  const std::string source = manifest ? plainPath(manifest->source) : std::string();
  Choice choice;
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
  for (const SnapshotVolume& volume : volumes) {
    const auto paths = chosen.find(volume.folder);
    if (paths != chosen.end()) choice.volumes.push_back({volume, Selection(paths->second)});
  }
  return choice;
}

bool isChosen(const Choice& choice, const std::string& path) {
  return std::ranges::any_of(choice.volumes, [&path](const ChosenVolume& chosen) {
    const std::string mountPoint = chosen.volume.mountPoint.substr(1);
    return isBelow(path, mountPoint) &&
           chosen.selection.partOf(below(path, mountPoint)) == Part::all;
  });
}

}  // namespace halyard::snapwheel

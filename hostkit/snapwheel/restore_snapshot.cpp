// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "common/messages.h"
#include "common/trusted_folder.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/tree/folder_entries.h"
#include "host/tree/tree_copy.h"
#include "host/volumes/volume.h"
#include "snapwheel/failure.h"
#include "snapwheel/map_owners.h"
#include "snapwheel/repository.h"
#include "snapwheel/restore_preview.h"
#include "snapwheel/restore_proof.h"
#include "snapwheel/restore_selection.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

namespace {

constexpr mode_t kTargetMode = 0755;
constexpr mode_t kPrivateMode = 0700;

/// Open for good: whatever becomes of the path, nothing else is written to.
struct Target {
  host::Descriptor folder;
  std::string path;
  bool isNew = false;  ///< It was made for the volume that is mounted there.
};

bool isRunningSystem(const host::Descriptor& folder) {
  struct stat one {};
  struct stat other {};
  return ::fstat(folder.get(), &one) == 0 && ::stat("/", &other) == 0 &&
         one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether the folder at a path in the target holds nothing but what a new file system has, and the
/// way to the places where further volumes are to come.
bool isEmptyEnough(const host::Descriptor& folder, const std::vector<ChosenVolume>& volumes,
                   const std::string& path = "") {
  const auto isOnTheWay = [&](const std::string& below) {
    return std::ranges::any_of(volumes, [&below](const ChosenVolume& chosen) {
      return (chosen.volume.mountPoint + "/").starts_with(below + "/");
    });
  };
  const auto mayStand = [&](const std::string& name) {
    if (name == "lost+found") return true;
    const std::string below = path + "/" + name;
    const host::Descriptor inner(::openat(folder.get(), name.c_str(), host::kFolderFlags));
    return isOnTheWay(below) && inner && isEmptyEnough(inner, volumes, below);
  };
  host::FolderReader reader;
  std::vector<host::FolderEntry> entries;
  do {
    if (reader.next(folder.get(), entries) != 0) return false;
    std::vector<std::string> names;
    names.reserve(entries.size());
    for (const host::FolderEntry& entry : entries) names.emplace_back(entry.name);
    if (!std::ranges::all_of(names, mayStand)) return false;
  } while (!entries.empty());
  return ::lseek(folder.get(), 0, SEEK_SET) == 0;
}

bool isInside(const std::string& path, const std::string& folder) {
  return path == folder || folder == "/" || path.starts_with(folder + "/");
}

/// The folder at the path, which is made when nothing is there. A link on the way to it, or in its
/// place, is followed only where nobody but root can have planted it.
host::Descriptor openTarget(const std::string& path) {
  const auto place = hostkit::trustedPlace(path);
  if (place) (void)::mkdirat(place->folder.get(), place->name.c_str(), kTargetMode);
  auto folder = hostkit::openTrustedFolder(path);
  if (folder) return std::move(*folder);
  const int error = folder.error().code;
  if (error == ENOTDIR) throw Failure(path + " is no folder");
  if (error != ELOOP) throw Failure(errorText(path, error));
  throw Failure("on the way to " + path +
                " there is a link that others than root may have made; name the folder itself");
}

std::string absolutePath(const std::string& path) {
  return path.starts_with('/') ? path : host::realPath(".").value_or("") + "/" + path;
}

/// What a dry run does not need, and the restore itself does.
void tellRefusal(const RestoreRequest& request, const std::vector<ChosenVolume>& volumes) {
  const auto folder = hostkit::openTrustedFolder(absolutePath(request.target));
  if (request.force || !folder) return;
  if (!isRunningSystem(*folder) && isEmptyEnough(*folder, volumes)) return;
  hostkit::printWarning(request.target + " is not empty: only --force writes there");
}

/// A target that may be written to.
Target settleTarget(const RestoreRequest& request, const std::vector<ChosenVolume>& volumes) {
  const std::string path = absolutePath(request.target);
  // The working folder is open already: it is the one that was meant, wherever it stands by now.
  const bool isHere = request.target == ".";
  Target target{isHere ? host::Descriptor(::open(".", host::kFolderFlags)) : openTarget(path),
                host::realPath(path).value_or(path)};
  if (!target.folder) throw Failure(errorText(path, errno));
  const std::string snapshot = host::realPath(request.snapshotPath).value_or("");
  const std::string repository = host::realPath(snapshot + "/../..").value_or("");
  if (isInside(target.path, repository)) {
    throw Failure(target.path + " lies in the repository");
  }
  if (isRunningSystem(target.folder) && !request.force) {
    throw Failure(target.path +
                  " is the root of the running system; --force writes to it nevertheless");
  }
  if (!isEmptyEnough(target.folder, volumes) && !request.force) {
    throw Failure(target.path + " is not empty; --force replaces what the snapshot holds as well");
  }
  return target;
}

/// The volume of the target and those that are mounted below it, which a restore writes to as well.
void syncVolumesIn(const host::Descriptor& folder, const std::string& target) {
  Status synced = host::syncFileSystem(folder.get());
  std::vector<std::string> volumes;
  for (const host::Volume& volume : host::mountedVolumes()) {
    if (isInside(volume.mountPoint, target)) volumes.push_back(volume.mountPoint);
  }
  if (synced) synced = host::syncFileSystems(volumes);
  if (!synced) throw failureOf(synced.error());
}

host::TreeCopyReport copyInto(const Target& target, const std::string& source,
                              const host::TreeCopyOptions& options) {
  host::Location root{host::Descriptor(::fcntl(target.folder.get(), F_DUPFD_CLOEXEC, 0)), "."};
  if (!root.folder) throw Failure(errorText(target.path, errno));
  return host::copyTree(source, root, options);
}

/// One volume onto one folder.
class VolumeRestore {
 public:
  VolumeRestore(const RestoreRequest& request, const SnapshotVolume& volume,
                const Selection& selection, const Target& target, RestoreOutcome& outcome)
      : request_(request),
        volume_(volume),
        selection_(selection),
        target_(target),
        outcome_(outcome) {}

  void run() {
    const auto names =
        request_.mapOwners ? readOwnerNames(volume_.records(request_.snapshotPath)) : std::nullopt;
    const std::string indexPath = volume_.records(request_.snapshotPath).path("index");
    const auto index = SourceIndex::open(indexPath);
    std::unique_ptr<RestoreProof> proof;
    if (index) {
      proof = std::make_unique<RestoreProof>(*index, selection_,
                                             [this](const std::string& path, const char* what) {
                                               ++outcome_.failed;
                                               hostkit::printError(shown(path) + ": " + what);
                                             });
    } else {
      hostkit::printNote("no digests are known of " + request_.snapshotPath +
                         ": whether its files hold what was put there cannot be told");
    }
    host::TreeCopyOptions options = optionsFor();
    if (names) {
      options.adapt = [map = ownerMapFor(*names)](struct stat& status,
                                                  host::ExtendedAttributes& attributes) {
        mapOwners(map, status, attributes);
      };
    }
    options.memory = proof.get();
    const auto report = copyInto(target_, volume_.path(request_.snapshotPath), options);
    outcome_.items += report.items;
    outcome_.bytes += report.copiedBytes;
    finishFlags(index.get());
    if (!report.complete && outcome_.failed == 0) throw Failure(errorText(shown(""), report.error));
    if (report.error == ENOSPC || report.error == EDQUOT || report.error == EROFS) {
      throw Failure(errorText(shown(""), report.error) + "; the target is incomplete");
    }
    syncVolumesIn(target_.folder, target_.path);
  }

 private:
  std::string shown(std::string_view path) const { return appendPath(target_.path, path); }

  host::TreeCopyOptions optionsFor() {
    host::TreeCopyOptions options;
    options.intoExisting = true;
    options.failed = [this](std::string_view path, int error) {
      ++outcome_.failed;
      hostkit::printError(errorText(shown(path), error));
      return error != ENOSPC && error != EDQUOT && error != EROFS;
    };
    options.flagged = [this](std::string_view path, host::InodeFlags flags) {
      flagged_.push_back({std::string(path), flags});
    };
    options.attributesLost = [this](std::string_view path, const host::LostAttributes& lost) {
      noteLost(path, lost);
    };
    if (selection_.isAll()) return options;
    options.excluded = [this](std::string_view path) {
      return selection_.partOf(path) == Part::none;
    };
    options.passedThrough = [this](std::string_view path) {
      return selection_.partOf(path) != Part::all && !(path.empty() && target_.isNew);
    };
    return options;
  }

  void noteLost(std::string_view path, const host::LostAttributes& lost) {
    std::string what;
    const auto add = [&what](bool isLost, std::uint64_t& count, const char* name) {
      if (!isLost) return;
      ++count;
      what += (what.empty() ? "" : ", ") + std::string(name);
    };
    add(lost.owner, outcome_.lost.owners, "owner");
    add(lost.permissions, outcome_.lost.permissions, "permissions");
    add(lost.extended, outcome_.lost.extended, "extended attributes");
    ++outcome_.lost.items;
    if (request_.withoutAttributes) return;
    hostkit::printWarning(shown(path) + ": is there without its " + what +
                          ", which the target cannot hold");
  }

  /// Nothing is written after this: an item with some of the flags cannot be changed any more.
  void finishFlags(const SourceIndex* index) {
    const int folder = target_.folder.get();
    const FlagReport report = index == nullptr ? giveFlagsBack(folder, flagged_)
                                               : giveFlags(*index, folder, selection_, flagged_);
    outcome_.flags.unknown += report.unknown;
    outcome_.flags.lacking += report.lacking;
    if (report.unknown != 0) {
      hostkit::printNote("the snapshot does not know which inode flags " +
                         std::to_string(report.unknown) + " of its items had");
    }
    if (report.lacking == 0) return;
    if (outcome_.flags.firstLacking.empty()) outcome_.flags.firstLacking = report.firstLacking;
    hostkit::printWarning(std::to_string(report.lacking) +
                          " items could not be given their inode flags (see: lsattr), the first: " +
                          shown(report.firstLacking));
  }

  const RestoreRequest& request_;
  const SnapshotVolume& volume_;
  const Selection& selection_;
  const Target& target_;
  RestoreOutcome& outcome_;
  std::vector<FlaggedFolder> flagged_;
};

/// The place of a volume in the target, made where it is missing, and closed until it is filled.
Target placeOf(const Target& target, const SnapshotVolume& volume) {
  Target place{host::Descriptor(::openat(target.folder.get(), ".", host::kFolderFlags)),
               target.path};
  for (const std::string_view part : splitAt(volume.mountPoint, '/')) {
    if (part.empty()) continue;
    const std::string name(part);
    place.path = appendPath(place.path, name);
    struct stat above {};
    const bool isKnown = ::fstat(place.folder.get(), &above) == 0;
    // A refusal shows below.
    place.isNew = ::mkdirat(place.folder.get(), name.c_str(), kTargetMode) == 0;
    const struct timespec times[] = {{0, UTIME_OMIT}, above.st_mtim};
    if (place.isNew && isKnown) (void)::futimens(place.folder.get(), times);
    place.folder = host::Descriptor(::openat(place.folder.get(), name.c_str(), host::kFolderFlags));
    if (!place.folder) throw Failure(errorText(place.path, errno));
  }
  if (place.isNew && ::fchmod(place.folder.get(), kPrivateMode) != 0) {
    throw Failure(errorText(place.path, errno));
  }
  return place;
}

Choice choiceFor(const RestoreRequest& request) {
  Choice choice = !request.paths.empty()   ? choose(request.snapshotPath, request.paths)
                  : request.volume.empty() ? chooseAll(request.snapshotPath)
                                           : chooseVolume(request.snapshotPath, request.volume);
  for (const NotHeld& path : choice.notHeld) hostkit::printError(path.path + " " + path.why);
  if (choice.volumes.empty()) throw Failure("nothing was restored");
  return choice;
}

}  // namespace

RestoreOutcome restoreSnapshot(const RestoreRequest& request) {
  const Choice choice = choiceFor(request);
  for (const ChosenVolume& chosen : choice.volumes) {
    if (request.mapOwners && !readOwnerNames(chosen.volume.records(request.snapshotPath))) {
      throw Failure(request.snapshotPath + " has no record of its owners' names");
    }
  }
  RestoreOutcome outcome;
  if (choice.volumes.size() == 1) outcome.volume = choice.volumes.front().volume.folder;
  outcome.notHeld = choice.notHeld;
  outcome.lack = tellLack(request.snapshotPath, choice);
  if (request.dryRun) {
    tellRefusal(request, choice.volumes);
    previewRestore(request, choice, outcome);
    return outcome;
  }
  const Target target = settleTarget(request, choice.volumes);
  // A volume that is named is put onto the target itself.
  const bool isNamed = request.paths.empty() && !request.volume.empty();
  for (const ChosenVolume& chosen : choice.volumes) {
    const Target place =
        isNamed ? placeOf(target, SnapshotVolume{"", "/", true}) : placeOf(target, chosen.volume);
    VolumeRestore(request, chosen.volume, chosen.selection, place, outcome).run();
  }
  return outcome;
}

}  // namespace halyard::snapwheel

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
#include "host/tree/folder_entries.h"
#include "host/tree/tree_copy.h"
#include "host/volumes/volume.h"
#include "snapwheel/failure.h"
#include "snapwheel/map_owners.h"
#include "snapwheel/repository.h"
#include "snapwheel/restore_proof.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

namespace {

constexpr mode_t kTargetMode = 0755;

/// Open for good: whatever becomes of the path, nothing else is written to.
struct Target {
  host::Descriptor folder;
  std::string path;
};

bool isRunningSystem(const host::Descriptor& folder) {
  struct stat one {};
  struct stat other {};
  return ::fstat(folder.get(), &one) == 0 && ::stat("/", &other) == 0 &&
         one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isEmptyEnough(const host::Descriptor& folder) {
  host::FolderReader reader;
  std::vector<host::FolderEntry> entries;
  do {
    if (reader.next(folder.get(), entries) != 0) return false;
    if (std::ranges::any_of(entries, [](const host::FolderEntry& entry) {
          return std::string_view(entry.name) != "lost+found";
        })) {
      return false;
    }
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

/// A target that may be written to.
Target settleTarget(const RestoreRequest& request) {
  const std::string here = host::realPath(".").value_or("");
  const bool isAbsolute = request.target.starts_with('/');
  const std::string path = isAbsolute ? request.target : here + "/" + request.target;
  Target target{openTarget(path), host::realPath(path).value_or(path)};
  const std::string snapshot = host::realPath(request.snapshotPath).value_or("");
  const std::string repository = host::realPath(snapshot + "/../..").value_or("");
  if (isInside(target.path, repository)) {
    throw Failure(target.path + " lies in the repository");
  }
  if (isRunningSystem(target.folder) && !request.force) {
    throw Failure(target.path +
                  " is the root of the running system; --force writes to it nevertheless");
  }
  if (!isEmptyEnough(target.folder) && !request.force) {
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

/// Nothing is written after this: an item with some of the flags cannot be changed any more.
FlagReport finishFlags(const SourceIndex* index, const Target& target,
                       const std::vector<FlaggedFolder>& before) {
  const PartOf everything = [](std::string_view) { return Part::all; };
  FlagReport report = index == nullptr ? giveFlagsBack(target.folder.get(), before)
                                       : giveFlags(*index, target.folder.get(), everything, before);
  if (report.unknown != 0) {
    hostkit::printNote("the snapshot does not know which inode flags " +
                       std::to_string(report.unknown) + " of its items had");
  }
  if (report.lacking != 0) {
    hostkit::printError(std::to_string(report.lacking) +
                        " items could not be given their inode flags (see: lsattr), the first: " +
                        appendPath(target.path, report.firstLacking));
  }
  return report;
}

}  // namespace

RestoreOutcome restoreSnapshot(const RestoreRequest& request) {
  RestoreOutcome outcome;
  outcome.volume = request.volume.empty() ? volumeFolder(request.snapshotPath) : request.volume;
  const std::string source = request.snapshotPath + "/" + outcome.volume;
  if (outcome.volume.empty() || !host::isDirectory(source)) {
    throw Failure(request.snapshotPath + " holds no volume" +
                  (outcome.volume.empty() ? "" : " \"" + outcome.volume + "\""));
  }
  const auto names = request.mapOwners ? readOwnerNames(request.snapshotPath) : std::nullopt;
  if (request.mapOwners && !names) {
    throw Failure(request.snapshotPath + " has no record of its owners' names");
  }
  const Target settled = settleTarget(request);
  const std::string& target = settled.path;

  host::TreeCopyOptions options;
  options.intoExisting = true;
  if (names) {
    options.adapt = [map = ownerMapFor(*names)](struct stat& status,
                                                host::ExtendedAttributes& attributes) {
      mapOwners(map, status, attributes);
    };
  }
  options.failed = [&](std::string_view path, int error) {
    ++outcome.failed;
    hostkit::printError(errorText(appendPath(target, path), error));
    return error != ENOSPC && error != EDQUOT && error != EROFS;
  };
  const auto index =
      SourceIndex::open(request.snapshotPath + "/" + std::string(kRecordFolder) + "/index");
  std::unique_ptr<RestoreProof> proof;
  if (index) {
    proof = std::make_unique<RestoreProof>(*index, [&](const std::string& path, const char* what) {
      ++outcome.failed;
      hostkit::printError(appendPath(target, path) + ": " + what);
    });
  } else {
    hostkit::printNote("no digests are known of " + request.snapshotPath +
                       ": whether its files hold what was put there cannot be told");
  }
  options.memory = proof.get();
  std::vector<FlaggedFolder> flagged;
  options.flagged = [&](std::string_view path, host::InodeFlags flags) {
    flagged.push_back({std::string(path), flags});
  };
  const auto report = copyInto(settled, source, options);
  outcome.items = report.items;
  outcome.bytes = report.copiedBytes;
  outcome.flags = finishFlags(index.get(), settled, flagged);
  if (!report.complete && outcome.failed == 0) throw Failure(errorText(target, report.error));
  if (report.error == ENOSPC || report.error == EDQUOT || report.error == EROFS) {
    throw Failure(errorText(target, report.error) + "; the target is incomplete");
  }
  syncVolumesIn(settled.folder, target);
  return outcome;
}

}  // namespace halyard::snapwheel

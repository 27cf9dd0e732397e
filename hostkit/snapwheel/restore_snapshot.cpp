// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_snapshot.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "base/text.h"
#include "common/messages.h"
#include "host/files/files.h"
#include "host/files/sync.h"
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

bool isSameFolder(const std::string& left, const std::string& right) {
  struct stat one {};
  struct stat other {};
  return ::stat(left.c_str(), &one) == 0 && ::stat(right.c_str(), &other) == 0 &&
         one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isEmptyEnough(const std::string& folder) {
  const std::vector<std::string> names = host::listDirectory(folder);
  return std::all_of(names.begin(), names.end(),
                     [](const std::string& name) { return name == "lost+found"; });
}

bool isInside(const std::string& path, const std::string& folder) {
  return path == folder || folder == "/" || path.starts_with(folder + "/");
}

/// The real path of a target that may be written to.
std::string settleTarget(const RestoreRequest& request) {
  if (!host::exists(request.target) && ::mkdir(request.target.c_str(), kTargetMode) != 0) {
    throw Failure(errorText(request.target, errno));
  }
  std::string target = host::realPath(request.target).value_or("");
  if (target.empty() || !host::isDirectory(target)) {
    throw Failure(request.target + " is no folder");
  }
  const std::string snapshot = host::realPath(request.snapshotPath).value_or("");
  const std::string repository = host::realPath(snapshot + "/../..").value_or("");
  if (isInside(target, repository)) throw Failure(target + " lies in the repository");
  const bool isRunningSystem = target == "/" || isSameFolder(target, "/");
  if (isRunningSystem && !request.force) {
    throw Failure(target + " is the root of the running system; --force writes to it nevertheless");
  }
  if (!isEmptyEnough(target) && !request.force) {
    throw Failure(target + " is not empty; --force replaces what the snapshot holds as well");
  }
  return target;
}

/// The volume of the target and those that are mounted below it, which a restore writes to as well.
void syncVolumesIn(const std::string& target) {
  std::vector<std::string> volumes = {target};
  for (const host::Volume& volume : host::mountedVolumes()) {
    if (isInside(volume.mountPoint, target)) volumes.push_back(volume.mountPoint);
  }
  if (const Status synced = host::syncFileSystems(volumes); !synced) {
    throw failureOf(synced.error());
  }
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
  const std::string target = settleTarget(request);

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
  const auto report = host::copyTree(source, target, options);
  outcome.items = report.items;
  outcome.bytes = report.copiedBytes;
  if (!report.complete && outcome.failed == 0) throw Failure(errorText(target, report.error));
  if (report.error == ENOSPC || report.error == EDQUOT || report.error == EROFS) {
    throw Failure(errorText(target, report.error) + "; the target is incomplete");
  }
  syncVolumesIn(target);
  return outcome;
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/work_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/text.h"
#include "common/messages.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/volumes/subvolume.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

constexpr mode_t kSnapshotMode = 0755;
constexpr mode_t kRecordMode = 0700;
constexpr std::size_t kBootIdLimit = 64;
constexpr std::size_t kLookedBack = 100;

}  // namespace

std::string bootIdentifier() {
  std::FILE* file = std::fopen("/proc/sys/kernel/random/boot_id", "re");
  if (file == nullptr) return {};
  char text[kBootIdLimit] = {};
  const std::size_t length = std::fread(text, 1, sizeof text - 1, file);
  std::fclose(file);
  return std::string(trimLineFeeds({text, length}));
}

WorkFolder::WorkFolder(const Repository& repository, std::string name,
                       std::vector<SnapshotVolume> volumes, const std::string& source)
    : repository_(repository),
      hostFolder_(repository.open()),
      name_(std::move(name)),
      volumes_(std::move(volumes)),
      source_(source),
      path_(repository.path(workName())) {
  findReferences(repository.list().snapshots);
  if (!reference_.empty()) basis_ = Basis::linkedReference;
}

void WorkFolder::findReferences(const std::vector<std::string>& snapshots) {
  std::size_t looked = 0;
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    for (SnapshotVolume& volume : volumesOf(repository_.path(*snapshot))) {
      if (!volume.isThere) continue;
      if (volume.isRoot() && reference_.empty()) reference_ = *snapshot;
      const std::string mountPoint = volume.mountPoint;
      references_.try_emplace(mountPoint, Reference{*snapshot, std::move(volume)});
    }
    const bool isDone = std::ranges::all_of(volumes_, [this](const SnapshotVolume& volume) {
      return references_.contains(volume.mountPoint);
    });
    // A volume that none of so many holds is as good as new.
    if (isDone || (++looked >= kLookedBack && !reference_.empty())) return;
  }
}

WorkVolume WorkFolder::volume(const SnapshotVolume& volume) const {
  const bool isThere = begun_.contains(volume.mountPoint);
  const auto found = references_.find(volume.mountPoint);
  const std::string name = found == references_.end() ? "" : found->second.snapshot;
  const std::string snapshot = repository_.path(name);
  WorkVolume work{volume.path(path_), volume.records(path_), name, "", volume.records(snapshot)};
  if (!name.empty()) {
    work.earlier = found->second.volume.path(snapshot);
    work.referenceRecords = found->second.volume.records(snapshot);
  }
  work.isUpdate = isThere;
  work.isCopyOfReference = isThere && basis_ == Basis::copyOfReference;
  work.isReferenceExact = !name.empty() && !(isThere && basis_ == Basis::leftover);
  return work;
}

bool WorkFolder::isReusable(const std::string& name) const {
  const std::string leftover = repository_.path(name);
  // A link in its place would lead the copy, or the records, to somewhere else.
  const SnapshotVolume& root = volumes_.front();
  if (!host::isRealDirectory(leftover) || !host::isRealDirectory(root.path(leftover)) ||
      !host::isRealDirectory(leftover + "/" + std::string(kRecordFolder))) {
    return false;
  }
  const auto manifest = readManifest(leftover);
  return manifest && !manifest->boot.empty() && manifest->boot == bootIdentifier() &&
         manifest->volume == root.folder && manifest->source == source_ &&
         snapshotInstant(completedName(name)).has_value() &&
         host::isOnBtrfs(hostFolder_.get()) == host::isSubvolume(hostFolder_.get(), name);
}

void WorkFolder::settleLeftovers() {
  const std::vector<std::string> leftovers = repository_.list().inProgress;
  for (auto name = leftovers.rbegin(); name != leftovers.rend(); ++name) {
    const std::string leftover = repository_.path(*name);
    if (basis_ != Basis::leftover && isReusable(*name)) {
      hostkit::printNote("an interrupted snapshot is taken over: " + *name);
      if (::rename(leftover.c_str(), path_.c_str()) != 0) throw Failure(errorText(leftover, errno));
      basis_ = Basis::leftover;
      continue;
    }
    hostkit::printNote("an interrupted snapshot is removed: " + *name);
    if (const Status removed = host::removeWithSubvolumes(hostFolder_.get(), *name); !removed) {
      throw Failure(errorText(leftover, removed.error().code));
    }
  }
}

void WorkFolder::makeFolder() {
  const int folder = hostFolder_.get();
  if (host::isOnBtrfs(folder)) {
    const bool copies = !reference_.empty() && host::isSubvolume(folder, reference_);
    const Status made = copies ? host::copySubvolume(folder, reference_, workName())
                               : host::createSubvolume(folder, workName());
    if (!made) throw Failure(errorText(path_, made.error().code));
    if (copies) basis_ = Basis::copyOfReference;
  } else if (::mkdir(path_.c_str(), kSnapshotMode) != 0) {
    throw Failure(errorText(path_, errno));
  }
  if (::chmod(path_.c_str(), kSnapshotMode) != 0) throw Failure(errorText(path_, errno));
}

/// Of what a copied snapshot or a leftover holds only the volumes stay that are wanted, under the
/// names that they are to have.
void WorkFolder::settleVolumes() {
  const std::vector<SnapshotVolume> there = volumesOf(path_);
  const auto wanted = [&](const std::string& folder) -> const SnapshotVolume* {
    const auto held = std::ranges::find(there, folder, &SnapshotVolume::folder);
    if (held == there.end() || !held->isThere) return nullptr;
    const auto match = std::ranges::find(volumes_, held->mountPoint, &SnapshotVolume::mountPoint);
    return match == volumes_.end() ? nullptr : &*match;
  };
  std::vector<std::string> kept;
  for (const std::string& name : host::listDirectory(path_)) {
    if (name == kRecordFolder) continue;
    if (wanted(name) != nullptr) {
      kept.push_back(name);
    } else if (const Status removed = host::removeWithSubvolumes(path_, name); !removed) {
      throw Failure(errorText(joinPath(path_, name), removed.error().code));
    }
  }
  for (const std::string& name : kept) {
    const SnapshotVolume& volume = *wanted(name);
    const std::string from = joinPath(path_, name);
    if (name != volume.folder && ::rename(from.c_str(), volume.path(path_).c_str()) != 0) {
      throw Failure(errorText(from, errno));
    }
    begun_.insert(volume.mountPoint);
  }
}

/// New ones, whatever a copied snapshot or a leftover has there: on btrfs the records are copies,
/// too, and none of them is about this snapshot.
void WorkFolder::makeRecordFolders() {
  const std::string records = path_ + "/" + std::string(kRecordFolder);
  struct stat status {};
  if (::lstat(records.c_str(), &status) == 0) {
    const Status removed = host::removeWithSubvolumes(path_, std::string(kRecordFolder));
    if (!removed) throw Failure(errorText(records, removed.error().code));
  }
  for (const SnapshotVolume& volume : volumes_) {
    const std::string folder = volume.records(path_).path();
    const std::string above = parentPath(folder);
    const bool isMade =
        (volume.isRoot() || ::mkdir(above.c_str(), kRecordMode) == 0 || errno == EEXIST) &&
        ::mkdir(folder.c_str(), kRecordMode) == 0;
    if (!isMade) throw Failure(errorText(folder, errno));
  }
}

void WorkFolder::begin(const Manifest& manifest) {
  settleLeftovers();
  if (basis_ != Basis::leftover) makeFolder();
  if (basis_ == Basis::leftover || basis_ == Basis::copyOfReference) settleVolumes();
  makeRecordFolders();
  if (const Status written = writeManifest(path_, manifest); !written) {
    throw failureOf(written.error());
  }
}

int WorkFolder::fault(int error) const {
  if (error == ENOSPC || error == EDQUOT || error == EROFS) return error;
  const std::string probe = RecordPlace(path_).path("probe");
  (void)::unlink(probe.c_str());  // Of a run that was cut off here.
  const host::Descriptor made(
      ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kRecordMode));
  if (!made) return errno;
  (void)::unlink(probe.c_str());
  return 0;
}

void WorkFolder::publish(const Manifest& manifest) {
  if (const Status written = writeManifest(path_, manifest); !written) {
    throw failureOf(written.error());
  }
  if (const auto synced = host::syncFileSystem(path_); !synced) throw failureOf(synced.error());
  const std::string final = repository_.path(name_);
  if (::rename(path_.c_str(), final.c_str()) != 0) throw Failure(errorText(final, errno));
  if (host::isSubvolume(hostFolder_.get(), name_)) {
    // A precaution; nothing rests on it.
    (void)host::setSubvolumeReadOnly(hostFolder_.get(), name_, true);
  }
  if (const Status moved = repository_.setLatest(name_); !moved) {
    throw Failure(errorText("the snapshot " + name_ + " is complete, but the link Latest",
                            moved.error().code));
  }
}

std::string WorkFolder::discard() const {
  const bool untouched = !repository_.list().snapshots.empty();
  const std::string others = untouched ? "; the earlier snapshots are untouched" : "";
  if (!host::isAbsent(repository_.path(name_))) return "the snapshot itself is kept";
  if (host::isAbsent(path_)) return "no snapshot was made" + others;
  if (host::removeWithSubvolumes(hostFolder_.get(), workName()))
    return "the unfinished snapshot was removed" + others;
  return "the unfinished snapshot " + path_ + " could not be removed" + others;
}

}  // namespace halyard::snapwheel

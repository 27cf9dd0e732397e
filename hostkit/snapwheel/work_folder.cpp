// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/work_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

}  // namespace

std::string bootIdentifier() {
  std::FILE* file = std::fopen("/proc/sys/kernel/random/boot_id", "re");
  if (file == nullptr) return {};
  char text[kBootIdLimit] = {};
  const std::size_t length = std::fread(text, 1, sizeof text - 1, file);
  std::fclose(file);
  return std::string(trimLineFeeds({text, length}));
}

WorkFolder::WorkFolder(const Repository& repository, std::string name, std::string volume,
                       const std::string& source)
    : repository_(repository),
      hostFolder_(repository.open()),
      name_(std::move(name)),
      volume_(std::move(volume)),
      source_(source),
      path_(repository.path(workName())) {
  const std::vector<std::string> snapshots = repository.list().snapshots;
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    referenceFolder_ = volumeFolder(repository.path(*snapshot));
    if (referenceFolder_.empty()) continue;
    reference_ = *snapshot;
    basis_ = Basis::linkedReference;
    break;
  }
}

std::string WorkFolder::record(const std::string& snapshot, const char* name) {
  return snapshot + "/" + std::string(kRecordFolder) + "/" + name;
}

std::string WorkFolder::referenceIndexPath() const { return record(referencePath(), "index"); }

std::string WorkFolder::referenceVolume() const {
  return basis_ == Basis::copyOfReference ? std::string() : earlierVolume();
}

std::string WorkFolder::earlierVolume() const {
  return reference_.empty() ? std::string() : referencePath() + "/" + referenceFolder_;
}

std::string WorkFolder::referencePath() const {
  return reference_.empty() ? std::string() : repository_.path(reference_);
}

bool WorkFolder::isReusable(const std::string& name) const {
  const std::string leftover = repository_.path(name);
  // A link in its place would lead the copy, or the records, to somewhere else.
  if (!host::isRealDirectory(leftover) || !host::isRealDirectory(leftover + "/" + volume_) ||
      !host::isRealDirectory(leftover + "/" + std::string(kRecordFolder))) {
    return false;
  }
  const auto manifest = readManifest(leftover);
  return manifest && !manifest->boot.empty() && manifest->boot == bootIdentifier() &&
         manifest->volume == volume_ && manifest->source == source_ &&
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

/// A new one, whatever a copied snapshot or a leftover has there: on btrfs the records are copies,
/// too, and none of them is about this snapshot.
void WorkFolder::makeRecordFolder() {
  const std::string records = path_ + "/" + std::string(kRecordFolder);
  struct stat status {};
  if (::lstat(records.c_str(), &status) == 0) {
    const Status removed = host::removeWithSubvolumes(path_, std::string(kRecordFolder));
    if (!removed) throw Failure(errorText(records, removed.error().code));
  }
  if (::mkdir(records.c_str(), kRecordMode) != 0) throw Failure(errorText(records, errno));
}

void WorkFolder::begin(const Manifest& manifest) {
  settleLeftovers();
  if (basis_ != Basis::leftover) makeFolder();
  if (basis_ == Basis::copyOfReference && referenceFolder_ != volume_) {
    const std::string renamed = path_ + "/" + referenceFolder_;
    if (::rename(renamed.c_str(), volumePath().c_str()) != 0) {
      throw Failure(errorText(renamed, errno));
    }
  }
  makeRecordFolder();
  if (const Status written = writeManifest(path_, manifest); !written) {
    throw failureOf(written.error());
  }
}

int WorkFolder::fault(int error) const {
  if (error == ENOSPC || error == EDQUOT || error == EROFS) return error;
  const std::string probe = record(path_, "probe");
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
  if (host::exists(repository_.path(name_))) return "the snapshot itself is kept";
  if (!host::exists(path_)) return "no snapshot was made" + others;
  if (host::removeWithSubvolumes(hostFolder_.get(), workName()))
    return "the unfinished snapshot was removed" + others;
  return "the unfinished snapshot " + path_ + " could not be removed" + others;
}

}  // namespace halyard::snapwheel

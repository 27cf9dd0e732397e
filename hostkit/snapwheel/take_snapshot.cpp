// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/take_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/tree/change_time.h"
#include "host/tree/tree_copy.h"
#include "host/volumes/mounting.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/damage.h"
#include "snapwheel/failure.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/walk_memory.h"
#include "snapwheel/work_folder.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kToldItems = 20;
constexpr std::chrono::minutes kToldClockLag(1);

Instant now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

/// The source as an absolute path without links. Leaves the repository out when it lies inside.
void settleSource(const Repository& repository, SnapshotRequest& request) {
  const std::string source = host::realPath(request.source).value_or("");
  if (source.empty() || !host::isDirectory(source)) {
    throw Failure("the source " + request.source + " is no folder");
  }
  request.source = source;
  const std::string folder = host::realPath(repository.folder()).value_or("");
  const std::string below = source == "/" ? source : source + "/";
  if (source == folder || source.starts_with(folder + "/")) {
    throw Failure("the source " + source + " is part of the repository");
  }
  if (folder.starts_with(below)) request.exclusions.addPath(folder.substr(below.size()));
}

/// The walk over the source, and what becomes of the items that it cannot copy.
class Walk {
 public:
  Walk(const SnapshotRequest& request, const WorkFolder& work, Manifest& manifest)
      : request_(request), work_(work), manifest_(manifest) {}

  /// Throws Failure when the destination gives up.
  void run() {
    const std::string identity = indexIdentity();
    SourceIndexWriter writer(work_.indexPath(), identity);
    const bool isProof = work_.isReferenceExact() && keepsChangeTimes(request_.source);
    const auto before = isProof ? SourceIndex::open(work_.referenceIndexPath(), identity) : nullptr;
    const struct timespec began = host::timeOfChanges();
    writeBack();
    WalkMemory memory(writer, {before.get(), damageOfReference()}, began,
                      [this](const std::string& path) { noteTorn(path); });
    host::TreeCopyOptions options;
    options.reference = work_.referenceVolume();
    options.earlier = before ? work_.earlierVolume() : std::string();
    options.update = work_.isUpdate();
    options.intoExisting = options.update;
    options.oneFileSystem = true;
    options.memory = &memory;
    options.excluded = [this](std::string_view path) { return request_.exclusions.match(path); };
    options.failed = [this](std::string_view path, int error) { return goesOn(path, error); };
    const auto report = copy(options);
    // Without the root there is nothing that a snapshot could lack parts of.
    if (fatal_ == 0 && (report.ended || report.items == 0)) {
      fatal_ = report.error;
    }
    if (fatal_ != 0) throw Failure(errorText(work_.volumePath(), fatal_));
    fill(report);
    // Without an index the next walk is slower, and no less right.
    (void)writer.finish();
    (void)writeOwnerNames(work_.path(), namesOf(memory.owners(), request_.source));
  }

 private:
  /// What is mounted inside the source, as a hardened unit does for itself, must not hide what is
  /// the source's own.
  host::TreeCopyReport copy(const host::TreeCopyOptions& options) const {
    auto source = host::openWithoutMounts(request_.source);
    if (!source) return host::copyTree(request_.source, work_.volumePath(), options);
    return host::copyTree(host::Location{std::move(*source), "."}, work_.volumePath(), options);
  }

  /// What is written through a mapping sets the change time when a page is touched that is as the
  /// disk has it, so all are to be.
  void writeBack() const {
    const host::Descriptor source(::open(request_.source.c_str(), O_RDONLY | O_DIRECTORY));
    if (source) (void)::syncfs(source.get());  // An error of the disk shows when files are read.
  }

  DamageRecord damageOfReference() const {
    if (work_.reference().empty()) return {};
    DamageRecord damage = readDamage(work_.referencePath());
    if (damage.isUnreadable) {
      hostkit::printWarning("the record of damaged files in " + work_.reference() +
                            " cannot be read: every file is copied afresh");
    }
    return damage;
  }

  void noteTorn(const std::string& path) {
    if (manifest_.tornCount == 0) {
      hostkit::printNote(
          std::string("a file that is written all the time is saved by a dump of its "
                      "own server; leave it out in ") +
          hostkit::kExclusionFile);
    }
    if (manifest_.tornCount++ < kNamedItems) manifest_.torn.push_back(path);
    if (manifest_.tornCount <= kToldItems) {
      hostkit::printWarning("/" + path + ": changed whenever it was read (kept as read last)");
    }
  }

  /// What must be the same for an index to prove anything: the folder that was walked (a file
  /// system that was made anew has another root inode or birth time) and what was left out.
  std::string indexIdentity() const {
    struct statx root {};
    (void)::statx(AT_FDCWD, request_.source.c_str(), 0, STATX_INO | STATX_BTIME, &root);
    return request_.source + "\n" + request_.volume + "\n" + std::to_string(root.stx_ino) + " " +
           std::to_string(root.stx_btime.tv_sec) + "." + std::to_string(root.stx_btime.tv_nsec) +
           "\n" + request_.exclusions.fingerprint();
  }

  bool goesOn(std::string_view path, int error) {
    // Errors of the source cost the item, errors of the destination the snapshot.
    if (const int fault = work_.fault(error)) {
      fatal_ = fault;
      return false;
    }
    if (error == ENOENT) return true;  // It vanished: a later walk would not have seen it either.
    if (manifest_.missingCount++ < kNamedItems) {
      manifest_.missing.push_back({std::string(path), error});
    }
    if (manifest_.missingCount <= kToldItems) {
      hostkit::printWarning(errorText("/" + std::string(path), error) + " (left out)");
    }
    return true;
  }

  void fill(const host::TreeCopyReport& report) {
    manifest_.items = report.items;
    manifest_.copied = report.copied;
    manifest_.copiedBytes = report.copiedBytes;
    manifest_.linked = report.linked;
    manifest_.linkedBytes = report.linkedBytes;
    manifest_.complete = manifest_.missingCount == 0 && manifest_.tornCount == 0;
    if (manifest_.missingCount > kToldItems) {
      hostkit::printWarning(std::to_string(manifest_.missingCount) +
                            " items were left out in all; the snapshot's manifest names them");
    }
    if (manifest_.tornCount > kToldItems) {
      hostkit::printWarning(std::to_string(manifest_.tornCount) +
                            " files changed while they were read in all; the snapshot's manifest "
                            "names them");
    }
  }

  const SnapshotRequest& request_;
  const WorkFolder& work_;
  Manifest& manifest_;
  int fatal_ = 0;
};

Manifest beginManifest(const Repository& repository, const SnapshotRequest& request,
                       const std::string& name, const std::string& reference) {
  Manifest manifest;
  manifest.computer = repository.computerName();
  manifest.volume = request.volume;
  manifest.source = request.source;
  manifest.started = name;
  manifest.reference = reference;
  manifest.boot = bootIdentifier();
  return manifest;
}

}  // namespace

SnapshotOutcome takeSnapshot(const Repository& repository, SnapshotRequest request) {
  repository.create();
  const SnapshotLock lock(repository, request.machineLock);
  settleSource(repository, request);

  const std::vector<std::string> earlier = repository.list().snapshots;
  std::optional<Instant> newest;
  if (!earlier.empty()) newest = snapshotInstant(earlier.back());
  const Instant instant = nextInstant(now(), newest);
  const std::string name = snapshotName(instant);
  if (instant > now() + kToldClockLag) {
    hostkit::printWarning("the clock is behind the newest snapshot, " + earlier.back());
  }

  WorkFolder work(repository, name, request.volume, request.source);
  if (!snapshotInstant(name)) {
    throw Failure("no name is left for a snapshot after " + earlier.back() +
                  ": that one cannot be right; rename or delete it");
  }
  SnapshotOutcome outcome{name, beginManifest(repository, request, name, work.reference())};
  try {
    work.begin(outcome.manifest);
    Walk(request, work, outcome.manifest).run();
    // Before it has its name: no reader ever sees it without its marks.
    outcome.manifest.items += markLackingServices(request.source, work.volumePath());
    outcome.manifest.unfinishedBackup = carriesUnfinishedBackup(request.source, work.volumePath());
    outcome.manifest.finished = snapshotName(now());
    work.publish(outcome.manifest);
  } catch (const Failure& failure) {
    throw Failure(std::string(failure.what()) + "; " + work.discard(), failure.status());
  }
  return outcome;
}

}  // namespace halyard::snapwheel

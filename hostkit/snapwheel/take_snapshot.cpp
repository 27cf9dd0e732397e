// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/take_snapshot.h"

#include <chrono>
#include <set>
#include <utility>

#include "common/messages.h"
#include "common/paths.h"
#include "common/volume_names.h"
#include "host/files/files.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/failure.h"
#include "snapwheel/source_volume.h"
#include "snapwheel/volume_walk.h"
#include "snapwheel/work_folder.h"

namespace halyard::snapwheel {

namespace {

constexpr std::chrono::minutes kToldClockLag(1);

Instant now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

/// The volumes to copy, the one at "/" first; those that cannot be are recorded as absent.
std::vector<SourceVolume> openSources(const Repository& repository, const SnapshotRequest& request,
                                      Manifest& manifest) {
  std::vector<SourceVolume> sources;
  sources.push_back(
      SourceVolume::root(repository, request.source, request.volume, request.exclusions));
  const std::set<std::string> further(request.furtherVolumes.begin(), request.furtherVolumes.end());
  for (const std::string& mountPoint : further) {
    if (request.exclusions.matchAtOrAbove(mountPoint.substr(1))) {
      hostkit::printNote("the volume at " + mountPoint + " is left out by " +
                         hostkit::kExclusionFile + " or --exclude");
      continue;
    }
    auto source =
        SourceVolume::further(repository, sources.front(), mountPoint, request.exclusions);
    if (source.missing() == 0) {
      sources.push_back(std::move(source));
    } else {
      noteAbsentVolume(source, source.missing(), manifest);
    }
  }
  return sources;
}

/// Throws Failure for what cannot be the volumes of one snapshot.
void refuseUnusable(const SnapshotRequest& request) {
  const auto refuse = [](const std::string& text) { throw Failure(text, hostkit::kUsageError); };
  if (!isUsableFolderName(request.volume)) {
    refuse("\"" + request.volume + "\" cannot be the name of a volume's folder");
  }
  for (const std::string& mountPoint : request.furtherVolumes) {
    if (mountPoint == "/" || !hostkit::isPlainMountPoint(mountPoint)) {
      refuse("\"" + mountPoint + "\" is no mount point of a further volume, as /srv is");
    }
    if (hostkit::volumeFolderName(mountPoint) == request.volume) {
      refuse("the folder " + request.volume + " is the one of the volume at " + mountPoint);
    }
  }
}

Manifest beginManifest(const Repository& repository, const SnapshotRequest& request,
                       const std::string& name) {
  Manifest manifest;
  manifest.computer = repository.computerName();
  manifest.volume = request.volume;
  manifest.started = name;
  manifest.boot = bootIdentifier();
  return manifest;
}

/// Copies one volume after the other. Throws Failure.
void walkAll(const std::vector<SourceVolume>& sources, const WorkFolder& work, Manifest& manifest) {
  manifest.volumes.clear();
  for (const SourceVolume& source : sources) {
    VolumeRecord record = VolumeWalk(source, work, sources.front().path(), manifest).run();
    const std::string path = work.volume(source.place()).path;
    if (!host::isRealDirectory(path)) {
      if (source.place().isRoot()) throw Failure(source.path() + " cannot be read");
      manifest.absentVolumes.push_back(source.place().mountPoint);
      continue;  // The walk has told why.
    }
    if (source.place().isRoot()) {
      // Before it has its name: no reader ever sees it without its marks.
      record.items += markLackingServices(source.path(), path);
      manifest.unfinishedBackup = carriesUnfinishedBackup(source.path(), path);
    }
    manifest += record;
    manifest.volumes.push_back(std::move(record));
  }
  manifest.complete = manifest.missingCount == 0 && manifest.tornCount == 0;
  tellUnnamedItems(manifest);
}

}  // namespace

SnapshotOutcome takeSnapshot(const Repository& repository, const SnapshotRequest& request) {
  refuseUnusable(request);
  repository.create();
  const SnapshotLock lock(repository, request.machineLock);

  const std::vector<std::string> earlier = repository.list().snapshots;
  std::optional<Instant> newest;
  if (!earlier.empty()) newest = snapshotInstant(earlier.back());
  const Instant instant = nextInstant(now(), newest);
  const std::string name = snapshotName(instant);
  if (instant > now() + kToldClockLag) {
    hostkit::printWarning("the clock is behind the newest snapshot, " + earlier.back());
  }

  if (!snapshotInstant(name)) {
    throw Failure("no name is left for a snapshot after " + earlier.back() +
                  ": that one cannot be right; rename or delete it");
  }
  SnapshotOutcome outcome{name, beginManifest(repository, request, name)};
  const std::vector<SourceVolume> sources = openSources(repository, request, outcome.manifest);
  std::vector<SnapshotVolume> places;
  for (const SourceVolume& source : sources) {
    places.push_back(source.place());
    VolumeRecord record;
    record.folder = source.place().folder;
    record.mountPoint = source.place().mountPoint;
    outcome.manifest.volumes.push_back(std::move(record));
  }
  WorkFolder work(repository, name, std::move(places), sources.front().path());
  outcome.manifest.source = sources.front().path();
  outcome.manifest.reference = work.reference();
  try {
    work.begin(outcome.manifest);
    walkAll(sources, work, outcome.manifest);
    outcome.manifest.finished = snapshotName(now());
    work.publish(outcome.manifest);
  } catch (const Failure& failure) {
    throw Failure(std::string(failure.what()) + "; " + work.discard(), failure.status());
  }
  return outcome;
}

}  // namespace halyard::snapwheel

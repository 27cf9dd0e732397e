// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/volume_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "common/messages.h"
#include "common/paths.h"
#include "host/tree/change_time.h"
#include "host/volumes/subvolume.h"
#include "product/paths.h"
#include "snapwheel/failure.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/source_index.h"
#include "snapwheel/source_instant.h"
#include "snapwheel/source_scout.h"
#include "snapwheel/walk_memory.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kToldItems = 20;
constexpr char kIndexName[] = "index";

void noteMissing(Manifest& manifest, const std::string& path, int error) {
  if (manifest.missingCount++ < kNamedItems) manifest.missing.push_back({path, error});
}

}  // namespace

VolumeRecord VolumeWalk::run() {
  const std::string identity = source_.indexIdentity();
  SourceIndexWriter writer(place_.records.path(kIndexName), identity);
  const bool isProof = place_.isReferenceExact && keepsChangeTimes(source_.path());
  const auto before =
      isProof ? SourceIndex::open(place_.referenceRecords.path(kIndexName), identity) : nullptr;
  const struct timespec began = host::timeOfChanges();
  source_.writeBack();
  const SourceInstant instant(source_.openAlone(),
                              [this](std::string_view path) { return source_.leavesOut(path); });
  if (instant.error() != 0) {
    hostkit::printNote(errorText(source_.path(), instant.error()) +
                       " (it cannot be held still, and is copied as it changes)");
  }
  WalkMemory memory(writer, {before.get(), damageOfReference()}, began,
                    [this](const std::string& path) { noteTorn(path); });
  host::TreeCopyOptions options;
  options.reference = place_.isCopyOfReference ? std::string() : place_.earlier;
  options.earlier = before ? place_.earlier : std::string();
  options.update = place_.isUpdate;
  options.intoExisting = options.update;
  options.oneFileSystem = true;
  options.memory = &memory;
  const auto isLeftOut = [&](std::string_view path) {
    return instant.isOwn(path) || source_.leavesOut(path);
  };
  options.excluded = [&](std::string_view path) {
    tellFalseHandOver(path);
    return isLeftOut(path);
  };
  options.failed = [this](std::string_view path, int error) { return goesOn(path, error); };
  const host::Location root{host::Descriptor(::fcntl(instant.folder().get(), F_DUPFD_CLOEXEC, 0)),
                            "."};
  SourceScout scout({root, options.reference, isLeftOut, before.get()});
  options.scout = &scout;
  const auto report = host::copyTree(root, place_.path, options);
  // Without the root of "/" there is nothing that a snapshot could lack parts of.
  const bool isNothing = report.items == 0 && source_.place().isRoot();
  if (fatal_ == 0 && (report.ended || isNothing)) {
    fatal_ = report.error;
  }
  if (fatal_ != 0) throw Failure(errorText(place_.path, fatal_));
  removeFalseHandOver();
  // Without an index the next walk is slower, and no less right.
  (void)writer.finish();
  (void)writeOwnerNames(place_.records, namesOf(memory.owners(), host_));
  VolumeRecord record = recordOf(report);
  record.ofOneInstant = instant.isOfOneInstant();
  return record;
}

/// In what a leftover or a copied snapshot holds, too.
void VolumeWalk::removeFalseHandOver() const {
  const std::string name = paths::kMetadataFolderName;
  const std::string path = place_.path + "/" + name;
  struct stat status {};
  if (source_.place().isRoot() || ::lstat(path.c_str(), &status) != 0) return;
  if (const Status removed = host::removeWithSubvolumes(place_.path, name); !removed) {
    throw failureOf(removed.error());
  }
}

DamageRecord VolumeWalk::damageOfReference() const {
  if (place_.reference.empty()) return {};
  DamageRecord damage = readDamage(place_.referenceRecords);
  if (damage.isUnreadable) {
    hostkit::printWarning("the record of damaged files in " + place_.reference +
                          " cannot be read: every file is copied afresh");
  }
  return damage;
}

void VolumeWalk::tellFalseHandOver(std::string_view path) const {
  if (!source_.isFalseHandOver(path)) return;
  hostkit::printWarning(source_.path() + "/" + std::string(path) +
                        ": left out: a snapshot holds the services' backup of \"/\" alone");
}

void VolumeWalk::noteTorn(const std::string& pathInVolume) {
  const std::string path = source_.place().hostPath(pathInVolume);
  if (manifest_.tornCount == 0) {
    hostkit::printNote(std::string("a file that is written all the time is saved by a dump of its "
                                   "own server; leave it out in ") +
                       hostkit::kExclusionFile);
  }
  if (manifest_.tornCount++ < kNamedItems) manifest_.torn.push_back(path);
  if (manifest_.tornCount <= kToldItems) {
    hostkit::printWarning("/" + path + ": changed whenever it was read (kept as read last)");
  }
}

bool VolumeWalk::goesOn(std::string_view pathInVolume, int error) {
  // Errors of the source cost the item, errors of the destination the snapshot.
  if (const int fault = work_.fault(error)) {
    fatal_ = fault;
    return false;
  }
  if (error == ENOENT) return true;  // It vanished: a later walk would not have seen it either.
  const std::string path = source_.place().hostPath(std::string(pathInVolume));
  noteMissing(manifest_, path, error);
  if (manifest_.missingCount <= kToldItems) {
    hostkit::printWarning(errorText("/" + path, error) + " (left out)");
  }
  return true;
}

VolumeRecord VolumeWalk::recordOf(const host::TreeCopyReport& report) const {
  VolumeRecord record;
  record += report;
  record.folder = source_.place().folder;
  record.mountPoint = source_.place().mountPoint;
  record.uuid = source_.uuid();
  record.type = source_.type();
  record.reference = place_.reference;
  return record;
}

void noteAbsentVolume(const SourceVolume& source, int error, Manifest& manifest) {
  const std::string& mountPoint = source.place().mountPoint;
  manifest.absentVolumes.push_back(mountPoint);
  noteMissing(manifest, mountPoint.substr(1), error);
  const std::string why = error == ENODEV ? "nothing is mounted there" : hostkit::errnoText(error);
  hostkit::printWarning("the volume at " + mountPoint + " is not in the snapshot: " + why);
}

void tellUnnamedItems(const Manifest& manifest) {
  if (manifest.missingCount > kToldItems) {
    hostkit::printWarning(std::to_string(manifest.missingCount) +
                          " items were left out in all; the snapshot's manifest names them");
  }
  if (manifest.tornCount > kToldItems) {
    hostkit::printWarning(std::to_string(manifest.tornCount) +
                          " files changed while they were read in all; the snapshot's manifest "
                          "names them");
  }
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/host_snapshots.h"

#include <algorithm>
#include <memory>

#include "base/property_list.h"
#include "base/text.h"
#include "common/incomplete_mark.h"
#include "common/paths.h"
#include "common/safe_folder.h"
#include "common/snapshot_choice.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/computer_name.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/snapshot_metadata.h"
#include "product/snapshot_name.h"
#include "product/stored_snapshots.h"

namespace halyard::hostkit {

namespace {

constexpr char kAbsentMark[] = "not-on-this-host";
constexpr mode_t kMarkMode = 0644;
using Reasons = std::vector<std::string>;

// Sorts the services of the metadata folder into those that are whole and the others.
void readServices(Snapshot& snapshot) {
  const bool isSigned = host::exists(joinPath(snapshot.metadataFolder, paths::kSignatureName));
  for (const std::string& entry : host::listDirectory(snapshot.metadataFolder)) {
    if (!host::isRealDirectory(joinPath(snapshot.metadataFolder, entry))) continue;
    auto reasons = incompleteReasons(snapshot.metadataFolder, entry).value_or(Reasons());
    if (!isSigned) reasons.emplace_back("the backup carries no signature: it was interrupted");
    if (snapshot.inProgress) reasons.emplace_back("the snapshot is not complete");
    const std::string absent = joinPath(joinPath(snapshot.metadataFolder, entry), kAbsentMark);
    const bool isAbsent = host::exists(absent);
    if (!isAbsent && !host::isAbsent(absent)) reasons.push_back(absent + " cannot be looked at");
    if (!reasons.empty()) {
      snapshot.incomplete.push_back({entry, std::move(reasons)});
    } else {
      (isAbsent ? snapshot.absent : snapshot.services).push_back(entry);
    }
  }
}

bool holdsAnything(const Snapshot& snapshot, const std::string& service) {
  return snapshot.holdsWhole(service) || snapshot.partOf(service) != nullptr;
}

}  // namespace

bool Snapshot::holdsWhole(const std::string& service) const {
  return std::find(services.begin(), services.end(), service) != services.end();
}

const IncompleteService* Snapshot::partOf(const std::string& service) const {
  const auto found =
      std::find_if(incomplete.begin(), incomplete.end(),
                   [&service](const IncompleteService& part) { return part.name == service; });
  return found == incomplete.end() ? nullptr : &*found;
}

std::string incompleteText(const IncompleteService& service, const Snapshot& snapshot) {
  std::string text = service.name + " is incomplete in " + snapshot.name;
  const char* separator = ": ";
  for (const std::string& reason : service.reasons) {
    text += separator + reason;
    separator = "; ";
  }
  return text;
}

Destination currentDestination() {
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  if (session) return {Destination::State::there, session->destination, ""};
  const auto preferences = host::readDictionary(paths::kEnginePreferenceFile);
  if (preferences && preferences->find(preference_keys::kBackupAlias) != nullptr) {
    return {Destination::State::notThere, "",
            "the backup destination is not there; is its volume connected, and mounted or in "
            "/etc/fstab? "
            "(see: helmsman destination --show)"};
  }
  return {Destination::State::notSet, "",
          "no backup destination is set (see: helmsman destination --list)"};
}

std::optional<std::string> backupDestination(std::string& problem) {
  Destination destination = currentDestination();
  if (destination.state == Destination::State::there) return std::move(destination.path);
  problem = std::move(destination.problem);
  return std::nullopt;
}

std::optional<std::int64_t> beginOf(const Snapshot& snapshot) {
  const auto instant = snapshotInstant(snapshot.name);
  if (!instant) return std::nullopt;
  return instant->time_since_epoch().count();
}

std::string snapshotFolder(const std::string& destination) {
  return hostSnapshotFolder(destination, computerName());
}

bool markAbsent(const std::string& metadataFolder, const std::string& service) {
  const Result<host::Descriptor> folder = openFolderSafely(joinPath(metadataFolder, service));
  return folder &&
         host::writeFileAt(folder->get(), kAbsentMark, "", host::Durability::power, kMarkMode);
}

Snapshot readSnapshot(const std::string& path) {
  Snapshot snapshot;
  snapshot.name = lastPathComponent(path);
  snapshot.path = path;
  snapshot.inProgress = isInProgress(snapshot.name);
  if (!snapshot.inProgress) snapshot.pin = readPin(path);
  snapshot.metadataFolder = findSnapshotMetadataFolder(path, [&](const std::string& volume) {
    const std::string folder = joinPath(path, volume) + paths::kMetadataFolder;
    snapshot.hasSignature =
        snapshot.hasSignature || host::exists(joinPath(folder, paths::kSignatureName));
  });
  if (!snapshot.metadataFolder.empty()) readServices(snapshot);
  return snapshot;
}

Snapshot readMetadataFolder(const std::string& folder) {
  Snapshot snapshot;
  snapshot.metadataFolder = folder;
  snapshot.hasSignature = host::exists(joinPath(folder, paths::kSignatureName));
  readServices(snapshot);
  return snapshot;
}

std::vector<Snapshot> snapshotsIn(const std::string& folder) {
  std::vector<Snapshot> snapshots;
  const std::string latest = host::realPath(joinPath(folder, paths::kLatestName)).value_or("");
  for (const std::string& name : host::listDirectory(folder)) {
    const std::string path = joinPath(folder, name);
    if (name == paths::kLatestName || name.starts_with('.') || !host::isDirectory(path)) continue;
    Snapshot snapshot = readSnapshot(path);
    const bool isForeign =
        !snapshot.inProgress && !beginOf(snapshot) && snapshot.metadataFolder.empty();
    if (isForeign) continue;
    snapshot.isLatest = !latest.empty() && host::realPath(path) == latest;
    snapshots.push_back(std::move(snapshot));
  }
  return snapshots;
}

std::optional<Snapshot> findSnapshot(const std::vector<Snapshot>& snapshots, std::string_view typed,
                                     std::string& problem) {
  if (typed.starts_with('/')) {
    const std::string path(typed);
    if (host::isDirectory(path)) return readSnapshot(path);
    problem = path + " is no folder";
    return std::nullopt;
  }
  std::vector<std::string> names;
  for (const Snapshot& snapshot : snapshots) names.push_back(snapshot.name);
  const auto name = chooseName(names, typed.empty() ? paths::kLatestName : typed, problem);
  if (name) return *std::ranges::find(snapshots, *name, &Snapshot::name);
  problem += " (see: helmsman snapshots)";
  return std::nullopt;
}

const Snapshot* newestWhole(const std::vector<Snapshot>& snapshots,
                            const std::vector<std::string>& services) {
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    if (!snapshot->inProgress && beginOf(*snapshot) &&
        std::all_of(services.begin(), services.end(),
                    [&](const std::string& service) { return snapshot->holdsWhole(service); })) {
      return &*snapshot;
    }
  }
  return nullptr;
}

std::optional<std::vector<Snapshot>> hostSnapshots(std::string& problem) {
  const auto destination = backupDestination(problem);
  if (!destination) return std::nullopt;
  return snapshotsIn(snapshotFolder(*destination));
}

std::optional<Snapshot> chooseSnapshotOf(const std::string& service, std::string_view typed,
                                         std::string& problem) {
  if (typed.empty() || equalsIgnoringCase(typed, paths::kLatestName)) {
    const auto snapshots = hostSnapshots(problem);
    if (!snapshots) return std::nullopt;
    if (const Snapshot* whole = newestWhole(*snapshots, {service})) return *whole;
    for (auto snapshot = snapshots->rbegin(); snapshot != snapshots->rend(); ++snapshot) {
      if (!snapshot->inProgress && holdsAnything(*snapshot, service)) return *snapshot;
    }
  }
  auto snapshot = chooseSnapshot(typed, problem);
  if (snapshot && !holdsAnything(*snapshot, service)) {
    problem = "the snapshot " + snapshot->name + " does not hold " + service;
    return std::nullopt;
  }
  return snapshot;
}

std::optional<Snapshot> chooseSnapshot(std::string_view typed, std::string& problem) {
  std::vector<Snapshot> snapshots;
  if (!typed.starts_with('/')) {
    const auto destination = backupDestination(problem);
    if (!destination) return std::nullopt;
    snapshots = snapshotsIn(snapshotFolder(*destination));
  }
  return findSnapshot(snapshots, typed, problem);
}

}  // namespace halyard::hostkit

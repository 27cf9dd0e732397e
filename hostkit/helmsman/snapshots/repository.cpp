#include "helmsman/snapshots/repository.h"

#include <cstdlib>
#include <memory>

#include "base/property_list.h"
#include "base/text.h"
#include "common/paths.h"
#include "common/safe_folder.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/computer_name.h"
#include "product/metadata_folder.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/snapshot_engine.h"
#include "product/snapshot_name.h"

namespace halyard::hostkit {

namespace {

constexpr char kAbsentMark[] = "not-on-this-host";
constexpr mode_t kMarkMode = 0644;

const Snapshot* newestComplete(const std::vector<Snapshot>& snapshots) {
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    if (!snapshot->inProgress) return &*snapshot;
  }
  return nullptr;
}

}  // namespace

std::optional<std::string> backupDestination(std::string& problem) {
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  if (session) return session->destination;
  const auto preferences = host::readDictionary(paths::kEnginePreferenceFile);
  problem = preferences && preferences->find(preference_keys::kBackupAlias) != nullptr
                ? "the backup destination is not there; is its volume connected? "
                  "(see: helmsman destination --show)"
                : "no backup destination is set (see: helmsman destination --list)";
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
  const host::Descriptor folder = openFolderSafely(joinPath(metadataFolder, service));
  return folder && replaceFile(folder, kAbsentMark, "", kMarkMode);
}

Snapshot readSnapshot(const std::string& path) {
  Snapshot snapshot;
  snapshot.name = lastPathComponent(path);
  snapshot.path = path;
  snapshot.inProgress = isInProgress(snapshot.name);
  snapshot.metadataFolder = findSnapshotMetadataFolder(path, [&](const std::string& volume) {
    const std::string folder = joinPath(path, volume) + paths::kMetadataFolder;
    snapshot.hasSignature =
        snapshot.hasSignature || host::exists(joinPath(folder, paths::kSignatureName));
  });
  if (snapshot.metadataFolder.empty()) return snapshot;
  for (const std::string& entry : host::listDirectory(snapshot.metadataFolder)) {
    if (!host::isDirectory(joinPath(snapshot.metadataFolder, entry))) continue;
    const bool absent =
        host::exists(joinPath(joinPath(snapshot.metadataFolder, entry), kAbsentMark));
    (absent ? snapshot.absent : snapshot.services).push_back(entry);
  }
  return snapshot;
}

std::vector<Snapshot> snapshotsIn(const std::string& folder) {
  std::vector<Snapshot> snapshots;
  const std::string latest = host::realPath(joinPath(folder, paths::kLatestName)).value_or("");
  for (const std::string& name : host::listDirectory(folder)) {
    const std::string path = joinPath(folder, name);
    if (name == paths::kLatestName || name.starts_with('.') || !host::isDirectory(path)) continue;
    Snapshot snapshot = readSnapshot(path);
    snapshot.isLatest = !latest.empty() && host::realPath(path) == latest;
    snapshots.push_back(std::move(snapshot));
  }
  return snapshots;
}

std::optional<Snapshot> findSnapshot(const std::vector<Snapshot>& snapshots, std::string_view typed,
                                     std::string& problem) {
  if (typed.empty() || equalsIgnoringCase(typed, paths::kLatestName)) {
    if (const Snapshot* newest = newestComplete(snapshots)) return *newest;
    problem = "there is no snapshot of this host yet";
    return std::nullopt;
  }
  if (typed.starts_with('/')) {
    const std::string path(typed);
    if (host::isDirectory(path)) return readSnapshot(path);
    problem = path + " is no folder";
    return std::nullopt;
  }
  const Snapshot* found = nullptr;
  int fitting = 0;
  for (const Snapshot& snapshot : snapshots) {
    if (snapshot.name == typed) return snapshot;
    if (!snapshot.name.starts_with(typed)) continue;
    found = &snapshot;
    ++fitting;
  }
  if (fitting == 1) return *found;
  problem = "'" + std::string(typed) + "' " +
            (fitting == 0 ? "is no snapshot of this host"
                          : "is the beginning of " + std::to_string(fitting) + " snapshots") +
            " (see: helmsman snapshots)";
  return std::nullopt;
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

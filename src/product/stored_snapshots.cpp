// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/stored_snapshots.h"

#include <string_view>

#include "base/property_list.h"
#include "base/text.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/files/sync.h"
#include "host/volumes/alias.h"
#include "host/volumes/subvolume.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/snapshot_name.h"

namespace halyard {

namespace {

/// Without trailing slashes and dots, which would lead through a link at the end.
std::string withoutTrail(std::string_view path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) path.remove_suffix(1);
  return std::string(path);
}

/// A snapshot's place: its host's folder in the repository, and its name there.
struct SnapshotPlace {
  std::string hostFolder;
  std::string name;
};

std::optional<SnapshotPlace> placeOf(const BackupSession& session, const std::string& path) {
  const std::string item = withoutTrail(path);
  if (!host::isRealDirectory(item)) return std::nullopt;
  const MaybeString real = host::realPath(item);
  const MaybeString destination = host::realPath(session.destination);
  if (!real || !destination) return std::nullopt;
  const std::string repository = appendPath(*destination, paths::kRepositoryName) + "/";
  if (!real->starts_with(repository)) return std::nullopt;
  const std::string_view inside = std::string_view(*real).substr(repository.size());
  const auto names = splitAt(inside, '/');
  if (names.size() != 2 || pathExtension(names[1]) == kInProgressExtension) return std::nullopt;
  return SnapshotPlace{repository + std::string(names[0]), std::string(names[1])};
}

/// The alias record, however the engine's preferences store it.
const std::string* aliasRecord(const PropertyDictionary& preferences) {
  const PropertyValue* value = preferences.find(preference_keys::kBackupAlias);
  if (value == nullptr) return nullptr;
  const std::string* bytes = value->asData();
  return bytes != nullptr ? bytes : value->asString();
}

}  // namespace

std::optional<BackupSession> defaultBackupSession(const std::string& enginePreferenceFile) {
  const auto preferences = host::readDictionary(enginePreferenceFile);
  const std::string* record = preferences ? aliasRecord(*preferences) : nullptr;
  if (record == nullptr) return std::nullopt;
  auto destination = host::resolveAlias(*record);
  if (!destination) return std::nullopt;
  return BackupSession{std::move(*destination)};
}

std::string hostSnapshotFolder(const MaybeString& destination, const std::string& computer) {
  return joinPath(joinPath(destination, paths::kRepositoryName), computer);
}

bool isSnapshot(const BackupSession& session, const std::string& path) {
  return placeOf(session, path).has_value();
}

std::int32_t DeleteSnapshot(const BackupSession& session, const std::string& path) {
  const auto place = placeOf(session, path);
  if (!place) return kNotASnapshot;
  const Status removed = host::removeWithSubvolumes(place->hostFolder, place->name);
  if (!removed) return removed.error().code;
  // All of the file system: a subvolume goes by its next commit, not by a sync of the folder.
  return host::syncFileSystem(place->hostFolder).error().code;
}

}  // namespace halyard

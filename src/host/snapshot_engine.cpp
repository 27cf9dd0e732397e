#include "host/snapshot_engine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "host/alias.h"
#include "host/descriptor.h"
#include "host/property_list.h"
#include "host/remove_tree.h"
#include "host/subvolume.h"
#include "host/text.h"

namespace halyard::host {

namespace {

constexpr const char* kRepository = "Archives.snapdb";

/// Without symbolic links; absent when it leads nowhere.
MaybeString realPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         std::free);
  if (!real) return std::nullopt;
  return std::string(real.get());
}

/// Without trailing slashes and dots, which would lead through a link at the end.
std::string withoutTrail(std::string_view path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) path.remove_suffix(1);
  return std::string(path);
}

bool isRealFolder(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A snapshot's place: its host's folder in the repository, and its name there.
struct SnapshotPlace {
  std::string hostFolder;
  std::string name;
};

std::optional<SnapshotPlace> placeOf(const BackupSession& session, const std::string& path) {
  const std::string item = withoutTrail(path);
  if (!isRealFolder(item)) return std::nullopt;
  const MaybeString real = realPath(item);
  const MaybeString destination = realPath(session.destination);
  if (!real || !destination) return std::nullopt;
  const std::string repository = appendPath(*destination, kRepository) + "/";
  if (!real->starts_with(repository)) return std::nullopt;
  const std::string_view inside = std::string_view(*real).substr(repository.size());
  const auto names = splitAt(inside, '/');
  if (names.size() != 2 || pathExtension(names[1]) == kInProgressExtension) return std::nullopt;
  return SnapshotPlace{repository + std::string(names[0]), std::string(names[1])};
}

/// The alias record, however the engine's preferences store it.
const std::string* aliasRecord(const PropertyDictionary& preferences) {
  const PropertyValue* value = preferences.find("BackupAlias");
  if (value == nullptr) return nullptr;
  const std::string* bytes = value->asData();
  return bytes != nullptr ? bytes : value->asString();
}

}  // namespace

std::optional<BackupSession> defaultBackupSession(const std::string& enginePreferenceFile) {
  const auto preferences = readDictionary(enginePreferenceFile);
  const std::string* record = preferences ? aliasRecord(*preferences) : nullptr;
  if (record == nullptr) return std::nullopt;
  auto destination = resolveAlias(*record);
  if (!destination) return std::nullopt;
  return BackupSession{std::move(*destination)};
}

bool isSnapshot(const BackupSession& session, const std::string& path) {
  return placeOf(session, path).has_value();
}

std::int32_t DeleteSnapshot(const BackupSession& session, const std::string& path) {
  const auto place = placeOf(session, path);
  if (!place) return kNotASnapshot;
  const Descriptor folder(
      ::open(place->hostFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) return errno;
  if (destroySubvolumes(folder.get(), place->name)) return 0;
  return removeTreeAt(folder.get(), place->name);
}

}  // namespace halyard::host

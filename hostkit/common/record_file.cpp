// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/text.h"
#include "common/safe_folder.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/volumes/subvolume.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kRecordMode = 0600;
constexpr std::string_view kVolumeRecords = "volumes";

}  // namespace

RecordPlace::RecordPlace(const std::string& snapshotPath, const std::string& furtherVolume)
    : snapshot_(snapshotPath), below_(kRecordFolder) {
  if (!furtherVolume.empty()) below_ += "/" + std::string(kVolumeRecords) + "/" + furtherVolume;
}

host::Descriptor RecordPlace::open() const {
  host::Descriptor folder(host::uninterrupted(
      [&] { return ::open(snapshot_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  for (const std::string_view name : splitAt(below_, '/')) {
    if (!folder) break;
    folder = host::Descriptor(host::uninterrupted(
        [&] { return ::openat(folder.get(), std::string(name).c_str(), host::kFolderFlags); }));
  }
  return folder;
}

RecordFile readRecordFile(const RecordPlace& place, const std::string& name, std::size_t limit) {
  const host::Descriptor folder = place.open();
  if (!folder) return {errno != ENOENT, std::nullopt};
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {errno != ENOENT, std::nullopt};
  }
  return {true, hostkit::readFileSafely(folder, name, limit)};
}

Status writeRecordFile(const RecordPlace& place, const std::string& name, std::string_view bytes) {
  const host::Descriptor folder = place.open();
  if (!folder) return Error{errno, place.path()};
  struct stat status {};
  const bool isFolder = ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISDIR(status.st_mode);
  if (isFolder) {
    if (Status removed = host::removeWithSubvolumes(folder.get(), name); !removed) return removed;
  }
  return host::writeFileAt(folder.get(), name, bytes, host::Durability::power, kRecordMode);
}

Status removeRecordFile(const RecordPlace& place, const std::string& name) {
  const host::Descriptor folder = place.open();
  if (!folder) return outcomeOf(errno == ENOENT ? 0 : errno, place.path());
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return outcomeOf(errno == ENOENT ? 0 : errno, place.path(name));
  }
  if (Status removed = host::removeWithSubvolumes(folder.get(), name); !removed) return removed;
  return host::syncFolder(folder.get());
}

}  // namespace halyard::hostkit

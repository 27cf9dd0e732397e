// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "common/safe_folder.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/volumes/subvolume.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kRecordMode = 0600;

std::string folderOf(const std::string& snapshotPath) {
  return snapshotPath + "/" + std::string(kRecordFolder);
}

host::Descriptor openRecords(const std::string& snapshotPath) {
  return host::Descriptor(::open(folderOf(snapshotPath).c_str(), host::kFolderFlags));
}

}  // namespace

std::string recordPath(const std::string& snapshotPath, const std::string& name) {
  return folderOf(snapshotPath) + "/" + name;
}

RecordFile readRecordFile(const std::string& snapshotPath, const std::string& name,
                          std::size_t limit) {
  const host::Descriptor folder = openRecords(snapshotPath);
  if (!folder) return {errno != ENOENT, std::nullopt};
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {errno != ENOENT, std::nullopt};
  }
  return {true, hostkit::readFileSafely(folder, name, limit)};
}

Status writeRecordFile(const std::string& snapshotPath, const std::string& name,
                       std::string_view bytes) {
  const host::Descriptor folder = openRecords(snapshotPath);
  if (!folder) return Error{errno, folderOf(snapshotPath)};
  struct stat status {};
  const bool isFolder = ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISDIR(status.st_mode);
  if (isFolder) {
    if (Status removed = host::removeWithSubvolumes(folder.get(), name); !removed) return removed;
  }
  return host::writeFileAt(folder.get(), name, bytes, host::Durability::power, kRecordMode);
}

Status removeRecordFile(const std::string& snapshotPath, const std::string& name) {
  const host::Descriptor folder = openRecords(snapshotPath);
  if (!folder) return outcomeOf(errno == ENOENT ? 0 : errno, folderOf(snapshotPath));
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return outcomeOf(errno == ENOENT ? 0 : errno, recordPath(snapshotPath, name));
  }
  if (Status removed = host::removeWithSubvolumes(folder.get(), name); !removed) return removed;
  return host::syncFolder(folder.get());
}

}  // namespace halyard::hostkit

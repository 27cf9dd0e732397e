// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/repository.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <iterator>

#include "base/text.h"
#include "common/paths.h"
#include "common/snapshot_choice.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/tree/folder_entries.h"
#include "product/computer_name.h"
#include "product/paths.h"
#include "snapwheel/failure.h"
#include "snapwheel/snapshot_volumes.h"

namespace halyard::snapwheel {

namespace {

constexpr mode_t kRepositoryMode = 0775;
constexpr mode_t kHostFolderMode = 0750;

/// Opens a folder in another one, or at a path when that is AT_FDCWD; follows no link.
host::Descriptor openFolder(int above, const std::string& name, const std::string& path) {
  host::Descriptor folder(
      host::uninterrupted([&] { return ::openat(above, name.c_str(), host::kFolderFlags); }));
  if (!folder && (errno == ELOOP || errno == ENOTDIR)) {
    throw Failure(path + " is a link, or no folder: a repository holds none in its place");
  }
  if (!folder) throw Failure(errorText(path, errno));
  return folder;
}

host::Descriptor makeFolder(int above, const std::string& name, mode_t mode,
                            const std::string& path) {
  const bool isNew = ::mkdirat(above, name.c_str(), mode) == 0;
  if (!isNew && errno != EEXIST) throw Failure(errorText(path, errno));
  host::Descriptor folder = openFolder(above, name, path);
  if (isNew && ::fchmod(folder.get(), mode) != 0) throw Failure(errorText(path, errno));
  return folder;
}

/// What others could change at any moment is no place for root to work in. `mode` is how the folder
/// is made: a group that may write there by that is one of administrators.
void refuseUnlessOwn(int folder, mode_t mode, const std::string& path) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) throw Failure(errorText(path, errno));
  const mode_t others = (status.st_gid == 0 ? S_IWOTH : S_IWOTH | S_IWGRP) & ~mode;
  if (status.st_uid == 0 && (status.st_mode & others) == 0) return;
  throw Failure(path + " can be changed by others than root (see: chown root:root, chmod go-w)");
}

/// Whether anything has this name. What cannot be looked at does.
bool stands(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

bool isRealDirectory(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The same of a name that was listed. Throws Failure when that cannot be told: a snapshot that
/// cannot be looked at is no foreign item.
bool isListedDirectory(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
  if (errno != ENOENT) throw Failure(errorText(path, errno));
  return false;  // It was removed meanwhile.
}

}  // namespace

HostFolderListing sortNames(const std::vector<std::string>& names) {
  HostFolderListing listing;
  for (const std::string& name : names) {
    if (name == paths::kLatestName || name == kLockFile || name == hostkit::kMachineRecordName)
      continue;
    if (isInProgress(name)) {
      listing.inProgress.push_back(name);
    } else if (snapshotInstant(name)) {
      listing.snapshots.push_back(name);
    } else {
      listing.foreign.push_back(name);
    }
  }
  return listing;
}

Repository::Repository(std::string destination, std::string computerName)
    : destination_(std::move(destination)),
      computerName_(std::move(computerName)),
      hostFolder_(folder() + "/" + computerName_) {
  if (!isUsableComputerName(computerName_)) {
    throw Failure("\"" + computerName_ + "\" cannot be the name of a folder", hostkit::kUsageError);
  }
}

std::string Repository::folder() const { return appendPath(destination_, paths::kRepositoryName); }

std::string Repository::path(std::string_view name) const {
  return hostFolder_ + "/" + std::string(name);
}

void Repository::create() const {
  const host::Descriptor volume(::open(destination_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!volume) throw Failure(errorText(destination_, errno));
  const host::Descriptor all =
      makeFolder(volume.get(), paths::kRepositoryName, kRepositoryMode, folder());
  refuseUnlessOwn(all.get(), kRepositoryMode, folder());
  const host::Descriptor own = makeFolder(all.get(), computerName_, kHostFolderMode, hostFolder_);
  refuseUnlessOwn(own.get(), kHostFolderMode, hostFolder_);
}

host::Descriptor Repository::open() const {
  const host::Descriptor all = openFolder(AT_FDCWD, folder(), folder());
  return openFolder(all.get(), computerName_, hostFolder_);
}

HostFolderListing Repository::list() const {
  if (!stands(folder()) || !stands(hostFolder_)) return {};  // The first snapshot makes them.
  const host::Descriptor folder = open();
  std::vector<std::string> names;
  host::FolderReader reader;
  std::vector<host::FolderEntry> entries;
  do {
    if (const int error = reader.next(folder.get(), entries)) {
      throw Failure(errorText(hostFolder_, error));
    }
    for (const host::FolderEntry& entry : entries) names.emplace_back(entry.name);
  } while (!entries.empty());
  std::sort(names.begin(), names.end());

  HostFolderListing listing = sortNames(names);
  const auto misplaced = std::stable_partition(
      listing.snapshots.begin(), listing.snapshots.end(),
      [this](const std::string& name) { return isListedDirectory(path(name)); });
  // One that was removed since the folder was read is nothing at all.
  std::copy_if(misplaced, listing.snapshots.end(), std::back_inserter(listing.foreign),
               [this](const std::string& name) { return stands(path(name)); });
  listing.snapshots.erase(misplaced, listing.snapshots.end());
  std::sort(listing.foreign.begin(), listing.foreign.end());
  return listing;
}

std::string Repository::find(const std::string& word) const {
  const std::vector<std::string> snapshots = list().snapshots;
  std::string name = word;
  if (word.find('/') != std::string::npos) {
    name = lastPathComponent(word);
    struct stat given {};
    struct stat meant {};
    const bool same = ::stat(word.c_str(), &given) == 0 &&
                      ::stat(path(name).c_str(), &meant) == 0 && given.st_ino == meant.st_ino &&
                      given.st_dev == meant.st_dev;
    if (!same) throw Failure(word + " is no snapshot of " + hostFolder_);
  }
  std::string problem;
  if (auto found = hostkit::chooseName(snapshots, name, problem)) return *found;
  throw Failure(problem + " in " + hostFolder_);
}

std::optional<std::string> Repository::latest() const {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlink(path(paths::kLatestName).c_str(), target.data(), target.size());
  if (length < 0) return std::nullopt;
  return std::string(target.data(), static_cast<std::size_t>(length));
}

Status Repository::setLatest(const std::string& name) const {
  const std::string link = path(paths::kLatestName);
  if (name.empty()) {
    if (::unlink(link.c_str()) != 0 && errno != ENOENT) return Error{errno, link};
    return host::syncFolder(hostFolder_);
  }
  const std::string fresh = link + std::string(kInProgress);
  (void)::unlink(fresh.c_str());  // Of a run that was cut off here.
  if (::symlink(name.c_str(), fresh.c_str()) != 0) return Error{errno, link};
  if (::rename(fresh.c_str(), link.c_str()) != 0) {
    const int error = errno;
    (void)::unlink(fresh.c_str());
    return Error{error, link};
  }
  return host::syncFolder(hostFolder_);
}

std::vector<std::string> Repository::computers() const {
  std::vector<std::string> names;
  for (std::string& name : host::listDirectory(folder())) {
    if (name.front() != '.' && isRealDirectory(appendPath(folder(), name))) {
      names.push_back(std::move(name));
    }
  }
  return names;
}

std::string volumeFolder(const std::string& snapshotPath) {
  const auto volumes = volumesOf(snapshotPath);
  return volumes.empty() ? std::string() : volumes.front().folder;
}

}  // namespace halyard::snapwheel

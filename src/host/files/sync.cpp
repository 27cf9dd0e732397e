// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/sync.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "host/files/descriptor.h"
#include "host/files/location.h"
#include "host/files/system_call.h"

namespace halyard::host {

namespace {

/// Opens a regular file or a folder. Anything else is not even opened: that alone starts some
/// devices, and waits at a FIFO.
Descriptor openItem(const std::string& path) {
  struct stat status = {};
  if (errorOf([&] { return ::stat(path.c_str(), &status); }) != 0) return {};
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = EINVAL;
    return {};
  }
  return Descriptor(uninterrupted(
      [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
}

int syncFileSystemOf(int item) {
  return errorOf([&] { return ::syncfs(item); });
}

}  // namespace

Status syncFileSystem(int item) { return outcomeOf(syncFileSystemOf(item), "the file system"); }

Status syncFileSystem(const std::string& path) {
  const Descriptor item = openItem(path);
  return outcomeOf(item ? syncFileSystemOf(item.get()) : errno, path);
}

Status syncFileSystems(const std::vector<std::string>& paths) {
  Status outcome;
  std::vector<dev_t> done;
  for (const std::string& path : paths) {
    const Descriptor item = openItem(path);
    struct stat status = {};
    if (!item || errorOf([&] { return ::fstat(item.get(), &status); }) != 0) continue;
    if (std::ranges::find(done, status.st_dev) != done.end()) continue;
    done.push_back(status.st_dev);
    const int error = syncFileSystemOf(item.get());
    if (error != 0 && outcome) outcome = Error{error, path};
  }
  return outcome;
}

Status syncFolder(int folder) {
  const Descriptor readable(uninterrupted([&] { return ::openat(folder, ".", kFolderFlags); }));
  const int error = readable ? errorOf([&] { return ::fsync(readable.get()); }) : errno;
  return outcomeOf(error == EINVAL ? 0 : error, "the folder");
}

Status syncFolder(const std::string& path) {
  const Descriptor folder(
      uninterrupted([&] { return ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  if (!folder) return Error{errno, path};
  return outcomeOf(syncFolder(folder.get()).error().code, path);
}

Status syncFolderOf(const std::string& path) {
  const Result<Location> place = locate(path);
  if (!place) return place.error();
  return outcomeOf(syncFolder(place->folder.get()).error().code, path);
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/files.h"

#include <dirent.h>
#include <grp.h>
#include <linux/limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "host/files/location.h"
#include "host/files/rename_item.h"
#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/files/umask.h"

namespace halyard::host {

namespace {

constexpr mode_t kPermissionBits = 07777;

int statusError(const std::string& path, struct stat& status) {
  return errorOf([&] { return ::stat(path.c_str(), &status); });
}

bool readStatus(const std::string& path, struct stat& status) {
  return statusError(path, status) == 0;
}

/// Opens what is a regular file or a link to one. Anything else is not even opened: that alone
/// starts some devices, and waits at a FIFO.
Result<Descriptor> openRegularFile(const std::string& path, int flags) {
  struct stat status = {};
  if (const int error = statusError(path, status)) return Error{error, path};
  if (!S_ISREG(status.st_mode)) return Error{EINVAL, path};
  Descriptor file(uninterrupted(
      [&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) return Error{errno, path};
  // It may have been replaced between the look and the opening.
  if (const int error = errorOf([&] { return ::fstat(file.get(), &status); })) {
    return Error{error, path};
  }
  if (!S_ISREG(status.st_mode)) return Error{EINVAL, path};
  return Result<Descriptor>(std::move(file));
}

void setOwner(int item, uid_t owner, gid_t group) {
  constexpr auto kUnchangedOwner = static_cast<uid_t>(-1);
  constexpr auto kUnchangedGroup = static_cast<gid_t>(-1);
  if (errorOf([&] { return ::fchown(item, owner, group); }) == 0) return;
  // One of the two may be allowed where both are not; a refusal is the caller's wish to ignore.
  (void)errorOf([&] { return ::fchown(item, kUnchangedOwner, group); });
  (void)errorOf([&] { return ::fchown(item, owner, kUnchangedGroup); });
}

}  // namespace

bool exists(const std::string& path) {
  struct stat status = {};
  return readStatus(path, status);
}

bool isAbsent(const std::string& path) {
  struct stat status = {};
  const int error = statusError(path, status);
  return error == ENOENT || error == ENOTDIR;
}

bool isDirectory(const std::string& path) {
  struct stat status = {};
  return readStatus(path, status) && S_ISDIR(status.st_mode);
}

bool isRealDirectory(const std::string& path) {
  struct stat status = {};
  return errorOf([&] { return ::lstat(path.c_str(), &status); }) == 0 && S_ISDIR(status.st_mode);
}

bool isSymbolicLink(const std::string& path) {
  struct stat status = {};
  return errorOf([&] { return ::lstat(path.c_str(), &status); }) == 0 && S_ISLNK(status.st_mode);
}

std::optional<std::string> realPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  if (!real) return std::nullopt;
  return std::string(real.get());
}

std::string realPathAsFarAsItLeads(const std::string& path) {
  std::array<char, PATH_MAX> real{};
  (void)!::realpath(path.c_str(), real.data());  // The C library of GNU leaves that much behind.
  return real.data();
}

bool isExecutableFile(const std::string& path) {
  struct stat status = {};
  return readStatus(path, status) && S_ISREG(status.st_mode) &&
         errorOf([&] { return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS); }) == 0;
}

std::optional<Attributes> readAttributes(const std::string& path) {
  struct stat status = {};
  if (!readStatus(path, status)) return std::nullopt;
  return Attributes{status.st_uid, status.st_gid, status.st_mode & kPermissionBits};
}

bool createDirectory(const std::string& path) {
  return errorOf([&] { return ::mkdir(path.c_str(), 0777); }) == 0;
}

bool createDirectory(const std::string& path, const Attributes& attributes) {
  const Result<Location> place = locate(path);
  if (!place) return false;
  const int parent = place->folder.get();
  // Closed to others until it belongs to its owner, and named only then: no later run would correct
  // a folder that a killed one left half made.
  const std::string unfinished = temporaryName();
  if (errorOf([&] { return ::mkdirat(parent, unfinished.c_str(), 0700); }) != 0) return false;
  const Descriptor folder(
      uninterrupted([&] { return ::openat(parent, unfinished.c_str(), kFolderFlags); }));
  if (folder) {
    setOwner(folder.get(), attributes.owner, attributes.group);
    // Last: a change of owner may take bits away.
    if (errorOf([&] { return ::fchmod(folder.get(), attributes.permissions); }) == 0 &&
        renameWithoutReplacing(parent, unfinished, parent, place->name) == 0) {
      return true;
    }
  }
  (void)errorOf([&] { return ::unlinkat(parent, unfinished.c_str(), AT_REMOVEDIR); });
  return false;
}

bool createDirectory(const std::string& path, const NamedAttributes& attributes) {
  Attributes known{static_cast<uid_t>(-1), static_cast<gid_t>(-1), attributes.permissions};
  // These two grow their buffers themselves: a group may have thousands of members.
  if (const passwd* owner = ::getpwnam(attributes.owner.c_str())) known.owner = owner->pw_uid;
  if (const group* group = ::getgrnam(attributes.group.c_str())) known.group = group->gr_gid;
  return createDirectory(path, known);
}

std::vector<std::string> listDirectory(const std::string& path) {
  std::vector<std::string> names;
  (void)listDirectory(path, names);  // What cannot be listed is left out.
  return names;
}

Status listDirectory(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  DIR* opened = nullptr;
  do {
    errno = 0;
    opened = ::opendir(path.c_str());
  } while (opened == nullptr && errno == EINTR);
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opened, ::closedir);
  if (!folder) return Error{errno, path};
  int error = 0;
  for (;;) {
    errno = 0;
    const struct dirent* entry = ::readdir(folder.get());
    if (entry == nullptr && errno == EINTR) continue;
    if (entry == nullptr) {
      error = errno;
      break;
    }
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  std::ranges::sort(names);
  return error == 0 ? Status() : Error{error, path};
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit) {
  const Result<Descriptor> opened = openRegularFile(path, O_RDONLY);
  if (!opened) return std::nullopt;
  const Descriptor& file = *opened;
  std::string bytes;
  struct stat status = {};
  // The size is only a hint, so that a large file is held once: files of the kernel have none.
  if (errorOf([&] { return ::fstat(file.get(), &status); }) == 0) {
    bytes.reserve(std::min(limit, static_cast<std::size_t>(status.st_size)));
  }
  std::array<char, 65536> piece;
  for (;;) {
    const auto got = uninterrupted([&] { return ::read(file.get(), piece.data(), piece.size()); });
    if (got < 0) return std::nullopt;
    if (got == 0) return bytes;
    if (bytes.size() + static_cast<std::size_t>(got) > limit) return std::nullopt;
    bytes.append(piece.data(), static_cast<std::size_t>(got));
  }
}

Status createOrEmptyFile(const std::string& path, mode_t mode) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const Descriptor created(
      uninterrupted([&] { return ::open(path.c_str(), kFlags | O_EXCL | O_NOFOLLOW, mode); }));
  if (created) return outcomeOf(errorOf([&] { return ::fchmod(created.get(), mode); }), path);
  if (errno != EEXIST) return Error{errno, path};

  if (!exists(path)) {
    // A link that leads to no file yet.
    const ScopedUmask exact(0);
    const Descriptor beyond(uninterrupted([&] { return ::open(path.c_str(), kFlags, mode); }));
    return outcomeOf(beyond ? 0 : errno, path);
  }
  const Result<Descriptor> file = openRegularFile(path, O_RDWR);
  if (!file) return file.error();
  return outcomeOf(errorOf([&] { return ::ftruncate(file->get(), 0); }), path);
}

AppendFile::AppendFile(const std::string& path) {
  Result<Descriptor> file = openRegularFile(path, O_WRONLY | O_APPEND);
  if (file) descriptor_ = std::move(*file);
}

void AppendFile::append(std::string_view bytes) const {
  if (!descriptor_) return;
  (void)uninterrupted([&] { return ::write(descriptor_.get(), bytes.data(), bytes.size()); });
}

}  // namespace halyard::host

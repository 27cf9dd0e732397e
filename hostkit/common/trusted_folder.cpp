// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/trusted_folder.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <utility>

#include "base/text.h"
#include "host/files/system_call.h"

namespace halyard::hostkit {

namespace {

constexpr int kLongestWay = 256;  // Of components, links resolved.

bool isRootsAlone(int folder) {
  struct stat status {};
  return ::fstat(folder, &status) == 0 && status.st_uid == 0 &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Where a link of root's leads.
Result<std::string> readTrustedLink(int folder, const std::string& name) {
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return Error{errno, name};
  }
  if (!S_ISLNK(status.st_mode)) return Error{ENOTDIR, name};
  if (status.st_uid != 0 || !isRootsAlone(folder)) return Error{ELOOP, name};
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(folder, name.c_str(), text.data(), text.size());
  if (length <= 0) return Error{length < 0 ? errno : ENOENT, name};
  return std::string(text.data(), static_cast<std::size_t>(length));
}

void putInFront(std::deque<std::string>& names, const std::string& path) {
  std::deque<std::string> front;
  for (const std::string_view name : splitAt(path, '/')) {
    if (!name.empty() && name != ".") front.emplace_back(name);
  }
  names.insert(names.begin(), front.begin(), front.end());
}

// Goes down the names from the root folder.
Result<host::Descriptor> openOnTheWay(std::deque<std::string> names, const std::string& path) {
  host::Descriptor folder(::open("/", host::kFolderFlags));
  if (!folder) return Error{errno, path};
  for (int steps = 0; !names.empty(); ++steps) {
    const std::string name = names.front();
    names.pop_front();
    host::Descriptor next(::openat(folder.get(), name.c_str(), host::kFolderFlags));
    if (!next && (errno == ELOOP || errno == ENOTDIR)) {
      if (steps > kLongestWay) return Error{ELOOP, path};
      const Result<std::string> target = readTrustedLink(folder.get(), name);
      if (!target) return Error{target.error().code, path};
      putInFront(names, *target);
      if (!target->starts_with('/')) continue;
      next = host::Descriptor(::open("/", host::kFolderFlags));
    }
    if (!next) return Error{errno, path};
    folder = std::move(next);
  }
  return folder;
}

}  // namespace

Result<TrustedPlace> trustedPlace(const std::string& path) {
  std::deque<std::string> names;
  putInFront(names, path);
  if (!path.starts_with('/') || names.empty()) return Error{EINVAL, path};
  std::string name = names.back();
  names.pop_back();
  Result<host::Descriptor> folder = openOnTheWay(std::move(names), path);
  if (!folder) return folder.error();
  return TrustedPlace{std::move(*folder), std::move(name)};
}

Result<host::Descriptor> openTrustedFolder(const std::string& path) {
  if (!path.starts_with('/')) return Error{EINVAL, path};
  std::deque<std::string> names;
  putInFront(names, path);
  return openOnTheWay(std::move(names), path);
}

}  // namespace halyard::hostkit

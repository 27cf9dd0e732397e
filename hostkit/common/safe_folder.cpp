// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/safe_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/text.h"
#include "host/files/system_call.h"

namespace halyard::hostkit {

Result<host::Descriptor> openFolderSafely(const std::string& path) {
  if (!path.starts_with('/')) return Error{EINVAL, path};
  host::Descriptor folder(::open("/", host::kFolderFlags));
  for (const std::string_view component : splitAt(path, '/')) {
    if (!folder) break;
    if (component.empty() || component == ".") continue;
    folder = host::Descriptor(
        ::openat(folder.get(), std::string(component).c_str(), host::kFolderFlags));
  }
  if (!folder) return Error{errno, path};
  return folder;
}

std::optional<std::string> readFileSafely(const host::Descriptor& folder, const std::string& name,
                                          std::size_t limit) {
  const host::Descriptor file(
      ::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string bytes(limit + 1, '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t got = host::uninterrupted(
        [&] { return ::read(file.get(), bytes.data() + length, bytes.size() - length); });
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > limit) return std::nullopt;
  bytes.resize(length);
  return bytes;
}

}  // namespace halyard::hostkit

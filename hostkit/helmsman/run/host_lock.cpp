// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/host_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/text.h"
#include "common/paths.h"
#include "common/times.h"
#include "common/waiting.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kFolderMode = 0755;
// Whoever may open it may lock it.
constexpr mode_t kLockMode = 0600;
constexpr std::size_t kHolderLimit = 256;

// It belongs to the open file, so that the kernel lets go of it with the last descriptor.
struct flock exclusive(off_t start, off_t length) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;  // 0 reaches to the end.
  return lock;
}

}  // namespace

Result<host::Descriptor> lockHost(HostUse use, const std::string& command) {
  if (const Status made = makeFolders(kRunStateFolder, kFolderMode); !made) return made.error();
  host::Descriptor file(::open(kRunLock, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
  if (!file) return Error{errno, kRunLock};
  (void)::fchmod(file.get(), kLockMode);  // One of an earlier version.
  struct flock lock = exclusive(use == HostUse::backup ? 0 : 1, 0);
  int error = 0;
  const auto attempt = [&] {
    error = ::fcntl(file.get(), F_OFD_SETLK, &lock) == 0 ? 0 : errno;
    return error != EACCES && error != EAGAIN;
  };
  if (!waitFor(attempt, [] { return hostHolder().text; })) return Error{EAGAIN, kRunLock};
  if (error != 0) return Error{error, kRunLock};
  const std::string holder =
      "helmsman " + command + " (process " + std::to_string(::getpid()) + ")\n";
  // Only told to others: a failure costs them the name.
  if (::ftruncate(file.get(), 0) == 0) {
    (void)!::pwrite(file.get(), holder.data(), holder.size(), 0);
  }
  return file;
}

HostHolder hostHolder() {
  const std::string text = host::readFile(kRunLock, kHolderLimit).value_or("");
  HostHolder holder{std::string(trimLineFeeds(text)), {}};
  if (holder.text.empty()) holder.text = "another helmsman";
  struct stat status {};
  if (::stat(kRunLock, &status) == 0) {
    holder.since = std::chrono::seconds(secondsNow() - status.st_mtim.tv_sec);
  }
  return holder;
}

}  // namespace halyard::hostkit

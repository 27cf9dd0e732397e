// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/snapshot_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "base/text.h"
#include "common/waiting.h"
#include "host/files/files.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

constexpr mode_t kLockMode = 0600;
constexpr std::string_view kLockName = "snapwheel.lock";

/// The text that the holder left: its process and, across machines, its host.
std::string holder(int descriptor) {
  std::array<char, 256> text{};
  const ssize_t length = ::pread(descriptor, text.data(), text.size() - 1, 0);
  if (length <= 0) return "another process";
  return std::string(trimLineFeeds({text.data(), static_cast<std::size_t>(length)}));
}

void leaveName(int descriptor) {
  std::array<char, 128> name{};
  (void)::gethostname(name.data(), name.size() - 1);  // An unnamed host is known by its process.
  const std::string text =
      "process " + std::to_string(::getpid()) + " on " + std::string(name.data()) + "\n";
  // Only told to others who find the lock held: a failure costs them the name.
  if (::ftruncate(descriptor, 0) == 0) {
    (void)!::pwrite(descriptor, text.data(), text.size(), 0);
  }
}

host::Descriptor lock(const std::string& path) {
  host::Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
  if (!file) throw Failure(errorText(path, errno));
  int error = 0;
  const auto attempt = [&] {
    error = ::flock(file.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
    return error != EWOULDBLOCK;
  };
  (void)hostkit::waitFor(attempt, [&] { return holder(file.get()); });
  if (error != 0) {
    if (error == EWOULDBLOCK) {
      throw Failure("a snapshot is being made or removed by " + holder(file.get()) + " (" + path +
                        " is locked)",
                    hostkit::kBusy);
    }
    // A file system without locks: the machine's own lock still holds.
    if (error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS) return file;
    throw Failure(errorText(path, error));
  }
  leaveName(file.get());
  return file;
}

}  // namespace

std::string SnapshotLock::defaultMachineLock() {
  for (const char* folder : {"/run", "/private/var/run", "/var/run"}) {
    if (host::isDirectory(folder)) return joinPath(folder, std::string(kLockName));
  }
  return joinPath("/tmp", std::string(kLockName));
}

SnapshotLock::SnapshotLock(const Repository& repository, const std::string& machineLock)
    : machine_(lock(machineLock)), repository_(lock(repository.path(kLockFile))) {}

}  // namespace halyard::snapwheel

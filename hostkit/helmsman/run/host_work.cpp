// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/host_work.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "common/exit_status.h"
#include "common/messages.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/run/host_lock.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

ino_t inodeAt(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Never in place of another one, and never seen half written.
Status makePidFile(const std::string& text, ino_t& inode) {
  const std::string own = std::string(paths::kPidFile) + "." + std::to_string(::getpid());
  if (Status written = host::writeFile(own, text); !written) return written;
  inode = inodeAt(own);
  const int error = ::link(own.c_str(), paths::kPidFile) == 0 ? 0 : errno;
  (void)::unlink(own.c_str());
  return outcomeOf(error, paths::kPidFile);
}

}  // namespace

std::optional<HostWork> HostWork::begin(const std::string& command, int& status) {
  Result<host::Descriptor> lock = lockHost(HostUse::change, command);
  if (lock) return HostWork(command, std::move(*lock));
  status = lock.error().code == EAGAIN ? kBusy : kFailure;
  if (status == kFailure) {
    printError(lock.error().tried + ": " + errnoText(lock.error().code));
  } else {
    printError(isHeldByBackup() ? "a backup is running (see: helmsman status)"
                                : hostHolder().text + " is running");
  }
  return std::nullopt;
}

HostWork::HostWork(HostWork&& other) noexcept
    : command_(std::move(other.command_)),
      lock_(std::move(other.lock_)),
      pidFile_(std::exchange(other.pidFile_, 0)) {}

HostWork::~HostWork() {
  if (pidFile_ != 0 && inodeAt(paths::kPidFile) == pidFile_) (void)::unlink(paths::kPidFile);
}

bool HostWork::keepHalyardOut(int& status) {
  if (!noHalyardRuns(status)) return false;
  const Status made = makePidFile(
      std::to_string(::getpid()) + texts::kSeparator + "helmsman " + command_ + "\n", pidFile_);
  if (made) return true;
  pidFile_ = 0;
  if (made.error().code == ENOENT) return true;  // Halyard was never set up, and does nothing.
  if (made.error().code == EEXIST && !noHalyardRuns(status)) return false;
  printError("Halyard could not be kept out: " + errnoText(made.error().code));
  status = kFailure;
  return false;
}

}  // namespace halyard::hostkit

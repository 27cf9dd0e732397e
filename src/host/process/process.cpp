// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/process/process.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace halyard::host {

void prepareProcess() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (::fcntl(number, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest free number is the closed one, as all below it are open by now.
    const int flags = number == STDIN_FILENO ? O_RDONLY : O_WRONLY;
    if (::open("/dev/null", flags) < 0) (void)::open("/", O_PATH);
  }
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

int processIdentifier() { return static_cast<int>(::getpid()); }

}  // namespace halyard::host

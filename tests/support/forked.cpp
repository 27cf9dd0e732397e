// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/forked.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#ifdef HALYARD_COVERAGE
extern "C" void __gcov_reset();  // NOLINT(bugprone-reserved-identifier): the compiler's own
extern "C" void __gcov_dump();   // NOLINT(bugprone-reserved-identifier)
#endif

namespace halyard::test {

namespace {

/// Runs no exit handlers, which belong to the parent; but lines that ran in here count.
[[noreturn]] void actAndEnd(const std::function<int()>& act) {
#ifdef HALYARD_COVERAGE
  __gcov_reset();
#endif
  const int status = act();
#ifdef HALYARD_COVERAGE
  __gcov_dump();
#endif
  ::_exit(status);
}

}  // namespace

pid_t startForked(const std::function<int()>& act) {
  const pid_t child = ::fork();
  if (child == 0) actAndEnd(act);
  return child;
}

int exitStatusOf(pid_t child) {
  int status = 0;
  while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (child < 0) return -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int exitStatusOf(const std::function<int()>& act) { return exitStatusOf(startForked(act)); }

void refuseSystemCall(long number) {
  std::array<sock_filter, 4> filter{{
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<unsigned>(number)},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EPERM},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
  }};
  const sock_fprog program{filter.size(), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    std::abort();  // The test would show nothing.
  }
}

bool enterPrivateMounts() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool canMountPrivately() {
  return exitStatusOf([] { return enterPrivateMounts() ? 0 : 1; }) == 0;
}

}  // namespace halyard::test

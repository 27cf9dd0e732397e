// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/swapper.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>

#include "host/files/descriptor.h"

namespace halyard::test {

namespace {

constexpr std::chrono::seconds kLimit(30);

}  // namespace

Swapper::Swapper(const std::string& folder, const std::vector<Pair>& pairs, unsigned seed) {
  void* const room =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) std::abort();
  shared_ = new (room) Shared{false, true, 0};
  const host::Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  EXPECT_TRUE(opened) << folder;
  std::fflush(nullptr);  // Else the child writes what is still buffered once more.
  process_ = ::fork();
  if (process_ == 0) swap(opened.get(), pairs, seed, *shared_);
}

Swapper::~Swapper() {
  if (process_ > 0) {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  ::munmap(shared_, sizeof(Shared));
}

void Swapper::start() {
  const std::uint64_t before = shared_->swaps;
  shared_->rests = false;
  shared_->goes = true;
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (shared_->swaps == before && std::chrono::steady_clock::now() < limit) ::sched_yield();
  EXPECT_NE(shared_->swaps, before) << "nothing can be swapped";
}

void Swapper::pause() {
  shared_->goes = false;
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (!shared_->rests && std::chrono::steady_clock::now() < limit) ::sched_yield();
  EXPECT_TRUE(shared_->rests) << "the swapper does not come to rest";
}

void Swapper::swap(int folder, const std::vector<Pair>& pairs, unsigned seed, Shared& shared) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::setgroups(0, nullptr) != 0 || ::setgid(kSwapperGroup) != 0 || ::setuid(kSwapperUser) != 0) {
    ::_exit(1);
  }
  std::minstd_rand random(seed);  // NOLINT: chance that can be repeated is wanted.
  for (;;) {
    while (!shared.goes) {
      shared.rests = true;
      ::usleep(20);
    }
    const Pair& pair = pairs[random() % pairs.size()];
    if (::renameat2(folder, pair.item.c_str(), folder, pair.link.c_str(), RENAME_EXCHANGE) == 0) {
      ++shared.swaps;
    }
  }
}

}  // namespace halyard::test

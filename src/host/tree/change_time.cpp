// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/change_time.h"

#include <ctime>
#include <utility>

namespace halyard::host {

namespace {

constexpr long kNanoseconds = 1'000'000'000;
constexpr long kFineTick = 20'000'000;
constexpr time_t kCoarseTick = 2;

}  // namespace

struct timespec timeOfChanges() {
  struct timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

struct timespec tickOf(const struct stat& status) {
  if (status.st_ctim.tv_nsec == 0) return {kCoarseTick, 0};
  return {0, kFineTick};
}

bool isBefore(const struct stat& status, const struct timespec& moment) {
  struct timespec then = tickOf(status);
  then.tv_sec += status.st_ctim.tv_sec;
  then.tv_nsec += status.st_ctim.tv_nsec;
  if (then.tv_nsec >= kNanoseconds) {
    ++then.tv_sec;
    then.tv_nsec -= kNanoseconds;
  }
  return std::pair(then.tv_sec, then.tv_nsec) < std::pair(moment.tv_sec, moment.tv_nsec);
}

}  // namespace halyard::host

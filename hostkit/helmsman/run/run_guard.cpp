// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/run_guard.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "common/durations.h"

namespace halyard::hostkit {

namespace {

constexpr std::chrono::milliseconds kShortestPause{100};
constexpr std::chrono::milliseconds kLongestPause{5000};
constexpr int kLooksALimit = 20;
constexpr int kSignalBase = 128;

timespec timespecOf(std::chrono::milliseconds time) {
  return {time.count() / 1000, (time.count() % 1000) * 1'000'000};
}

}  // namespace

std::string Stall::text() const {
  return program + (wasAskedForSize ? ", asked for its size," : "") + " made no progress for " +
         durationText(limit) + " and was ended";
}

RunGuard::RunGuard(StallLimit limit) : limit_(std::move(limit)) {
  (void)::prctl(PR_SET_CHILD_SUBREAPER, 1);
  ::sigemptyset(&signals_);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&signals_, signal);
  // Before any thread: each inherits the mask, so that the signals reach the watching one alone.
  (void)::pthread_sigmask(SIG_BLOCK, &signals_, &maskBefore_);
  thread_ = std::jthread([this](const std::stop_token& stop) { watch(stop); });
}

RunGuard::~RunGuard() {
  thread_.request_stop();
  // It is blocked there, so it ends the wait and nothing else.
  // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
  (void)::pthread_kill(thread_.native_handle(), SIGTERM);  // Out of its pause.
  thread_.join();
  (void)::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

host::TaskResult RunGuard::run(const std::string& program,
                               const std::function<host::TaskResult()>& start) {
  host::TaskResult result;
  if (signal_ != 0) {
    result.status = kSignalBase + signal_;
    return result;
  }
  {
    const std::lock_guard lock(mutex_);
    program_ = program;
    current_ = {};
  }
  result = start();
  const std::lock_guard lock(mutex_);
  program_.clear();
  return result;
}

void RunGuard::enter(Stall activity) {
  const std::lock_guard lock(mutex_);
  current_ = std::move(activity);
}

std::vector<Stall> RunGuard::takeStalls() {
  const std::lock_guard lock(mutex_);
  return std::exchange(stalls_, {});
}

void RunGuard::watch(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    const timespec pause = timespecOf(nextPause());
    if (const int signal = ::sigtimedwait(&signals_, nullptr, &pause); signal > 0) {
      if (stop.stop_requested()) return;
      signal_ = signal;
    }
    if (signal_ != 0) {
      endRun();
    } else {
      lookForStall();
    }
  }
}

// A run that ends is not kept waiting by a long limit.
std::chrono::milliseconds RunGuard::nextPause() {
  const std::lock_guard lock(mutex_);
  const std::chrono::milliseconds share = limit_(current_.service) / kLooksALimit;
  return program_.empty() || signal_ != 0 ? kShortestPause
                                          : std::clamp(share, kShortestPause, kLongestPause);
}

void RunGuard::lookForStall() {
  std::string program;
  Stall stall;
  {
    const std::lock_guard lock(mutex_);
    program = program_;
    stall = current_;
  }
  const int process = program.empty() ? 0 : childRunning(program);
  if (process == 0) {
    plugin_.restart();
    return;
  }
  stall.limit = limit_(stall.service);
  if (plugin_.stillFor(process) < stall.limit) return;
  endWhatWasStartedBy(process, AndThen::goOn);
  plugin_.restart();
  const std::lock_guard lock(mutex_);
  stalls_.push_back(std::move(stall));
}

void RunGuard::endRun() {
  std::string program;
  {
    const std::lock_guard lock(mutex_);
    program = program_;
  }
  if (program.empty()) return;
  if (const int process = childRunning(program)) endWhatWasStartedBy(process, AndThen::endToo);
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/waiting.h"

#include <algorithm>
#include <thread>

#include "common/messages.h"

namespace halyard::hostkit {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPause{200};

Clock::time_point& end() {
  static Clock::time_point point = Clock::time_point::min();
  return point;
}

}  // namespace

void setWait(std::chrono::seconds wait) { end() = Clock::now() + wait; }

std::chrono::seconds waitLeft() {
  const auto now = Clock::now();
  if (end() <= now) return std::chrono::seconds(0);
  return std::chrono::ceil<std::chrono::seconds>(end() - now);
}

bool waitFor(const std::function<bool()>& attempt, const std::function<std::string()>& whom) {
  bool isTold = false;
  while (!attempt()) {
    const auto now = Clock::now();
    if (end() <= now) return false;
    if (!isTold) printNote("waiting for " + whom());
    isTold = true;
    std::this_thread::sleep_for(std::min<Clock::duration>(kPause, end() - now));
  }
  return true;
}

}  // namespace halyard::hostkit

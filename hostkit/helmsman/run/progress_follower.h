// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Follows the progress log while Halyard runs.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "helmsman/run/run_judge.h"

namespace halyard::hostkit {

/// Reads what is appended to the file, five times a second, on a thread of its own, and hands out
/// each step. The file may be missing at first, and emptied at any time.
class ProgressFollower {
 public:
  using StepHandler = std::function<void(const ProgressStep&)>;

  /// `handler` runs on the follower's thread.
  ProgressFollower(std::string path, StepHandler handler);
  /// Hands out what is left, then ends the thread.
  ~ProgressFollower();
  ProgressFollower(const ProgressFollower&) = delete;
  ProgressFollower& operator=(const ProgressFollower&) = delete;

 private:
  void follow(const std::stop_token& stop);

  std::string path_;
  StepHandler handler_;
  std::jthread thread_;
};

}  // namespace halyard::hostkit

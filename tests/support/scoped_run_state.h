// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The run state of one test.
#pragma once

#include <utility>

#include "frontend/run/run_state.h"

namespace halyard::test {

/// Saves the run state, starts the test with a fresh one, and restores it.
class ScopedRunState {
 public:
  ScopedRunState() : saved_(std::exchange(runState(), RunState())) {}
  ~ScopedRunState() { runState() = std::move(saved_); }
  ScopedRunState(const ScopedRunState&) = delete;
  ScopedRunState& operator=(const ScopedRunState&) = delete;

 private:
  RunState saved_;
};

}  // namespace halyard::test

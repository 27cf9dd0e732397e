// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether the programs that Halyard has started get on, and how they are ended.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "common/tree_size.h"

namespace halyard::hostkit {

/// The process of a program that this one has started itself; 0 when there is none.
int childRunning(const std::string& program);

/// Ends what the process has started, and the orphans of it that this process has inherited:
/// SIGTERM first, after some seconds SIGKILL. The process itself stands still meanwhile, so that
/// it starts nothing else. What was running before the oldest of these began stays: a server that
/// was started for an earlier service.
enum class AndThen { goOn, endToo };
void endWhatWasStartedBy(int process, AndThen andThen);

/// Progress is output, processor time, or a coming or going among the processes below Halyard, or a
/// change below "/.Halyards". What has left them, as a server does that puts itself into the
/// background, does not count.
class PluginWatch {
 public:
  using Clock = std::chrono::steady_clock;

  /// For how long nothing has moved in what the process has started; zero when that is nothing.
  Clock::duration stillFor(int process);
  void restart() { lastProgress_ = Clock::now(); }

 private:
  std::map<int, std::pair<std::uint64_t, std::uint64_t>> processes_;  // Ticks, bytes written.
  TreeActivity folder_;
  Clock::time_point lastProgress_ = Clock::now();
};

}  // namespace halyard::hostkit

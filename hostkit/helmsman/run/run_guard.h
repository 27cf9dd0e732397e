// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Ends what makes no progress in a backup, and the whole backup in order when it is told to stop.
#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "helmsman/run/plugin_watch.h"
#include "host/process/task.h"

namespace halyard::hostkit {

/// What was ended because nothing moved in it.
struct Stall {
  std::string service;
  std::string program;           ///< "its backup program", "a pre-backup command"...
  bool wasAskedForSize = false;  ///< Nothing of its backup is lost by it.
  std::chrono::seconds limit{};

  std::string text() const;
};

/// For the length of one backup this process takes SIGTERM, SIGINT and SIGHUP on a thread of its
/// own and inherits the orphans of what it starts, so that nothing it started outlives it.
///
/// Halyard is the parent of a plug-in. A plug-in that makes no progress is ended with everything it
/// started, SIGTERM first, and Halyard goes on with the next service. On a signal Halyard is
/// stopped first, so that it starts no further plug-in; then the plug-in is ended, then Halyard.
/// A process that was running before the program at hand began (a server that an earlier service
/// has started) is left alone.
class RunGuard {
 public:
  /// How long a service may make no progress.
  using StallLimit = std::function<std::chrono::seconds(const std::string& service)>;

  explicit RunGuard(StallLimit limit);
  ~RunGuard();
  RunGuard(const RunGuard&) = delete;
  RunGuard& operator=(const RunGuard&) = delete;

  /// Runs the program under guard: `start` runs it to its end. After a signal nothing is started.
  host::TaskResult run(const std::string& program, const std::function<host::TaskResult()>& start);

  /// What Halyard does from now on; the limit does not matter.
  void enter(Stall activity);

  /// The signal that ended the run, 0 for none.
  int signal() const { return signal_; }
  /// What was ended since the last call.
  std::vector<Stall> takeStalls();

 private:
  void watch(const std::stop_token& stop);
  void lookForStall();
  void endRun();
  std::chrono::milliseconds nextPause();

  StallLimit limit_;
  sigset_t signals_{};
  sigset_t maskBefore_{};
  std::atomic<int> signal_ = 0;
  std::mutex mutex_;  // Of what follows.
  std::string program_;
  Stall current_;
  std::vector<Stall> stalls_;
  PluginWatch plugin_;  // Of the thread alone.
  std::jthread thread_;
};

}  // namespace halyard::hostkit

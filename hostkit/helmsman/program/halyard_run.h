// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Runs Halyard itself and reads its answers.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/process/task.h"

namespace halyard::hostkit {

/// Hands out whole lines of text that arrives in pieces.
class LineReader {
 public:
  explicit LineReader(std::function<void(std::string_view)> line) : line_(std::move(line)) {}
  void take(std::string_view piece);
  /// Hands out what is left after the last line feed.
  void finish();
  /// Forgets what is left after the last line feed.
  void drop() { rest_.clear(); }

 private:
  std::function<void(std::string_view)> line_;
  std::string rest_;
};

inline constexpr int kHalyardIsBusy = 37;  ///< Its exit status while the pid file exists.

/// Runs a program as host::RunTask does. Should this process be killed while it has stopped the
/// program (SIGSTOP), the kernel lets the program go on.
host::TaskResult runStoppable(const std::string& program, const std::vector<std::string>& words,
                              const host::TaskOptions& options = {});

/// Whether the run flags are set that make Halyard tell more than an administrator reads.
enum class Diagnostics { off, on };

/// Runs Halyard with these words after its name, without the run flags that the environment may
/// hold. Diagnostics::on sets its debug flag; plug-ins inherit it.
host::TaskResult runHalyard(const std::vector<std::string>& words,
                            const host::TaskOptions& options = {},
                            Diagnostics diagnostics = Diagnostics::off);

/// Whether no Halyard is at work; waits as waiting.h says while one is. A leftover pid file is
/// removed, with a note. Otherwise the reason is printed and the exit status for it is in `status`.
bool noHalyardRuns(int& status);

/// Whether Halyard can be run for a command now: setup is done, the program is there, no other
/// run is active. A leftover pid file is removed, with a note. Otherwise the reason is printed and
/// the exit status for it is in `status`: kBusy for a run that will end, kFailure for one that is
/// stuck.
bool halyardIsReady(int& status);

}  // namespace halyard::hostkit

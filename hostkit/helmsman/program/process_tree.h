// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The processes below another one, and whether they do anything.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

/// One process as /proc tells it.
struct ProcessEntry {
  int process = 0;
  int parent = 0;
  bool hasEnded = false;        ///< It only waits for its parent to take its status.
  std::uint64_t ticks = 0;      ///< Processor time, that of children it has waited for included.
  std::uint64_t startTime = 0;  ///< In ticks since the host was started.
  bool isStopped = false;       ///< By a signal, until another one lets it go on.
};

/// The text of /proc/PID/stat; absent when it has another form.
std::optional<ProcessEntry> parseProcessEntry(std::string_view text);

/// One process; absent when it is gone or cannot be seen.
std::optional<ProcessEntry> processEntry(int process);

/// All processes that can be seen; none where /proc is not mounted.
std::vector<ProcessEntry> allProcesses();

/// Those below a process, without itself and without those that have ended.
std::vector<ProcessEntry> processesBelow(const std::vector<ProcessEntry>& all, int top);

/// For how long it has been running, whatever was done to the clock; absent when that cannot be
/// known.
std::optional<double> secondsRun(int process);

/// The first word of its command line; empty when it has none or is gone.
std::string programOf(int process);

/// The bytes that a process has written so far, to whatever it was; 0 when that is not told.
std::uint64_t bytesWrittenBy(int process);

}  // namespace halyard::hostkit

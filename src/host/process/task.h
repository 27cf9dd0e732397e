// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Runs other programs: the one way by which the program starts a child.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"

namespace halyard::host {

struct TaskResult {
  int status = 0;      ///< Exit code; 128 + signal; 127 not found; 126 cannot be executed.
  std::string output;  ///< Captured standard output, bytes as they are.
  std::string error;   ///< Captured standard error.
};

/// Receives a stream piece by piece, as it is read; pieces are never empty.
using OutputSink = std::function<void(std::string_view piece)>;

/// The sink for a stream that no caller looks at: it is read, so that the child is never stopped
/// by a full pipe, and costs no memory.
inline void dropOutput(std::string_view /*piece*/) {}

/// Captured text stops growing here (256 MiB and a byte); the rest is read and dropped, and the
/// text is then too long for every reader.
inline constexpr std::size_t kCaptureLimit = (std::size_t{256} << 20) + 1;

struct TaskOptions {
  OutputSink output{};  ///< When set, gets standard output; TaskResult::output then stays empty.
  OutputSink error{};   ///< The same for standard error.
  /// LC_ALL=C on top of the environment: for host tools whose output is parsed or printed.
  bool plainLocale = false;
};

/// Runs the executable at an absolute path with the given arguments (argv[0] is the path) and waits
/// for its end, without a time limit.
///
/// The child gets no standard input (/dev/null), no descriptor above 2, default signal dispositions
/// and an empty mask, and the environment and working folder as they are. Both streams are read at
/// the same time, so neither can block it. Returns when the child has ended and its pipes are
/// drained; a descendant that keeps a pipe open is waited for at most 2 s.
/// A path that is absent, empty or relative is not started and never looked up: status 127.
/// Never throws; a child that cannot be started gives its status and empty texts.
TaskResult RunTask(const MaybeString& executable, const std::vector<std::string>& arguments,
                   const TaskOptions& options = {});

/// The values up to, and without, the first absent one.
std::vector<std::string> argumentsUpToAbsent(const std::vector<MaybeString>& values);

}  // namespace halyard::host

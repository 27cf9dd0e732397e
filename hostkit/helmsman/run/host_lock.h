// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// One at a time: what saves, changes or removes the services of this host.
#pragma once

#include <chrono>
#include <string>

#include "base/result.h"
#include "common/running_backup.h"
#include "helmsman/program/pid_file_state.h"
#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// What the lock is taken for. A backup takes all of it, anything else all but the first byte: so
/// each keeps every other one out, and the first byte tells whether a backup runs.
enum class HostUse { backup, change };

/// Takes the lock. Waits as waiting.h says while another process holds it; EAGAIN then. The kernel
/// gives it back with the descriptor, which no child inherits, however the process ends. `command`
/// is the word of helmsman, for others to tell.
Result<host::Descriptor> lockHost(HostUse use, const std::string& command);

/// Who took the lock last.
struct HostHolder {
  std::string text;  ///< "helmsman undo (process 4711)".
  std::chrono::seconds since{};

  /// More likely it waits for something for ever, such as an answer.
  bool isOverdue() const { return since >= kLongestRun; }
};
HostHolder hostHolder();

}  // namespace halyard::hostkit

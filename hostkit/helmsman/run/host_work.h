// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What changes the services of this host besides a backup.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// Held by restore, file restore, recover, undo and tidy from before their first look to their end:
/// no backup, and no other of them, begins meanwhile. A snapshot must not show half of a restore,
/// nor a restore work on what a backup is about to remove.
class HostWork {
 public:
  /// `command` is the word of helmsman. Absent, with the reason printed and the exit status set
  /// (kBusy beside another one).
  static std::optional<HostWork> begin(const std::string& command, int& status);
  HostWork(HostWork&& other) noexcept;
  HostWork& operator=(HostWork&&) = delete;
  ~HostWork();

  /// From here on Halyard itself, whoever starts it, refuses to back up, restore or verify: this
  /// process has its pid file. Not for what runs Halyard. False, with the reason printed and the
  /// exit status set, while Halyard runs.
  bool keepHalyardOut(int& status);

 private:
  HostWork(std::string command, host::Descriptor lock)
      : command_(std::move(command)), lock_(std::move(lock)) {}

  std::string command_;
  host::Descriptor lock_;
  ino_t pidFile_ = 0;  // 0 while this process has none.
};

}  // namespace halyard::hostkit

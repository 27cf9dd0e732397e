// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// One snapshot at a time for a host, many hosts in one repository.
#pragma once

#include <string>

#include "host/files/descriptor.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

/// Holds the two locks under which snapshots are made and removed: one of this machine, and one in
/// the host's folder of the repository (it keeps out a second machine that was given the same
/// computer name, where the file system carries locks between machines). The kernel gives both up
/// when the process ends, however it ends.
class SnapshotLock {
 public:
  /// Waits as waiting.h says while another process holds one of them; throws Failure then, naming
  /// it where it is known.
  explicit SnapshotLock(const Repository& repository,
                        const std::string& machineLock = defaultMachineLock());

  /// "/run/snapwheel.lock", or where the host keeps such files instead.
  static std::string defaultMachineLock();

 private:
  host::Descriptor machine_;
  host::Descriptor repository_;
};

}  // namespace halyard::snapwheel

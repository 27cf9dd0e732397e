// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A finished snapshot while one of its records is changed.
#pragma once

#include <string>

#include "host/files/descriptor.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

/// On btrfs a snapshot is a read-only subvolume; while this lives it is none.
class WritableSnapshot {
 public:
  WritableSnapshot(const Repository& repository, const std::string& name);
  ~WritableSnapshot();
  WritableSnapshot(const WritableSnapshot&) = delete;
  WritableSnapshot& operator=(const WritableSnapshot&) = delete;

 private:
  host::Descriptor folder_;
  std::string name_;
  bool isLocked_;
};

}  // namespace halyard::snapwheel

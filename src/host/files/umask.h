// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The file mode creation mask for a while.
#pragma once

#include <sys/stat.h>

namespace halyard::host {

/// Sets the mask and puts the former one back when it goes, so that an item can be created with an
/// exact mode. The mask belongs to the whole process: for programs of one thread.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : former_(::umask(mask)) {}
  ~ScopedUmask() { ::umask(former_); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t former_;
};

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Opening what is only looked at.
#pragma once

#include "host/files/system_call.h"

namespace halyard::host {

/// Opens items for reading without changing their access times, where that is allowed.
class QuietOpener {
 public:
  /// A descriptor, or -1 with errno set.
  int open(int folder, const char* name, int flags) {
    const auto attempt = [&](int more) {
      return uninterrupted([&] { return ::openat(folder, name, flags | more); });
    };
    if (quiet_) {
      const int descriptor = attempt(O_NOATIME);
      if (descriptor >= 0 || errno != EPERM) return descriptor;
      quiet_ = false;  // For the owner and root alone.
    }
    return attempt(0);
  }

 private:
  bool quiet_ = true;
};

}  // namespace halyard::host

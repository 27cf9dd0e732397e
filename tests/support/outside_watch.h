// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Folders that nothing may open, read or change.
#pragma once

#include <string>
#include <vector>

#include "host/files/descriptor.h"

namespace halyard::test {

/// Whoever opens, reads, changes, makes, moves or removes anything there is seen, this process too.
class OutsideWatch {
 public:
  explicit OutsideWatch(const std::vector<std::string>& folders);

  /// What happened since the last call, "opened f" for example; empty for nothing.
  std::vector<std::string> takeEvents();

 private:
  host::Descriptor events_;
};

}  // namespace halyard::test

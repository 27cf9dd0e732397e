// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a snapshot is known not to hold, or not for sure, of what is restored.
#pragma once

#include <cstdint>
#include <string>

#include "snapwheel/restore_selection.h"

namespace halyard::snapwheel {

struct LackReport {
  std::uint64_t missing = 0;  ///< Items that could not be read for the snapshot.
  std::uint64_t torn = 0;     ///< Files that changed whenever they were read for it.
};

/// Names them on standard error, by the manifest. Those whose names are not known count as chosen.
LackReport tellLack(const std::string& snapshotPath, const Choice& choice);

}  // namespace halyard::snapwheel

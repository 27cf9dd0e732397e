// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Files of a snapshot that do not hold any more what was put there: <snapshot>/.snapwheel/damaged,
// each path ended by a NUL.
#pragma once

#include <string>
#include <unordered_set>

#include "base/result.h"

namespace halyard::snapwheel {

/// Their paths relative to the root of the volume. None when there is no such record.
std::unordered_set<std::string> readDamage(const std::string& snapshotPath);

/// Replaces the record, or removes it where nothing is damaged.
Status writeDamage(const std::string& snapshotPath, const std::unordered_set<std::string>& paths);

}  // namespace halyard::snapwheel

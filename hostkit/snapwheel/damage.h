// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Files of a snapshot that do not hold any more what was put there: <snapshot>/.snapwheel/damaged,
// each path ended by a NUL.
#pragma once

#include <string>
#include <unordered_set>

#include "base/result.h"
#include "common/record_file.h"

namespace halyard::snapwheel {

using hostkit::RecordPlace;

struct DamageRecord {
  std::unordered_set<std::string> paths;  ///< Relative to the root of the volume.
  /// Something stands in its place that is no such record: nothing of the snapshot is proven.
  bool isUnreadable = false;

  bool covers(const std::string& path) const { return isUnreadable || paths.contains(path); }
  bool isEmpty() const { return !isUnreadable && paths.empty(); }
};

/// Empty when there is no record.
DamageRecord readDamage(const RecordPlace& place);

/// Replaces the record, whatever stands in its place, or removes it where nothing is damaged.
Status writeDamage(const RecordPlace& place, const std::unordered_set<std::string>& paths);

}  // namespace halyard::snapwheel

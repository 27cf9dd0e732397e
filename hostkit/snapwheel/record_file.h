// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Small files in a snapshot's record folder, which lies where others may have written.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/result.h"

namespace halyard::snapwheel {

struct RecordFile {
  bool stands = false;               ///< Anything has the name, or that cannot be told.
  std::optional<std::string> bytes;  ///< Of a regular file of at most the given length.
};

/// <snapshot>/.snapwheel/<name>.
std::string recordPath(const std::string& snapshotPath, const std::string& name);

/// Follows no link at the record folder or below it.
RecordFile readRecordFile(const std::string& snapshotPath, const std::string& name,
                          std::size_t limit);

/// Removes what has the name, whatever it is. Done, too, when nothing has it.
Status removeRecordFile(const std::string& snapshotPath, const std::string& name);

}  // namespace halyard::snapwheel

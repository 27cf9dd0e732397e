// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Small files in a snapshot's record folder, which lies where others may have written.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"

namespace halyard::hostkit {

/// The folder in a snapshot that the engine keeps its records in.
inline constexpr std::string_view kRecordFolder = ".snapwheel";

struct RecordFile {
  bool stands = false;               ///< Anything has the name, or that cannot be told.
  std::optional<std::string> bytes;  ///< Of a regular file of at most the given length.
};

/// <snapshot>/.snapwheel/<name>.
std::string recordPath(const std::string& snapshotPath, const std::string& name);

/// Follows no link at the record folder or below it.
RecordFile readRecordFile(const std::string& snapshotPath, const std::string& name,
                          std::size_t limit);

/// Replaces what has the name, a folder too: absent, old or complete at every instant, and on disk
/// when this returns. For root alone to read.
Status writeRecordFile(const std::string& snapshotPath, const std::string& name,
                       std::string_view bytes);

/// Removes what has the name, whatever it is, and has that on disk. Done, too, when nothing has it.
Status removeRecordFile(const std::string& snapshotPath, const std::string& name);

}  // namespace halyard::hostkit

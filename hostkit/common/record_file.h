// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Small files in a snapshot's record folder, which lies where others may have written.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// The folder in a snapshot that the engine keeps its records in.
inline constexpr std::string_view kRecordFolder = ".snapwheel";

/// The folder with what the engine knows of one volume of a snapshot.
class RecordPlace {
 public:
  /// Of the first volume of the snapshot; of a further one when its folder is named.
  // NOLINTNEXTLINE(google-explicit-constructor): a snapshot stands for its first volume.
  RecordPlace(const std::string& snapshotPath, const std::string& furtherVolume = "");

  std::string path() const { return snapshot_ + "/" + below_; }
  std::string path(const std::string& name) const { return path() + "/" + name; }
  /// Follows no link below the snapshot; errno tells why there is none.
  host::Descriptor open() const;

 private:
  std::string snapshot_;
  std::string below_;
};

struct RecordFile {
  bool stands = false;               ///< Anything has the name, or that cannot be told.
  std::optional<std::string> bytes;  ///< Of a regular file of at most the given length.
};

/// Follows no link at the record folder or below it.
RecordFile readRecordFile(const RecordPlace& place, const std::string& name, std::size_t limit);

/// Replaces what has the name, a folder too: absent, old or complete at every instant, and on disk
/// when this returns. For root alone to read.
Status writeRecordFile(const RecordPlace& place, const std::string& name, std::string_view bytes);

/// Removes what has the name, whatever it is, and has that on disk. Done, too, when nothing has it.
Status removeRecordFile(const RecordPlace& place, const std::string& name);

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman file restore": brings one file or folder of the host back from a snapshot.
#pragma once

#include <optional>
#include <string>

namespace halyard::hostkit {

struct FileRestoreArguments {
  std::string path;      ///< Absolute, as on the host.
  std::string snapshot;  ///< A name, the beginning of one, a path; empty for the latest.
  std::string to;        ///< The folder that it goes into, absolute; empty for its own.
  bool inPlace = false;  ///< It takes the place of the live one, which is set aside.
  bool dryRun = false;
  bool yes = false;
  bool json = false;
};

/// Has the engine restore the item into a closed folder beside its place, and only then gives it
/// its name there: NAME.from-SNAPSHOT, or NAME itself in place (the live one becomes NAME.previous)
/// or in another folder. Never replaces anything. The way to the place is opened component by
/// component and held: whoever swaps a folder of it for a link leads nothing elsewhere.
///
/// Writes:  in place, the record that "helmsman undo PATH" reads.
/// Returns: success when all of it is there, proven and on disk; kPartial when it is there with
///          something lacking, which was told (in place no more than its inode flags); failure when
///          nothing was changed.
int restoreFile(const FileRestoreArguments& arguments);

/// The path as it is recorded: without "//", "." and a "/" at its end. Absent for one that is not
/// absolute, goes back up (".."), or is the root.
std::optional<std::string> plainPath(const std::string& typed);

}  // namespace halyard::hostkit

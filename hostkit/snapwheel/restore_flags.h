// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Gives what was restored its inode flags, once nothing is written any more.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "snapwheel/restore_selection.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

/// A folder of the target that had flags before the restore.
struct FlaggedFolder {
  std::string path;  ///< Relative to the root.
  host::InodeFlags flags = 0;
};

struct FlagReport {
  std::uint64_t lacking = 0;  ///< Items that have not the flags that they are to have.
  std::string firstLacking;   ///< Relative to the root.
  std::uint64_t unknown = 0;  ///< Items whose flags the snapshot does not know.
};

/// Opens each item of the index that has flags, component by component and following no link, and
/// gives it exactly these: in each folder its files first, and itself after all that is in it. What
/// is not there is passed over. The folders that had flags before get them back where the snapshot
/// does not know better.
FlagReport giveFlags(const SourceIndex& index, int target, const Selection& selection,
                     const std::vector<FlaggedFolder>& before);

/// For a snapshot without an index.
FlagReport giveFlagsBack(int target, const std::vector<FlaggedFolder>& before);

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The indexes of a snapshot, one for each of its volumes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "snapwheel/snapshot_volumes.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

struct VolumeIndex {
  SnapshotVolume volume;
  std::unique_ptr<SourceIndex> index;  ///< Null where there is none that can be used.
};

/// In the order of volumesOf.
std::vector<VolumeIndex> indexesOf(const std::string& snapshotPath);

/// Calls `visit(folder, name, entry)` for every item below a folder, those in a folder after it.
/// The path of the folder is relative to the root and ends in "/"; it is empty for the root.
void walkIndex(const SourceIndex& index, const SourceIndex::Folder& top,
               const std::function<void(const std::string& folder, std::string_view name,
                                        const IndexEntry& entry)>& visit);

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/snapshot_index.h"

#include <sys/stat.h>

#include <utility>

namespace halyard::snapwheel {

std::vector<VolumeIndex> indexesOf(const std::string& snapshotPath) {
  std::vector<VolumeIndex> indexes;
  for (SnapshotVolume& volume : volumesOf(snapshotPath)) {
    auto index = SourceIndex::open(volume.records(snapshotPath).path("index"));
    indexes.push_back({std::move(volume), std::move(index)});
  }
  return indexes;
}

void walkIndex(const SourceIndex& index, const SourceIndex::Folder& top,
               const std::function<void(const std::string& folder, std::string_view name,
                                        const IndexEntry& entry)>& visit) {
  struct Level {
    SourceIndex::Folder folder;
    std::size_t next = 0;
    std::size_t pathLength = 0;  ///< Of the folder above.
  };
  std::vector<Level> levels;
  levels.push_back({top, 0, 0});
  std::string path;
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.folder.entries().size()) {
      path.resize(level.pathLength);
      levels.pop_back();
      continue;
    }
    const IndexEntry& entry = level.folder.entries()[level.next++];
    const std::string_view name = level.folder.nameOf(entry);
    visit(path, name, entry);
    if (!S_ISDIR(entry.mode)) continue;
    Level below{index.below(entry), 0, path.size()};
    path.append(name).push_back('/');
    levels.push_back(std::move(below));
  }
}

}  // namespace halyard::snapwheel

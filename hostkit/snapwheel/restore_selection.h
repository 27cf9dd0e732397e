// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which part of a volume is restored.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "snapwheel/snapshot_volumes.h"

namespace halyard::snapwheel {

/// Whether what stands at a path was chosen, or holds what was.
enum class Part { none, holdsSome, all };

/// Paths are relative to the root of the volume, empty for it.
class Selection {
 public:
  /// All of the volume.
  Selection() : paths_{""} {}
  /// Of the ways the folders above are only led through, as what stands at their ends is another
  /// volume's.
  explicit Selection(std::set<std::string> paths, std::set<std::string> ways = {})
      : paths_(std::move(paths)), ways_(std::move(ways)) {}

  Part partOf(std::string_view path) const;
  bool isAll() const { return paths_.contains(""); }
  const std::set<std::string>& paths() const { return paths_; }

 private:
  std::set<std::string> paths_;
  std::set<std::string> ways_;
};

/// What is chosen of one volume.
struct ChosenVolume {
  SnapshotVolume volume;
  Selection selection;
};

/// A path that was asked for and is not in the snapshot.
struct NotHeld {
  std::string path;
  std::string why;  ///< "is not in the snapshot".
};

struct Choice {
  std::vector<ChosenVolume> volumes;  ///< In the order of the snapshot's.
  std::vector<NotHeld> notHeld;
  std::vector<SnapshotVolume> meant;  ///< All that the snapshot was to hold, absent ones last.
};

/// All volumes. One that could not be read for the snapshot is a path that it does not hold. Throws
/// Failure when one that it held is gone, or there is none.
Choice chooseAll(const std::string& snapshotPath);

/// The volume of that folder. Throws Failure when there is none.
Choice chooseVolume(const std::string& snapshotPath, const std::string& folder);

/// Finds each path of the host in the volume that it belongs to, following no link; a folder brings
/// the volumes that were mounted in it. Throws Failure for a path that is not absolute or goes back
/// up (".."). The folders above a volume's mount point are led through in the volume that it is
/// mounted in.
Choice choose(const std::string& snapshotPath, const std::vector<std::string>& hostPaths);

/// Whether the item is restored; its path is that on the host, without the "/" before it.
bool isChosen(const Choice& choice, const std::string& path);

}  // namespace halyard::snapwheel

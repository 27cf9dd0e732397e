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
  explicit Selection(std::set<std::string> paths) : paths_(std::move(paths)) {}

  Part partOf(std::string_view path) const;
  bool isAll() const { return paths_.contains(""); }
  const std::set<std::string>& paths() const { return paths_; }

 private:
  std::set<std::string> paths_;
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
};

/// Finds each path of the host in the volume that it belongs to, following no link; a folder brings
/// the volumes that were mounted in it. Throws Failure for a path that is not absolute or goes back
/// up ("..").
Choice choose(const std::string& snapshotPath, const std::vector<std::string>& hostPaths);

/// Whether the item is restored; its path is that on the host, without the "/" before it.
bool isChosen(const Choice& choice, const std::string& path);

}  // namespace halyard::snapwheel

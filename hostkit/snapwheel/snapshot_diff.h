// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What differs between two snapshots, or between a snapshot and the host, by the indexes. Only
// where these do not tell is an item looked at.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/exclusions.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

enum class Change { added, removed, changed };

struct Difference {
  Change change = Change::changed;
  std::string path;         ///< On the host, without the "/" before it; empty for the root.
  std::uint32_t mode = 0;   ///< Of the newer one, of a removed item the older one's.
  std::uint64_t items = 1;  ///< Of a folder that was added or removed, with all below.
  bool contents = false;    ///< What a file holds, where a link leads, what kind it is.
  bool attributes = false;  ///< Owner, mode, lists; times but for folders.
  bool isUnknown = false;   ///< They may differ: one of them cannot be looked at.
};

struct DiffRequest {
  std::string older;               ///< Names of snapshots.
  std::string newer;               ///< Empty for what the host has now.
  std::vector<std::string> paths;  ///< On the host; none for everything.
  hostkit::Exclusions exclusions;  ///< What of the host does not count.
};

/// Tells each difference, in order of path within a volume. A folder that was added or removed is
/// one. Returns the paths that neither side holds. Throws Failure when a volume of a snapshot has
/// no index that can be used, and when neither side holds any of the paths.
std::vector<std::string> diffSnapshots(
    const Repository& repository, const DiffRequest& request,
    const std::function<void(const Difference& difference)>& tell);

}  // namespace halyard::snapwheel

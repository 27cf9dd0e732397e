// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/tree_size.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <utility>

#include "host/tree/walk_tree.h"

namespace halyard::hostkit {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

// `root` is a path or a Location.
template <typename Root>
TreeActivity activityOf(const Root& root) {
  TreeActivity seen;
  std::set<std::pair<dev_t, ino_t>> linked;  // Files with several names.
  host::TreeWalk walk;
  walk.visit = [&](const host::WalkedItem& item) {
    const struct stat& status = item.status;
    ++seen.count.items;
    const auto changed = static_cast<std::int64_t>(status.st_mtim.tv_sec) * kNanoseconds +
                         static_cast<std::int64_t>(status.st_mtim.tv_nsec);
    seen.newest = std::max(seen.newest, changed);
    if (S_ISREG(status.st_mode) &&
        (status.st_nlink == 1 || linked.emplace(status.st_dev, status.st_ino).second)) {
      seen.count.bytes += static_cast<std::uint64_t>(status.st_size);
    }
    return host::WalkStep::goOn;
  };
  // What cannot be looked at holds nothing, as far as is known.
  (void)host::walkTree(root, walk);
  return seen;
}

}  // namespace

TreeActivity treeActivity(const std::string& path) { return activityOf(path); }

TreeCount treeCount(const std::string& path) { return treeActivity(path).count; }

std::uint64_t treeBytes(const std::string& path) { return treeCount(path).bytes; }
std::uint64_t treeBytes(const host::Location& root) { return activityOf(root).count.bytes; }

}  // namespace halyard::hostkit

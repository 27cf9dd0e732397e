// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/tree_size.h"

#include <ftw.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

namespace halyard::hostkit {

namespace {

constexpr int kOpenFolders = 32;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

struct Count {
  TreeActivity seen;
  std::set<ino_t> linked;  // Files with several names, which one file system holds.
};

// nftw has no argument for its caller.
thread_local Count count;

int addFile(const char* /*path*/, const struct stat* status, int kind, struct FTW* /*position*/) {
  ++count.seen.count.items;
  const auto changed = static_cast<std::int64_t>(status->st_mtim.tv_sec) * kNanoseconds +
                       static_cast<std::int64_t>(status->st_mtim.tv_nsec);
  if (kind != FTW_NS) count.seen.newest = std::max(count.seen.newest, changed);
  if (kind == FTW_F && S_ISREG(status->st_mode) &&
      (status->st_nlink == 1 || count.linked.insert(status->st_ino).second)) {
    count.seen.count.bytes += static_cast<std::uint64_t>(status->st_size);
  }
  return 0;
}

}  // namespace

TreeActivity treeActivity(const std::string& path) {
  count = {};
  (void)::nftw(path.c_str(), &addFile, kOpenFolders, FTW_PHYS | FTW_MOUNT);
  return count.seen;
}

TreeCount treeCount(const std::string& path) { return treeActivity(path).count; }

std::uint64_t treeBytes(const std::string& path) { return treeCount(path).bytes; }

}  // namespace halyard::hostkit

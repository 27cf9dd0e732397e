#include "helmsman/run/tree_size.h"

#include <ftw.h>
#include <sys/stat.h>

#include <set>

namespace halyard::hostkit {

namespace {

constexpr int kOpenFolders = 32;

struct Count {
  std::uint64_t bytes = 0;
  std::set<ino_t> linked;  // Files with several names, which one file system holds.
};

// nftw has no argument for its caller.
thread_local Count count;

int addFile(const char* /*path*/, const struct stat* status, int kind, struct FTW* /*position*/) {
  if (kind == FTW_F && S_ISREG(status->st_mode) &&
      (status->st_nlink == 1 || count.linked.insert(status->st_ino).second)) {
    count.bytes += static_cast<std::uint64_t>(status->st_size);
  }
  return 0;
}

}  // namespace

std::uint64_t treeBytes(const std::string& path) {
  count = {};
  (void)::nftw(path.c_str(), &addFile, kOpenFolders, FTW_PHYS | FTW_MOUNT);
  return count.bytes;
}

}  // namespace halyard::hostkit

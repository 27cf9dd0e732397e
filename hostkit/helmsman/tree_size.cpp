#include "helmsman/tree_size.h"

#include <ftw.h>
#include <sys/stat.h>

namespace halyard::hostkit {

namespace {

constexpr int kOpenFolders = 32;

// nftw has no argument for its caller.
thread_local std::uint64_t treeTotal = 0;

int addFile(const char* /*path*/, const struct stat* status, int kind, struct FTW* /*position*/) {
  if (kind == FTW_F && S_ISREG(status->st_mode)) {
    treeTotal += static_cast<std::uint64_t>(status->st_size);
  }
  return 0;
}

}  // namespace

std::uint64_t treeBytes(const std::string& path) {
  treeTotal = 0;
  (void)::nftw(path.c_str(), &addFile, kOpenFolders, FTW_PHYS | FTW_MOUNT);
  return treeTotal;
}

}  // namespace halyard::hostkit

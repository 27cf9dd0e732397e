// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/subvolume.h"

#include <btrfsutil.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <cerrno>

#include "host/tree/remove_tree.h"

namespace halyard::snapwheel {

namespace {

// The library promises that errno tells more of what it could not do.
Status outcomeOf(btrfs_util_error result, const std::string& path) {
  if (result == BTRFS_UTIL_OK) return {};
  return Error{errno != 0 ? errno : EIO, path};
}

}  // namespace

bool isOnBtrfs(const std::string& path) {
  struct statfs status {};
  return ::statfs(path.c_str(), &status) == 0 && status.f_type == BTRFS_SUPER_MAGIC;
}

bool isSubvolume(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
  return btrfs_util_is_subvolume(path.c_str()) == BTRFS_UTIL_OK;
}

Status createSubvolume(const std::string& path) {
  return outcomeOf(btrfs_util_create_subvolume(path.c_str(), 0, nullptr, nullptr), path);
}

Status snapshotSubvolume(const std::string& source, const std::string& path) {
  return outcomeOf(btrfs_util_create_snapshot(source.c_str(), path.c_str(), 0, nullptr, nullptr),
                   path);
}

Status setReadOnly(const std::string& path, bool readOnly) {
  return outcomeOf(btrfs_util_set_subvolume_read_only(path.c_str(), readOnly), path);
}

Status removeSnapshotFolder(const std::string& path) {
  if (isSubvolume(path)) return outcomeOf(btrfs_util_delete_subvolume(path.c_str(), 0), path);
  return host::removeTree(path);
}

}  // namespace halyard::snapwheel

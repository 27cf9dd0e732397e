// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_preview.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <set>
#include <utility>

#include "base/text.h"
#include "common/messages.h"
#include "host/tree/walk_tree.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

/// Whether a restore puts the item in the place of another one; folders are merged.
bool isInTheWay(const std::string& path, const struct stat& status) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) != 0) return false;
  return !S_ISDIR(status.st_mode) || !S_ISDIR(there.st_mode);
}

}  // namespace

void previewRestore(const RestoreRequest& request, const Choice& choice, RestoreOutcome& outcome) {
  for (const ChosenVolume& chosen : choice.volumes) {
    const std::string target = request.paths.empty()
                                   ? request.target
                                   : appendPath(request.target, chosen.volume.mountPoint);
    std::set<std::pair<dev_t, ino_t>> linked;
    host::TreeWalk walk;
    walk.visit = [&](const host::WalkedItem& item) {
      const Part part = chosen.selection.partOf(item.path);
      if (part == Part::none) return host::WalkStep::passOver;
      ++outcome.items;
      const struct stat& status = item.status;
      if (isInTheWay(appendPath(target, item.path), status)) ++outcome.replaced;
      const bool isFirstName =
          status.st_nlink == 1 || linked.emplace(status.st_dev, status.st_ino).second;
      if (S_ISREG(status.st_mode) && isFirstName) {
        outcome.bytes += static_cast<std::uint64_t>(status.st_size);
      }
      return host::WalkStep::goOn;
    };
    walk.failed = [&](std::string_view path, int error) {
      ++outcome.failed;
      hostkit::printError(errorText(appendPath(target, path), error));
    };
    const std::string root = chosen.volume.path(request.snapshotPath);
    if (const Status walked = host::walkTree(root, walk); !walked && outcome.failed == 0) {
      throw failureOf(walked.error());
    }
  }
}

}  // namespace halyard::snapwheel

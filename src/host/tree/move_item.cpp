// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/move_item.h"

#include "host/files/location.h"
#include "host/files/rename_item.h"
#include "host/files/system_call.h"
#include "host/tree/remove_tree.h"
#include "host/tree/tree_copy.h"

namespace halyard::host {

bool moveItem(const std::string& from, const std::string& to) {
  const Result<Location> source = locate(from);
  const Result<Location> target = locate(to);
  if (!source || !target) return false;
  const int error = renameWithoutReplacing(source->folder.get(), source->name, target->folder.get(),
                                           target->name);
  if (error != EXDEV) return error == 0;
  return copyItem(from, to) && removeTreeAt(source->folder.get(), source->name);
}

bool removeItem(const std::string& path) {
  const Status removed = removeTree(path);
  return removed || (removed.error().code == ENOENT && !path.empty());
}

}  // namespace halyard::host

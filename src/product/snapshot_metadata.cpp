// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/snapshot_metadata.h"

#include "base/text.h"
#include "host/files/files.h"
#include "product/paths.h"

namespace halyard {

std::string findSnapshotMetadataFolder(const std::string& folder,
                                       const std::function<void(const std::string& entry)>& visit) {
  std::string found;
  for (const std::string& entry : host::listDirectory(folder)) {
    if (visit) visit(entry);
    const std::string candidate = joinPath(folder, entry) + paths::kMetadataFolder;
    if (host::isDirectory(candidate)) found = candidate;
  }
  return found;
}

}  // namespace halyard

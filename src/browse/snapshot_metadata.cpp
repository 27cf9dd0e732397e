#include "browse/snapshot_metadata.h"

#include "base/text.h"
#include "frontend/run/log.h"
#include "host/files/files.h"
#include "product/paths.h"

namespace halyard {

std::string findSnapshotMetadataFolder(const std::string& folder, EntryLines lines) {
  std::string found;
  for (const std::string& entry : host::listDirectory(folder)) {
    if (lines == EntryLines::logged) debugPlatformLog("nextPath := %s", entry.c_str());
    const std::string candidate = joinPath(folder, entry) + paths::kMetadataFolder;
    if (host::isDirectory(candidate)) found = candidate;
  }
  return found;
}

}  // namespace halyard

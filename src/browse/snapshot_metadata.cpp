#include "browse/snapshot_metadata.h"

#include "config/paths.h"
#include "frontend/log.h"
#include "host/files.h"
#include "host/text.h"

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

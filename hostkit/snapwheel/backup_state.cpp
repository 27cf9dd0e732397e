#include "snapwheel/backup_state.h"

#include "base/text.h"
#include "host/files/files.h"
#include "product/paths.h"

namespace halyard::snapwheel {

namespace {

bool stands(const std::string& path) { return host::exists(path) || host::isSymbolicLink(path); }

}  // namespace

std::vector<std::string> backupProblems(const std::string& volumePath) {
  const std::string folder = volumePath + paths::kMetadataFolder;
  if (!host::isRealDirectory(folder)) return {};
  std::vector<std::string> problems;
  if (!stands(joinPath(folder, paths::kSignatureName))) {
    problems.emplace_back("the backup of the services is not signed");
  }
  for (const std::string& service : host::listDirectory(folder)) {
    const std::string items = joinPath(folder, service);
    if (host::isRealDirectory(items) && stands(joinPath(items, paths::kIncompleteMark))) {
      problems.push_back(service + " is not whole");
    }
  }
  return problems;
}

bool carriesBackup(const std::string& volumePath) {
  const std::string folder = volumePath + paths::kMetadataFolder;
  return host::isRealDirectory(folder) && stands(joinPath(folder, paths::kSignatureName));
}

}  // namespace halyard::snapwheel

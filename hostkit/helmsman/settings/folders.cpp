#include "helmsman/settings/folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kOpenFolder = 0755;
constexpr mode_t kLogFolderMode = 0770;

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

const std::vector<FixedFolder>& fixedFolders() {
  static const std::vector<FixedFolder> folders = {
      {paths::kConfigurationFolder, kNativeConfigFolder, kOpenFolder},
      {kPreferenceFolder, kNativePreferenceFolder, kOpenFolder},
      {paths::kLogFolder, kNativeLogFolder, kLogFolderMode},
      {kRunFolder, kNativeRunFolder, kOpenFolder},
      {kDatabaseFolder, kStateFolder, kOpenFolder},
      {kVersionFolder, kNativeVersionFolder, kOpenFolder}};
  return folders;
}

bool makeFolders(const std::string& path, mode_t permissions) {
  if (host::isDirectory(path)) return true;
  const std::string parent = parentOf(path);
  if (parent != path && !makeFolders(parent, kOpenFolder)) return false;
  if (::mkdir(path.c_str(), permissions) != 0 && errno != EEXIST) return false;
  // The umask may have taken bits away.
  return host::isDirectory(path) && ::chmod(path.c_str(), permissions) == 0 &&
         host::syncFolder(path) && host::syncFolder(parent);
}

FolderOutcome provideFolder(const FixedFolder& folder, std::string& problem) {
  if (host::isDirectory(folder.path)) return FolderOutcome::alreadyThere;
  const auto failedAt = [&problem](const std::string& path) {
    problem = path + ": " + errnoText(errno);
    return FolderOutcome::failed;
  };
  if (!makeFolders(folder.native, folder.permissions)) return failedAt(folder.native);
  // A link that led nowhere leads somewhere now.
  if (host::isDirectory(folder.path)) return FolderOutcome::made;
  if (!makeFolders(parentOf(folder.path), kOpenFolder)) return failedAt(parentOf(folder.path));
  if (::symlink(folder.native, folder.path) != 0) return failedAt(folder.path);
  if (const Status synced = host::syncFolderOf(folder.path); !synced) {
    problem = std::string(folder.path) + ": " + errnoText(synced.error().code);
    return FolderOutcome::failed;
  }
  return FolderOutcome::made;
}

FolderOutcome provideFolder(const std::string& path, std::string& problem) {
  for (const FixedFolder& folder : fixedFolders()) {
    if (path == folder.path) return provideFolder(folder, problem);
  }
  problem = path + " is none of the fixed folders";
  return FolderOutcome::failed;
}

}  // namespace halyard::hostkit

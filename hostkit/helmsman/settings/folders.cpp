// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

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

Status makeFolders(const std::string& path, mode_t permissions) {
  if (host::isDirectory(path)) return {};
  const std::string parent = parentPath(path);
  if (parent != path) {
    if (Status above = makeFolders(parent, kOpenFolder); !above) return above;
  }
  if (::mkdir(path.c_str(), permissions) != 0 && errno != EEXIST) return Error{errno, path};
  if (!host::isDirectory(path)) return Error{ENOTDIR, path};
  // The umask may have taken bits away.
  if (::chmod(path.c_str(), permissions) != 0) return Error{errno, path};
  if (Status synced = host::syncFolder(path); !synced) return synced;
  return host::syncFolder(parent);
}

FolderOutcome provideFolder(const FixedFolder& folder, std::string& problem) {
  if (host::isDirectory(folder.path)) return FolderOutcome::alreadyThere;
  const auto failed = [&problem](const Error& error) {
    problem = error.tried + ": " + errnoText(error.code);
    return FolderOutcome::failed;
  };
  if (const Status made = makeFolders(folder.native, folder.permissions); !made) {
    return failed(made.error());
  }
  // A link that led nowhere leads somewhere now.
  if (host::isDirectory(folder.path)) return FolderOutcome::made;
  if (const Status made = makeFolders(parentPath(folder.path), kOpenFolder); !made) {
    return failed(made.error());
  }
  if (::symlink(folder.native, folder.path) != 0) return failed({errno, folder.path});
  if (const Status synced = host::syncFolderOf(folder.path); !synced) {
    return failed(synced.error());
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

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "catalogue/purge.h"

#include <string>

#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/progress_log.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/snapshot_name.h"
#include "product/stored_snapshots.h"

namespace halyard {

namespace {

constexpr std::int32_t kRanToItsEnd = 74;  // Kept: also when nothing was deleted.
constexpr std::int32_t kEngineRefused = 1;

/// Whether the volume folder holds a backup of this program.
bool holdsSignedBackup(const std::string& volumeFolder) {
  if (!host::isDirectory(volumeFolder)) return false;
  debugPlatformLog("PurgeSnapShot:nextPath =: %s", volumeFolder.c_str());
  const std::string metadata = volumeFolder + paths::kMetadataFolder;
  return host::isDirectory(metadata) && host::exists(joinPath(metadata, paths::kSignatureName));
}

/// False when the engine refused.
bool deleteSnapshot(const std::string& path) {
  if (!host::exists(path)) {
    printText("No such file or directory.\n");
    return true;
  }
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  if (!session) return true;
  const std::int32_t code = DeleteSnapshot(*session, path);
  if (code == 0) return true;
  if (code == kNotASnapshot) {
    printText("That is not a snapshot.\n");
  } else {
    printText("Failed with error:%d.\n", code);
  }
  return false;
}

std::int32_t deleteSignedSnapshot(const std::string& path) {
  for (const std::string& entry : host::listDirectory(path)) {
    // After the deletion the remaining entries are gone and fail this test.
    if (!holdsSignedBackup(joinPath(path, entry))) continue;
    if (!deleteSnapshot(path)) return kEngineRefused;
  }
  return kRanToItsEnd;
}

}  // namespace

std::int32_t PurgeSnapShot(const CommandLine& line) {
  FunctionLog scope(__func__);
  get_Helmsman_Prefs();
  const MaybeString path = line.option("-path");
  debugPlatformLog("SS_PATH:nextPath =: %s", orNull(path));
  const MaybeString extension = path ? MaybeString(pathExtension(*path)) : std::nullopt;
  platformLogText("SS_PATH:pathExtension =: %s", orNull(extension));
  if (extension == kInProgressExtension) {
    ProgressLog::open().error(
        "an attempt was made to purge a snapshot in progress, it was aborted.");
    scope.dropEnd();
    return kRanToItsEnd;
  }
  const std::int32_t status = path ? deleteSignedSnapshot(*path) : kRanToItsEnd;
  if (status == kEngineRefused) scope.dropEnd();
  return status;
}

}  // namespace halyard

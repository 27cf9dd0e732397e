// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "config/validation.h"

#include <vector>

#include "base/property_list.h"
#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "host/files/property_file.h"
#include "host/log/system_log.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard {

namespace {

constexpr std::int32_t kMinimumVersion = 1060;
constexpr int kInstallFacilityError = 115;  // facility 14 and severity 3
constexpr mode_t kRepositoryPermissions = 0775;
constexpr mode_t kProgressLogMode = 0770;

void makeFolderWithMkdir(const std::string& path) {
  host::RunTask(paths::kMkdir, {"-p", "-m", "0770", path},
                {.output = host::dropOutput, .error = host::dropOutput});
}

/// Kept: the version is the running system's; the volume only has to exist.
std::int32_t isRunningSystemRecentEnough() {
  const auto file = host::readDictionary(paths::kHostVersionFile);
  const MaybeString version = file ? file->text("ProductVersion") : std::nullopt;
  const std::string sanitized = version ? sanitizedVersion(*version) : std::string();
  debugLine("sanitizedLocalVersion", sanitized);
  debugLine("MINVER", long{kMinimumVersion});
  return leadingInteger(sanitized) > kMinimumVersion - 1 ? 1 : 0;
}

}  // namespace

std::int32_t IsStandardServer() {
  const FunctionLog scope(__func__);
  return 1;
}

std::string sanitizedVersion(std::string_view version) {
  const auto parts = splitAt(version, '.');
  std::string digits;
  for (const std::string_view part : parts) digits += part;
  if (parts.size() == 2) digits += '0';
  return digits;
}

std::int32_t isValidSystem(const CommandLine& line) {
  FunctionLog scope(__func__);
  MaybeString volume = line.option("-source");
  if (!volume) volume = line.option("-target");
  if (!volume) {
    scope.dropEnd();
    return 0;
  }
  debugText("sourceVolumePath := \n");  // Kept: the path itself is not shown.
  const std::int32_t result = host::isDirectory(*volume) ? isRunningSystemRecentEnough() : 0;
  debugLine("result", long{result});
  return result;
}

void validate_FullPath(const std::string& /*path*/) {
  const FunctionLog scope(__func__);
  const std::string repository =
      joinPath(get_Helmsman_Prefs().backupDestination, paths::kRepositoryName);
  if (host::isDirectory(repository)) {
    makeFolderWithMkdir(repository);
    return;
  }
  (void)host::createDirectory(  // A snapshot engine without a repository reports that itself.
      repository, host::NamedAttributes{"root", "admin", kRepositoryPermissions});
  verboseLine("Created backup folder at path", repository);
}

void validate_LogPaths() {
  const FunctionLog scope(__func__);
  if (!host::exists(paths::kLogFolder)) makeFolderWithMkdir(paths::kLogFolder);
  (void)host::createOrEmptyFile(paths::kProgressLog, kProgressLogMode);  // Logging never fails.
}

std::int32_t createDirectoryLevels(const std::string& path, const host::Attributes& attributes) {
  if (host::exists(path)) return 1;
  std::vector<std::string> level;
  for (const std::string& component : pathComponents(path)) {
    level.push_back(component);
    const std::string levelPath = joinComponents(level);
    if (host::exists(levelPath) || host::createDirectory(levelPath, attributes)) continue;
    host::systemLog(kInstallFacilityError,
                    "[BACKUP] Unable to create directory '" + levelPath + "'");
    return 0;
  }
  return 1;
}

}  // namespace halyard

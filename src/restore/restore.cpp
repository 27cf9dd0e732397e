// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "restore/restore.h"

#include <string>
#include <vector>

#include "backup/metadata_folder.h"
#include "config/plugin_call.h"
#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/pid_file.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/tree/move_item.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"
#include "restore/service_files.h"

namespace halyard {

namespace {

constexpr std::int32_t kBogusRestore = 1;

void endWithoutVolumes(const MaybeString& image, const MaybeString& target) {
  if (!target || !host::exists(*target)) {
    printText("**Destination volume %s does not exist.\n", orNull(target));
    endProcess(0);
  }
  if (!image || !host::exists(*image)) {
    printText("**Restore image path %s does not exist.\n", orNull(image));
    endProcess(0);
  }
}

/// The metadata folder is a leftover of an ordinary backup on this very volume.
void refuseBogusRestore() {
  if (host::exists(paths::kMetadataFolder)) PostBackupComplete();
  removePidProcessFile();
  ProgressLog::open().text(
      std::string("\n") + texts::kProgressStart +
      "ERROR bogus restore attempt! Will delete current backup folder to avoid future attempts.\n");
}

void runRestoreExecutable(const ServiceDescriptor& descriptor, const std::string& target) {
  PluginCall call(
      descriptor.text(descriptor_keys::kRestoreBinaryPath),
      {"-cmd", "restore", "-path", joinPath(paths::kMetadataFolder, descriptor.serviceName()),
       "-log", descriptor.text(descriptor_keys::kRestoreLog), "-target", target});
  call.addOption(descriptor.defaultAction());
  const host::TaskResult result = call.runUnheard();
  debugPlatformLog("tRestoreBinaryPath =: %s", orNull(call.executable));
  debugPlatformLog("args =: %s", listText(call.arguments).c_str());
  debugPlatformLog("status =: %s", result.output.c_str());
  debugPlatformLog("error =: %d", 0);  // Kept: the number means nothing.
}

void restoreOneService(const std::string& path, const std::string& target,
                       const ProgressLog& progress, std::vector<std::string>& restored) {
  debugLine("tStr", path);
  if (!host::exists(path)) return;
  const ServiceDescriptor descriptor = ServiceDescriptor::read(path);
  const MaybeString service = descriptor.serviceName();
  debugLine("target", target);
  debugLine("tServiceName", service);
  debugLine("tRestoreLog", descriptor.text(descriptor_keys::kRestoreLog));
  debugLine("tRestoreBinaryPath", descriptor.text(descriptor_keys::kRestoreBinaryPath));
  debugLine("tDefaultRestoreAction", descriptor.defaultAction());
  const auto files = restoreServiceFiles(paths::kMetadataFolder, descriptor, progress);
  restored.insert(restored.end(), files.begin(), files.end());
  progress.step(service, "Calling service restore binary...");
  runRestoreExecutable(descriptor, target);
  progress.step(service, texts::kServiceRestored);
}

/// Moved away first, so that a recovery cannot run twice on a folder that is only partly there.
void consumeMetadataFolder() {
  if (host::exists(paths::kMetadataFolder)) {
    (void)host::moveItem(paths::kMetadataFolder, paths::kMetadataFolderAside);
    (void)host::syncFolderOf(paths::kMetadataFolderAside);
  }
  if (!host::exists(paths::kMetadataFolderAside)) return;
  if (removeMetadataFolder(paths::kMetadataFolderAside)) {
    debugPlatformLog("[RESTORE]: Removed ServerMetaDataBackupFolder at path := %s!\n",
                     paths::kMetadataFolderAside);
  } else {
    debugPlatformLog(
        "[RESTORE]: Error encountered removing ServerMetaDataBackupFolder at path := %s! Should "
        "exist but currently does not!\n",
        paths::kMetadataFolderAside);
  }
}

enum class Outcome { returned, bogus };

Outcome restoreSystem(const CommandLine& line) {
  const FunctionLog scope("Restore");
  const MaybeString image = line.option("-path");
  const MaybeString target = line.option("-target");
  validate_LogPaths();
  debugLine("**IMG_PATH", image);
  debugLine("**DEST_VOL", target);
  endWithoutVolumes(image, target);
  if (isBootedSystemsUUIDDiffentThanSource() == 0) {
    refuseBogusRestore();
    return Outcome::bogus;
  }
  const bool valid = isValidSystem(line) != 0;
  if (!valid || target != "/") return Outcome::returned;
  get_Helmsman_Prefs();
  debugPlatformLog("mountedImagePath := %s", orNull(image));
  debugPlatformLog("serverMetaDataPath := %s", paths::kMetadataFolder);
  const ProgressLog progress = ProgressLog::open();
  std::vector<std::string> restored;
  const auto showName = [](const std::string& name) { debugText("%s\n", name.c_str()); };
  scanServiceDescriptors(
      {.shortName = showName, .longName = showName, .taken = [&](const std::string& path) {
         restoreOneService(path, *target, progress, restored);
       }});
  syncRestored(restored);  // On disk before its source goes.
  consumeMetadataFolder();
  return Outcome::returned;
}

}  // namespace

void Restore(const CommandLine& line) {
  if (restoreSystem(line) == Outcome::bogus) endProcess(kBogusRestore);  // after its end line
}

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "restore/restore_service.h"

#include <string>
#include <vector>

#include "config/plugin_call.h"
#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"
#include "product/snapshot_metadata.h"
#include "restore/service_files.h"

namespace halyard {

namespace {

void endWithoutVolumes(const MaybeString& image, const MaybeString& target) {
  if (!target || !host::exists(*target)) {
    printText("Destination volume %s does not exist.\n", orNull(target));
    endProcess(0);
  }
  if (!image || !host::exists(*image)) {
    printText("Restore image path %s does not exist.\n", orNull(image));
    endProcess(0);
  }
}

/// Kept: without "-opt" the list has two such pairs, "all" first and the default action last.
void runRestoreExecutable(const ServiceDescriptor& descriptor, const std::string& metadataRoot,
                          const MaybeString& requested) {
  PluginCall call(descriptor.text(descriptor_keys::kRestoreBinaryPath),
                  {"-cmd", "restore", "-opt", requested.value_or("all"), "-path",
                   joinPath(metadataRoot, descriptor.serviceName()), "-log",
                   descriptor.text(descriptor_keys::kRestoreLog)});
  if (!requested) call.addOption(descriptor.defaultAction());
  const host::TaskResult result = call.runUnheard();
  debugDump(call.arguments);
  debugDump(MaybeString(result.output));
}

/// Returns the live paths that were handled.
std::vector<std::string> restoreFromDescriptor(const std::string& path,
                                               const std::string& metadataRoot,
                                               const MaybeString& requested,
                                               const ProgressLog& progress) {
  const ServiceDescriptor descriptor = ServiceDescriptor::read(path);
  const MaybeString service = descriptor.serviceName();
  debugLine("tServiceName", service);
  debugLine("tRestoreLog", descriptor.text(descriptor_keys::kRestoreLog));
  debugLine("tRestoreBinaryPath", descriptor.text(descriptor_keys::kRestoreBinaryPath));
  debugLine("tDefaultRestoreAction", descriptor.defaultAction());
  debugDump(descriptor.list(descriptor_keys::kConfigurationFiles));
  debugDump(descriptor.list(descriptor_keys::kDataFiles));
  auto restored = restoreServiceFiles(metadataRoot, descriptor, progress);
  progress.step(service, "Calling service restore binary...");
  runRestoreExecutable(descriptor, metadataRoot, requested);
  progress.step(service, texts::kServiceRestored);
  return restored;
}

/// Every entry of the configuration folder whose name contains the service text, the preference
/// file and executables included.
void restoreMatchingDescriptors(const CommandLine& line, const std::string& metadataRoot) {
  const MaybeString service = line.option("-service");
  const ProgressLog progress = ProgressLog::open();
  std::vector<std::string> restored;
  for (const std::string& name : host::listDirectory(paths::kConfigurationFolder)) {
    const bool matches = service && name.find(*service) != std::string::npos;
    const std::string path = matches ? joinPath(paths::kConfigurationFolder, name) : std::string();
    debugLine("tStr", path);
    if (!host::exists(path)) continue;
    const auto files = restoreFromDescriptor(path, metadataRoot, line.option("-opt"), progress);
    restored.insert(restored.end(), files.begin(), files.end());
  }
  syncRestored(restored);
}

}  // namespace

void RestoreService(const CommandLine& line) {
  const FunctionLog scope(__func__);
  const MaybeString requestedImage = line.option("-path");
  const MaybeString target = line.option("-target");
  validate_LogPaths();
  debugLine("IMG_PATH", requestedImage);
  debugLine("DEST_VOL", target);
  endWithoutVolumes(requestedImage, target);
  std::string image = *requestedImage;
  const bool valid = isValidSystem(line) != 0;
  if (valid && target == "/") {
    get_Helmsman_Prefs();
  } else {
    image.clear();
  }
  debugPlatformLog("mountedImagePath := %s", image.c_str());
  const std::string metadataRoot = findSnapshotMetadataFolder(image, debugPlatformEntry);
  debugPlatformLog("serverMetaDataPath := %s", metadataRoot.c_str());
  restoreMatchingDescriptors(line, metadataRoot);
}

}  // namespace halyard

#include "restore/restore_service.h"

#include <string>
#include <vector>

#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/run/function_log.h"
#include "frontend/run/log.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/metadata_folder.h"
#include "product/paths.h"
#include "product/service_descriptor.h"
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
std::vector<std::string> restoreArguments(const ServiceDescriptor& descriptor,
                                          const std::string& metadataRoot,
                                          const MaybeString& requested) {
  auto arguments = host::argumentsUpToAbsent(
      {"-cmd", "restore", "-opt", requested.value_or("all"), "-path",
       joinPath(metadataRoot, descriptor.serviceName()), "-log", descriptor.text("RestoreLog")});
  const MaybeString action = descriptor.defaultAction();
  if (action && !requested) arguments.insert(arguments.end(), {"-opt", *action});
  return arguments;
}

void runRestoreExecutable(const ServiceDescriptor& descriptor,
                          const std::vector<std::string>& arguments) {
  host::TaskOptions options{.output = host::dropOutput, .error = host::dropOutput};
  if (runState().debug) options.output = nullptr;  // captured for the dump below
  const host::TaskResult result =
      host::RunTask(descriptor.text("RestoreBinaryPath"), arguments, options);
  debugDump(arguments);
  debugDump(MaybeString(result.output));
}

/// Returns the live paths that were handled.
std::vector<std::string> restoreFromDescriptor(const std::string& path,
                                               const std::string& metadataRoot,
                                               const ProgressLog& progress) {
  const ServiceDescriptor descriptor = ServiceDescriptor::read(path);
  const MaybeString service = descriptor.serviceName();
  debugLine("tServiceName", service);
  debugLine("tRestoreLog", descriptor.text("RestoreLog"));
  debugLine("tRestoreBinaryPath", descriptor.text("RestoreBinaryPath"));
  debugLine("tDefaultRestoreAction", descriptor.defaultAction());
  debugDump(descriptor.list("ConfigurationFiles"));
  debugDump(descriptor.list("DataFiles"));
  auto restored = restoreServiceFiles(metadataRoot, descriptor, progress);
  progress.step(service, "Calling service restore binary...");
  runRestoreExecutable(descriptor, restoreArguments(descriptor, metadataRoot, option("-opt")));
  progress.step(service, "Service restore binary done.");
  return restored;
}

/// Every entry of the configuration folder whose name contains the service text, the preference
/// file and executables included.
void restoreMatchingDescriptors(const MaybeString& service, const std::string& metadataRoot) {
  const ProgressLog progress = ProgressLog::open();
  std::vector<std::string> restored;
  for (const std::string& name : host::listDirectory(paths::kConfigurationFolder)) {
    const bool matches = service && name.find(*service) != std::string::npos;
    const std::string path = matches ? joinPath(paths::kConfigurationFolder, name) : std::string();
    debugLine("tStr", path);
    if (!host::exists(path)) continue;
    const auto files = restoreFromDescriptor(path, metadataRoot, progress);
    restored.insert(restored.end(), files.begin(), files.end());
  }
  syncRestored(restored);
}

}  // namespace

void RestoreService() {
  const FunctionLog scope(__func__);
  const MaybeString requestedImage = option("-path");
  const MaybeString target = option("-target");
  validate_LogPaths();
  debugLine("IMG_PATH", requestedImage);
  debugLine("DEST_VOL", target);
  endWithoutVolumes(requestedImage, target);
  std::string image = *requestedImage;
  const bool valid = isValidSystem() != 0;
  if (valid && target == "/") {
    get_Helmsman_Prefs();
  } else {
    image.clear();
  }
  debugPlatformLog("mountedImagePath := %s", image.c_str());
  const std::string metadataRoot = findSnapshotMetadataFolder(
      image, [](const std::string& entry) { debugPlatformLog("nextPath := %s", entry.c_str()); });
  debugPlatformLog("serverMetaDataPath := %s", metadataRoot.c_str());
  restoreMatchingDescriptors(option("-service"), metadataRoot);
}

}  // namespace halyard

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/backup.h"

#include <string>
#include <utility>
#include <vector>

#include "backup/metadata_folder.h"
#include "backup/service_backup.h"
#include "backup/size.h"
#include "browse/master_browse.h"
#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "host/process/task.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"

namespace halyard {

namespace {

void resetMetadataFolder() {
  const char* const path = paths::kMetadataFolder;
  if (host::exists(path)) {
    if (!removeMetadataFolder(path)) {
      debugPlatformLog("Error encountered removing ServerMetaDataBackupFolder at path := %s!\n",
                       path);
      return;  // The run goes on with the old folder.
    }
    debugPlatformLog("Removed ServerMetaDataBackupFolder at path := %s!\n", path);
  }
  if (!host::createDirectory(path)) {
    platformLogText("Error encountered creating ServerMetaDataBackupFolder at path := %s!\n", path);
  }
}

void showDescriptor(const ServiceDescriptor& descriptor) {
  debugLine("tServiceName", descriptor.serviceName());
  debugLine("tBackupLog", descriptor.text(descriptor_keys::kBackupLog));
  debugLine("tBackupBinaryPath", descriptor.text(descriptor_keys::kBackupBinaryPath));
  debugLine("tDefaultBackupAction", descriptor.defaultAction());
  for (const char* key :
       {descriptor_keys::kPreBackupServiceCommands, descriptor_keys::kPostBackupServiceCommands,
        descriptor_keys::kConfigurationFiles, descriptor_keys::kDataFiles}) {
    debugDump(descriptor.list(key));
  }
}

void backUpServices(BackupPass& pass) {
  scanServiceDescriptors(
      {.entry = [](const std::string& name) { printText(texts::kDescriptorEntry, name.c_str()); },
       .shortName = [](const std::string& name) { debugLine("nextPath", name); },
       .longName = [](const std::string& name) { debugText("%s\n", name.c_str()); },
       .taken =
           [&](const std::string& path) {
             debugLine("serviceConfFilePath", path);
             if (!host::exists(path)) return;
             const ServiceDescriptor descriptor = ServiceDescriptor::read(path);
             showDescriptor(descriptor);
             if (isEnabledForBackup(descriptor.serviceName(), pass.preferences)) {
               backUpService(descriptor, pass);
             }
           }});
}

std::string toolAnswer(const char* tool, const std::vector<std::string>& arguments) {
  return host::RunTask(tool, arguments, {.error = host::dropOutput, .plainLocale = true}).output;
}

void writeSourceDiskInfo(const ProgressLog& progress) {
  progress.step("Creating server boot disk info file...");
  const std::string path = joinPath(paths::kMetadataFolder, paths::kSourceDiskInfoName);
  // A failure is not reported: a restore without this file refuses itself.
  (void)host::writeFile(path, toolAnswer(paths::kVolumeTool, {"info", "-plist", "/"}));
  debugPlatformLog("Server boot disk info file writing done to path := %s", path.c_str());
  progress.step("Server boot disk info file creation done.");
}

void writeSignature(const ProgressLog& progress) {
  progress.step("Writting backup signature...");  // Kept: administrators search for this spelling.
  const std::string path = joinPath(paths::kMetadataFolder, paths::kSignatureName);
  const std::string signature = toolAnswer(paths::kUuidTool, {});
  // A signature on disk means that the whole folder before it is on disk.
  if (host::syncFileSystem(paths::kMetadataFolder)) {
    (void)host::writeFile(path, signature, host::Durability::power);
  }
  debugPlatformLog("Backup signature writing done to path := %s", path.c_str());
  progress.step("Backup signature writing done.");
}

/// Whether this volume of this host can be backed up at all.
bool isBackupSource(const CommandLine& line) {
  const bool valid = isValidSystem(line) != 0;  // always asked, so that its lines are always there
  return valid && line.option("-source") == "/";
}

/// The part of the run that its gates protect.
void fillMetadataFolder(ProgressLog& progress) {
  validate_FullPath("");
  validate_LogPaths();
  const PreferenceRecord& preferences = get_Helmsman_Prefs();
  get_Boot_Volume_Size();  // Kept: the measurement is not used.
  resetMetadataFolder();
  BackupPass pass{.preferences = preferences, .progress = ProgressLog::open()};
  backUpServices(pass);
  writeSourceDiskInfo(pass.progress);
  writeSignature(pass.progress);
  progress = std::move(pass.progress);
}

void finishRun(ProgressLog progress) {
  progress.step(texts::kRunDone);
  progress = ProgressLog();
  CreateMasterBrowse();
}

}  // namespace

void Backup(const CommandLine& line) {
  const FunctionLog scope(__func__);
  if (!get_Helmsman_Prefs().hasAnyService()) {
    if (runState().debug) {
      printText("Backups are not enabled or no services are enabled for backup!\n");
      return;
    }
    finishRun(ProgressLog());  // Kept: the log was never opened, so "Done." is lost.
    return;
  }
  ProgressLog progress = ProgressLog::open();
  debugText("Backups are enabled!\n");
  progress.step("Starting...");
  debugLine("sourceVolume", line.option("-source"));
  if (isBackupSource(line)) {
    fillMetadataFolder(progress);
  } else {
    debugText("The target drive for backup is not the correct Server version.\n");
  }
  finishRun(std::move(progress));
}

}  // namespace halyard

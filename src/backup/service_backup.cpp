// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/service_backup.h"

#include <cstddef>
#include <vector>

#include "config/plugin_call.h"
#include "frontend/run/output.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "host/tree/tree_copy.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_names.h"

namespace halyard {

namespace {

/// A command line of a descriptor: split at every single blank, without quoting.
struct ServiceCommand {
  std::vector<std::string> pieces;  ///< At least one; the first is the executable.

  explicit ServiceCommand(const std::string& line) {
    for (const std::string_view piece : splitAt(line, ' ')) pieces.emplace_back(piece);
  }
  const std::string& executable() const { return pieces.front(); }
  std::vector<std::string> arguments() const { return {pieces.begin() + 1, pieces.end()}; }

  std::int32_t run() const {
    return host::RunTask(executable(), arguments(),
                         {.output = host::dropOutput, .error = host::dropOutput})
        .status;
  }
  void dumpParts() const {
    dump(executable());
    dump(arguments());
  }
};

void runPreBackupCommands(const ServiceDescriptor& descriptor, const BackupPass& pass) {
  for (const std::string& line : descriptor.list(descriptor_keys::kPreBackupServiceCommands)) {
    const ServiceCommand command(line);
    dump(command.executable());
    dump(command.pieces);
    dump(command.arguments());
    (void)command.run();
    // Kept: the status that is looked at is not this command's.
    if (pass.lastStatus == 0) continue;
    platformLogText("Error in calling pre-backup command for service %s, error :=%d",
                    orNull(descriptor.serviceName()), pass.lastStatus);
    command.dumpParts();
  }
}

void runBackupExecutable(const ServiceDescriptor& descriptor, const std::string& folder,
                         BackupPass& pass) {
  PluginCall call(
      descriptor.text(descriptor_keys::kBackupBinaryPath),
      {"-cmd", "backup", "-path", folder, "-log", descriptor.text(descriptor_keys::kBackupLog)});
  call.addOption(descriptor.defaultAction());
  const host::TaskResult result = call.runUnheard();
  pass.lastStatus = result.status;
  if (pass.lastStatus != 0) {
    platformLogText(texts::kBackupCallFailed, orNull(descriptor.serviceName()), pass.lastStatus);
  }
  debugDump(call.executable);
  debugDump(call.arguments);
  debugDump(MaybeString(result.output));
  debugText("ret of %s := %d\n", orNull(call.executable), pass.lastStatus);
}

void runPostBackupCommands(const ServiceDescriptor& descriptor, BackupPass& pass) {
  for (const std::string& line : descriptor.list(descriptor_keys::kPostBackupServiceCommands)) {
    const ServiceCommand command(line);
    dump(command.executable());
    dump(command.pieces);
    pass.lastStatus = command.run();
    if (pass.lastStatus == 0) continue;
    platformLogText(texts::kPostBackupCallFailed, orNull(descriptor.serviceName()),
                    pass.lastStatus);
    command.dumpParts();
  }
}

/// Copies one file or folder to its place in the service folder. The folder that directly holds it
/// there is not made: a plug-in makes it, or the copy fails.
void copyIntoFolder(const std::string& source, const std::string& folder) {
  mirrorAncestorDirectories(source, folder);
  const std::string below = source.starts_with('/') ? source.substr(1) : source;
  const std::string destination = joinPath(folder, below);
  if (source.starts_with('/') && host::copyItem(source, destination)) return;
  printText(texts::kCopyFailed, source.c_str(), destination.c_str(), 0);
}

void copyFiles(const ServiceDescriptor& descriptor, const std::string& folder) {
  for (const std::string& source : descriptor.list(descriptor_keys::kDataFiles))
    copyIntoFolder(source, folder);
  for (const std::string& source : descriptor.list(descriptor_keys::kConfigurationFiles)) {
    platformLogText("SRC := %s\nDST := %s", source.c_str(), folder.c_str());
    copyIntoFolder(source, folder);
  }
}

/// Kept: these lines say "Skipping" of the services that are being processed.
void logFlags(const PreferenceRecord& preferences) {
  for (std::size_t i = 0; i < kKnownServices.size(); ++i) {
    debugPlatformLog("Skipping: %s : %ld", std::string(kKnownServices.at(i)).c_str(),
                     long{preferences.serviceFlag(i)});
  }
}

}  // namespace

void mirrorAncestorDirectories(const std::string& source, const std::string& copyRoot) {
  const std::vector<std::string> components = pathComponents(source);
  std::string above;  // the source folder whose attributes the next folder gets
  for (std::size_t i = 0; i + 2 < components.size(); ++i) {
    const auto attributes = host::readAttributes(above);
    above = above.empty() ? components[i] : appendPath(above, components[i]);
    const std::string target = appendPath(copyRoot, above);
    if (host::exists(target)) continue;
    (void)(attributes ? host::createDirectory(target, *attributes)
                      : host::createDirectory(target));  // The copy that follows will tell.
  }
}

bool isEnabledForBackup(const MaybeString& service, const PreferenceRecord& preferences) {
  if (!service) return true;
  const auto index = knownServiceIndex(*service);
  return isBackedUp(*service, index ? preferences.serviceFlag(*index) : 0);
}

void backUpService(const ServiceDescriptor& descriptor, BackupPass& pass) {
  const MaybeString service = descriptor.serviceName();
  logFlags(pass.preferences);
  const std::string folder = joinPath(paths::kMetadataFolder, service);
  if (!host::exists(folder)) (void)host::createDirectory(folder);  // The copies will tell.
  debugLine("pStr", folder);
  pass.progress.step(service, texts::kPreBackupBegun);
  runPreBackupCommands(descriptor, pass);
  pass.progress.step(service, "Calling service backup binary...");
  runBackupExecutable(descriptor, folder, pass);
  pass.progress.step(service, texts::kPostBackupBegun);
  runPostBackupCommands(descriptor, pass);
  copyFiles(descriptor, folder);
  pass.progress.step(service, texts::kServiceDone);
}

}  // namespace halyard

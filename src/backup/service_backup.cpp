#include "backup/service_backup.h"

#include <cstddef>
#include <vector>

#include "config/ancestor_mirror.h"
#include "frontend/run/log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "host/tree/tree_copy.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_names.h"

namespace halyard {

namespace {

/// A command line of a descriptor: split at every single blank, without quoting.
struct CommandLine {
  std::vector<std::string> pieces;  ///< At least one; the first is the executable.

  explicit CommandLine(const std::string& line) {
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
  for (const std::string& line : descriptor.list("PreBackupServiceCommands")) {
    const CommandLine command(line);
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
  const MaybeString executable = descriptor.text("BackupBinaryPath");
  auto arguments = host::argumentsUpToAbsent(
      {"-cmd", "backup", "-path", folder, "-log", descriptor.text("BackupLog")});
  if (const MaybeString action = descriptor.defaultAction()) {
    arguments.insert(arguments.end(), {"-opt", *action});
  }
  host::TaskOptions options{.output = host::dropOutput, .error = host::dropOutput};
  if (runState().debug) options.output = nullptr;  // captured for the dump below
  const host::TaskResult result = host::RunTask(executable, arguments, options);
  pass.lastStatus = result.status;
  if (pass.lastStatus != 0) {
    platformLogText(texts::kBackupCallFailed, orNull(descriptor.serviceName()), pass.lastStatus);
  }
  debugDump(executable);
  debugDump(arguments);
  debugDump(MaybeString(result.output));
  debugText("ret of %s := %d\n", orNull(executable), pass.lastStatus);
}

void runPostBackupCommands(const ServiceDescriptor& descriptor, BackupPass& pass) {
  for (const std::string& line : descriptor.list("PostBackupServiceCommands")) {
    const CommandLine command(line);
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
  for (const std::string& source : descriptor.list("DataFiles")) copyIntoFolder(source, folder);
  for (const std::string& source : descriptor.list("ConfigurationFiles")) {
    platformLogText("SRC := %s\nDST := %s", source.c_str(), folder.c_str());
    copyIntoFolder(source, folder);
  }
}

/// Kept: these lines say "Skipping" of the services that are being processed.
void logFlags() {
  for (std::size_t i = 0; i < kKnownServices.size(); ++i) {
    debugPlatformLog("Skipping: %s : %ld", std::string(kKnownServices.at(i)).c_str(),
                     long{runState().preferences.serviceFlag(i)});
  }
}

}  // namespace

bool isEnabledForBackup(const MaybeString& service) {
  if (!service) return true;
  const auto index = knownServiceIndex(*service);
  return isBackedUp(*service, index ? runState().preferences.serviceFlag(*index) : 0);
}

void backUpService(const ServiceDescriptor& descriptor, BackupPass& pass) {
  const MaybeString service = descriptor.serviceName();
  logFlags();
  const std::string folder = joinPath(paths::kMetadataFolder, service);
  if (!host::exists(folder)) (void)host::createDirectory(folder);  // The copies will tell.
  debugLine("pStr", folder);
  pass.progress.step(service, "Calling service pre-backup items...");
  runPreBackupCommands(descriptor, pass);
  pass.progress.step(service, "Calling service backup binary...");
  runBackupExecutable(descriptor, folder, pass);
  pass.progress.step(service, "Calling service post-backup items...");
  runPostBackupCommands(descriptor, pass);
  copyFiles(descriptor, folder);
  pass.progress.step(service, texts::kServiceDone);
}

}  // namespace halyard

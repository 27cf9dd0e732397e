// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/dispatch.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "backup/backup.h"
#include "backup/metadata_folder.h"
#include "backup/size.h"
#include "browse/browse.h"
#include "browse/verify.h"
#include "catalogue/purge.h"
#include "catalogue/services.h"
#include "catalogue/snapshot_list.h"
#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/pid_file.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "frontend/usage.h"
#include "host/files/files.h"
#include "host/log/clock.h"
#include "host/log/system_log.h"
#include "product/paths.h"
#include "restore/restore.h"
#include "restore/restore_service.h"

namespace halyard {

namespace {

constexpr std::int32_t kRefused = 1;
constexpr std::int32_t kNoBrowseFolder = 2;

/// Prints the message and ends the process; the pid file stays, as every run after it will tell.
[[noreturn]] void refuse(const char* message, std::int32_t status = kRefused) {
  printText("%s\n", message);
  endProcess(status);
}

std::int32_t runBackup(const CommandLine& line) {
  const MaybeString source = line.option("-source");
  if (!source) return 0;
  if (!host::exists(*source)) {
    printText("Source volume %s for backup does not exist.\n", source->c_str());
    Usage();
    return 0;
  }
  if (willDoBackup() == 0) {
    removePidProcessFile();
    refuse("Backups are not enabled or no services are enabled for backup!");
  }
  (void)haveRoomForBackup(line);  // Kept: the answer is always yes, and nobody looks at it.
  Backup(line);
  return 0;
}

std::int32_t runBrowse(const CommandLine& line) {
  const MaybeString path = line.option("-path");
  if (!path) return 0;
  if (!host::isDirectory(*path)) {
    refuse("Snapshot path for browing does not exist.", kNoBrowseFolder);
  }
  Browse(line);
  return 0;
}

/// Logged instead of a second restore while the marker of the first is there.
void reportRestoreFailed() {
  ProgressLog::open().error("Restore failed.");
  host::systemLog(host::kErrorPriority, "Halyard :: Restore failed.\n");
}

std::int32_t runRestore(const CommandLine& line) {
  const MaybeString path = line.option("-path");
  if (!path) return 0;
  // Kept: the restore commands share the browse message, misspelling included.
  if (!host::exists(*path)) refuse("Image path for browing does not exist.");
  if (host::exists(paths::kRestoreMarker)) {
    reportRestoreFailed();
    return 0;
  }
  Restore(line);
  // A restore that ran to its end has removed the folder; then no marker can be written.
  (void)host::writeFile(paths::kRestoreMarker, host::currentDateText(), host::Durability::power);
  return 0;
}

std::int32_t runRestoreService(const CommandLine& line) {
  const MaybeString path = line.option("-path");
  if (!path) return 0;
  if (!host::exists(*path)) refuse("Image path for browing does not exist.");
  const MaybeString service = line.option("-service");
  if (isValidService(service) == 0) {
    printText("Service supplied for restore (%s) is not recognized.\n", orNull(service));
    endProcess(kRefused);
  }
  RestoreService(line);
  return 0;
}

std::int32_t runVerify(const CommandLine& line) {
  const MaybeString path = line.option("-path");
  if (!path) return 0;
  if (!host::exists(*path)) refuse("Image path for verifying does not exist.");
  (void)Verify(line);  // Kept: the count never reaches the exit status.
  return 0;
}

std::int32_t runSize(const CommandLine& /*line*/) {
  (void)SizeRequired(true);
  return 0;
}

/// A command that reads nothing of the command line.
template <auto command>
std::int32_t run(const CommandLine& /*line*/) {
  (void)command();
  return 0;
}

enum class PidFile { none, whileRunning };

struct Command {
  std::string_view word;  ///< Compared without regard to case.
  std::array<std::int32_t, 4> wordCounts;
  std::int32_t (*run)(const CommandLine& line);
  PidFile pidFile = PidFile::none;
};

constexpr std::array kCommands = {
    Command{"Backup", {5}, runBackup, PidFile::whileRunning},
    Command{"Browse", {7, 9}, runBrowse},
    Command{"Help", {3}, run<Usage>},
    Command{"List", {3, 5}, run<List>},
    Command{"ListVerbose", {3, 5}, run<ListVerbose>},
    Command{"postBackupComplete", {3}, run<PostBackupComplete>},
    Command{"Prefs", {3}, run<Prefs>},
    Command{"PurgeSnapShot", {5}, PurgeSnapShot},
    Command{"Restore", {7}, runRestore, PidFile::whileRunning},
    Command{"RestoreService", {7, 9, 11, 12}, runRestoreService, PidFile::whileRunning},
    Command{"Services", {3}, run<Services>},
    Command{"Size", {3}, runSize},
    Command{"Version", {3}, run<Version>},
    Command{"Verify", {7}, runVerify, PidFile::whileRunning},
};

/// Kept: a missing command word compares equal to the first row.
const Command* findCommand(const MaybeString& word) {
  if (!word) return &kCommands.front();
  const auto* const found = std::ranges::find_if(
      kCommands, [&](const Command& command) { return equalsIgnoringCase(command.word, *word); });
  return found == kCommands.end() ? nullptr : found;
}

void printWrongCount(const Command& command, const CommandLine& line) {
  const MaybeString word = line.option("-cmd");
  if (command.run == runRestoreService) {
    printText("Wrong number of parameters for %s. %d\n", orNull(word), line.wordCount);
  } else {
    printText("Wrong number of parameters for %s.\n", orNull(word));
  }
  Usage();
}

std::int32_t runCommand(const Command* command, const CommandLine& line) {
  if (command == nullptr) {
    printText("Legal options were not supplied!\n");
    Usage();
    return 0;
  }
  if (std::ranges::find(command->wordCounts, line.wordCount) == command->wordCounts.end()) {
    printWrongCount(*command, line);
    return 0;
  }
  return command->run(line);
}

}  // namespace

std::int32_t validateOptionsAndDispatch(const CommandLine& line) {
  const FunctionLog scope(__func__);
  const MaybeString word = line.option("-cmd");
  if (!host::exists(paths::kSetupMarker)) {
    refuse(
        "WARNING: The server is not setup so there are no actions to be performed until setup is "
        "complete.");
  }
  const Command* const command = findCommand(word);
  const bool marksRun = command != nullptr && command->pidFile == PidFile::whileRunning;
  if (marksRun) setPidForProcess(word);
  const std::int32_t status = runCommand(command, line);
  if (marksRun) removePidProcessFile();
  return status;
}

}  // namespace halyard

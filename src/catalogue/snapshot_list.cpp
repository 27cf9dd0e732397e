// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "catalogue/snapshot_list.h"

#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/computer_name.h"
#include "product/paths.h"
#include "product/stored_snapshots.h"

namespace halyard {

namespace {

enum class Listing { names, longLines };

/// Kept: an entry whose own name begins with "total" is dropped too.
bool isListed(std::string_view line, Listing listing) {
  if (line.empty() || line.starts_with("total")) return false;
  return listing == Listing::longLines || lastPathComponent(line) != paths::kLatestName;
}

void printSnapshots(Listing listing) {
  const std::string snapShotPath =
      hostSnapshotFolder(get_Helmsman_Prefs().backupDestination, computerName());
  debugPlatformLog("List:snapShotPath =: %s", snapShotPath.c_str());
  if (!host::isDirectory(snapShotPath)) {
    printText("Error: snapShotPath %s does not exist!\n", snapShotPath.c_str());
    return;
  }
  const char* const format = listing == Listing::longLines ? "-Alh" : "-A";
  const std::string listed = host::RunTask(paths::kLs, {format, snapShotPath},
                                           {.error = host::dropOutput, .plainLocale = true})
                                 .output;
  debugText("dirItemsReturned %s\n", listed.c_str());
  forEachLine(listed, [&](std::string_view line) {
    if (isListed(line, listing)) printBytes(snapShotPath + "/" + std::string(line) + "\n");
  });
}

}  // namespace

void List() {
  const FunctionLog scope(__func__);
  printSnapshots(Listing::names);
}

void ListVerbose() {
  const FunctionLog scope(__func__);
  printSnapshots(Listing::longLines);
}

}  // namespace halyard

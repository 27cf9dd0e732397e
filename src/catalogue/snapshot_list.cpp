#include "catalogue/snapshot_list.h"

#include "base/property_list.h"
#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard {

namespace {

enum class Listing { names, longLines };

/// Kept: an entry whose own name begins with "total" is dropped too.
bool isListed(std::string_view line, Listing listing) {
  if (line.empty() || line.starts_with("total")) return false;
  return listing == Listing::longLines || lastPathComponent(line) != "Latest";
}

void printSnapshots(Listing listing) {
  get_Helmsman_Prefs();
  const std::string snapShotPath = joinPath(
      joinPath(runState().preferences.backupDestination, paths::kRepositoryName), computerName());
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

std::string computerName() {
  constexpr const char* kUnknown = "Unknown_Computer";
  const auto file = host::readDictionary(appendPath("/", paths::kHostConfigurationFile));
  const auto* const system = file ? file->dictionary("System") : nullptr;
  const auto* const inner = system != nullptr ? system->dictionary("System") : nullptr;
  return inner != nullptr ? inner->text("ComputerName").value_or(kUnknown) : kUnknown;
}

void List() {
  const FunctionLog scope(__func__);
  printSnapshots(Listing::names);
}

void ListVerbose() {
  const FunctionLog scope(__func__);
  printSnapshots(Listing::longLines);
}

}  // namespace halyard

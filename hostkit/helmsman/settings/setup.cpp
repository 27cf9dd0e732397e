// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/setup.h"

#include <unistd.h>

#include <array>
#include <string>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/property_file.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/scrub_schedule.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/service_links.h"
#include "helmsman/settings/settings.h"
#include "host/files/files.h"
#include "product/computer_name.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

// The host generation that this kit provides; Halyard wants 10.6 or later.
constexpr char kProductVersion[] = "10.7";

// Each is run by Halyard or by the kit at exactly this path.
constexpr std::array<const char*, 9> kPrograms = {
    paths::kProgram, paths::kSnapshotTool, paths::kVolumeTool, paths::kUuidTool, paths::kMkdir,
    paths::kLs,      paths::kDf,           paths::kGrep,       paths::kAwk};

bool provideFolders() {
  bool complete = true;
  for (const FixedFolder& folder : fixedFolders()) {
    std::string problem;
    switch (provideFolder(folder, problem)) {
      case FolderOutcome::alreadyThere:
        break;
      case FolderOutcome::made:
        printNote(std::string("made ") + folder.path + ", which leads to " + folder.native);
        break;
      case FolderOutcome::failed:
        printError(problem);
        complete = false;
    }
  }
  return complete;
}

bool written(const char* path, const PropertyDictionary& content, const std::string& what) {
  if (!writePropertyFile(path, content)) {
    printError(std::string(path) + " could not be written");
    return false;
  }
  printNote("wrote " + what + " to " + path);
  return true;
}

bool provideVersionFile() {
  if (host::exists(paths::kHostVersionFile)) return true;
  PropertyDictionary version;
  version.set("ProductName", "Halyard host kit");
  version.set("ProductVersion", kProductVersion);
  return written(paths::kHostVersionFile, version, std::string("host version ") + kProductVersion);
}

// A name that is set stays: it is the name of the folder with all earlier snapshots.
bool provideComputerName() {
  if (computerName() != kUnknownComputer) return true;
  std::string problem;
  auto configuration = readPropertyFile(paths::kHostConfigurationFile, problem);
  if (!problem.empty()) {
    printError(problem);
    return false;
  }
  const std::string name = computerNameFromHost();
  if (!makeFolders(parentPath(paths::kHostConfigurationFile), 0755)) {
    printError(std::string("the folder of ") + paths::kHostConfigurationFile +
               " could not be made");
    return false;
  }
  PropertyDictionary whole = configuration.value_or(PropertyDictionary{});
  setComputerName(whole, name);
  return written(paths::kHostConfigurationFile, whole, "computer name " + name);
}

bool provideMarker() {
  if (host::exists(paths::kSetupMarker)) return true;
  if (!host::writeFile(paths::kSetupMarker, "", host::Durability::power)) {
    printError(std::string(paths::kSetupMarker) + " could not be written");
    return false;
  }
  printNote("setup is complete");
  return true;
}

void warnOfMissingPrograms() {
  for (const char* program : kPrograms) {
    if (!host::isExecutableFile(program)) {
      printWarning(std::string(program) + " is missing; backups will not be complete without it");
    }
  }
}

}  // namespace

std::string computerNameFromHost() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return kUnknownComputer;
  return computerNameFromHostName(name.data());
}

int setUpHost() {
  bool ready = provideFolders();
  ready = repairSettings() == kSuccess && ready;
  ready = placeLinksOfServicesThatAreOn() && ready;
  ready = provideVersionFile() && ready;
  ready = provideComputerName() && ready;
  ready = scheduleScrubUnlessChosen() && ready;
  warnOfMissingPrograms();
  for (const UncoveredServer& server : uncoveredServers()) printWarning(describe(server));
  if (!ready) {
    printError("setup is not complete; mend what is named above and run it again");
    return kFailure;
  }
  return provideMarker() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

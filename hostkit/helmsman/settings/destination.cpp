// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/destination.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/property_file.h"
#include "common/sizes.h"
#include "common/table.h"
#include "helmsman/settings/schedule.h"
#include "helmsman/settings/scrub_schedule.h"
#include "helmsman/settings/settings.h"
#include "helmsman/settings/timer.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/volumes/alias.h"
#include "host/volumes/mount_table.h"
#include "host/volumes/volume.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/stored_snapshots.h"

namespace halyard::hostkit {

namespace {

namespace keys = preference_keys;

bool onVolumeOfRoot(const std::string& path) {
  struct stat here {};
  struct stat root {};
  return ::stat(path.c_str(), &here) == 0 && ::stat("/", &root) == 0 && here.st_dev == root.st_dev;
}

// Makes a file, gives it away and links it: what every snapshot needs. Empty when all went well.
std::string whatIsMissing(const std::string& folder) {
  std::string probe = joinPath(folder, ".helmsman-probe-XXXXXX");
  const int file = ::mkostemp(probe.data(), O_CLOEXEC);
  if (file < 0) return "nothing can be written there: " + errnoText(errno);
  const std::string link = probe + ".link";
  std::string missing;
  struct stat status {};
  constexpr uid_t kSomebody = 12345;
  if (::fchown(file, kSomebody, kSomebody) != 0 || ::fstat(file, &status) != 0 ||
      status.st_uid != kSomebody) {
    missing = "its file system does not keep owners";
  } else if (::link(probe.c_str(), link.c_str()) != 0) {
    missing = "its file system has no hard links";
  }
  (void)::unlink(link.c_str());  // There may be none.
  (void)::unlink(probe.c_str());
  ::close(file);
  return missing;
}

std::optional<PropertyDictionary> enginePreferences() {
  if (repairSettings() != kSuccess) return std::nullopt;
  std::string problem;
  auto preferences = readPropertyFile(paths::kEnginePreferenceFile, problem);
  if (!preferences) printError(problem);
  return preferences;
}

std::string storedSpecification(const PropertyDictionary& preferences) {
  const PropertyValue* alias = preferences.find(keys::kBackupAlias);
  if (alias == nullptr) return {};
  if (const std::string* bytes = alias->asData()) return *bytes;
  if (const std::string* text = alias->asString()) return *text;
  return {};
}

// What is remembered for a path: the volume's UUID when the path is its mount point.
std::string lastingSpecification(const DestinationArguments& arguments, const std::string& path) {
  if (arguments.asGiven || !arguments.specification.starts_with('/')) {
    return arguments.specification;
  }
  const auto volume = host::volumeOf(path);
  if (!volume || volume->mountPoint != host::realPath(path).value_or(path) ||
      volume->mountPoint == "/" || !volume->device.starts_with("/dev/") ||
      volume->identity != host::Volume::Identity::fileSystem) {
    return arguments.specification;
  }
  const std::string byUuid = "UUID=" + volume->uuid;
  // Only what leads back here: the same volume may be mounted in two places.
  return host::resolveAlias(byUuid) == volume->mountPoint ? byUuid : arguments.specification;
}

bool isFit(const DestinationArguments& arguments, const std::string& path) {
  if (!arguments.sameVolume && onVolumeOfRoot(path)) {
    printError(path + " is on the volume that is backed up; a disk that fails takes both. " +
               "Name another volume, or say --same-volume");
    return false;
  }
  if (const std::string missing = whatIsMissing(path); !missing.empty()) {
    printError(path + " cannot hold snapshots: " + missing);
    return false;
  }
  return true;
}

// What the destination will not survive; told, since it may be meant.
void warnOfNextStart(const host::Volume& volume) {
  if (volume.type == "tmpfs" || volume.type == "ramfs") {
    printWarning(volume.mountPoint + " is in memory: all snapshots go with the next start");
  } else if (volume.device.starts_with("/dev/") && volume.mountPoint != "/" &&
             host::listedMountPoints(volume.mountPoint).empty()) {
    printWarning(volume.mountPoint +
                 " is not in /etc/fstab: after the next start no backup runs until it is mounted");
  }
}

int show(bool asJson) {
  std::string problem;
  const auto preferences = readPropertyFile(paths::kEnginePreferenceFile, problem);
  if (!problem.empty()) printError(problem);
  const std::string specification = preferences ? storedSpecification(*preferences) : "";
  const auto session = defaultBackupSession(paths::kEnginePreferenceFile);
  const Result<host::Volume> volume =
      session ? host::volumeOf(session->destination) : Error{ENOENT, specification};
  if (asJson) {
    nlohmann::json document = {{"specification", nullptr}, {"path", nullptr}};
    if (!specification.empty()) document["specification"] = specification;
    if (session) document["path"] = session->destination;
    if (volume) document["availableBytes"] = volume->freeBytes;
    if (volume) document["totalBytes"] = volume->totalBytes;
    printJson(document);
  } else if (specification.empty()) {
    printError("no backup destination is set (see: helmsman destination --list)");
  } else if (!session) {
    printError(specification +
               " is set and is not there; is the volume connected, and mounted or in /etc/fstab?");
  } else {
    printLine(session->destination + " (" + specification + ")" +
              (volume ? ", " + sizeText(volume->freeBytes) + " of " + sizeText(volume->totalBytes) +
                            " free"
                      : ""));
  }
  return session && finishOutput() ? kSuccess : kFailure;
}

int set(const DestinationArguments& arguments) {
  const auto path = host::resolveAlias(arguments.specification);
  if (!path) {
    printError("'" + arguments.specification +
               "' leads to no volume: name a mounted folder, or UUID=, LABEL=, PARTUUID= or "
               "PARTLABEL= of a volume that is mounted or in /etc/fstab");
    return kFailure;
  }
  if (!isFit(arguments, *path)) return kFailure;
  auto preferences = enginePreferences();
  if (!preferences) return kFailure;

  const std::string specification = lastingSpecification(arguments, *path);
  preferences->set(keys::kBackupAlias, PropertyValue::data(specification));
  preferences->set(keys::kAutoBackup, 1);
  if (!writePropertyFile(paths::kEnginePreferenceFile, *preferences)) {
    printError(std::string(paths::kEnginePreferenceFile) + " could not be written");
    return kFailure;
  }
  // The timer rests until there is somewhere to go.
  const std::string calendar = calendarExpression(scheduleFrom(*preferences));
  if (!setTimer(Timed::backup, TimerState::on, calendar)) return kFailure;
  if (!scheduleScrubUnlessChosen()) return kFailure;
  const auto volume = host::volumeOf(*path);
  if (volume) warnOfNextStart(*volume);
  if (arguments.json) return show(true);
  printNote("snapshots go to " + *path + " (" + specification + ")" +
            (volume ? ", " + sizeText(volume->freeBytes) + " free" : ""));
  return kSuccess;
}

int list(bool asJson) {
  nlohmann::json volumes = nlohmann::json::array();
  std::vector<std::vector<std::string>> rows = {
      {"SPECIFICATION", "MOUNT POINT", "TYPE", "SIZE", "FREE", "LABEL"}};
  for (const host::Volume& volume : host::mountedVolumes()) {
    if (volume.readOnly || volume.type == "tmpfs" || volume.type == "overlay" ||
        onVolumeOfRoot(volume.mountPoint)) {
      continue;
    }
    const bool byUuid =
        volume.device.starts_with("/dev/") && volume.identity == host::Volume::Identity::fileSystem;
    const std::string specification = byUuid ? "UUID=" + volume.uuid : volume.mountPoint;
    volumes.push_back({{"specification", specification},
                       {"mountPoint", volume.mountPoint},
                       {"type", volume.type},
                       {"totalBytes", volume.totalBytes},
                       {"availableBytes", volume.freeBytes},
                       {"label", volume.label}});
    rows.push_back({specification, volume.mountPoint, volume.type, sizeText(volume.totalBytes),
                    sizeText(volume.freeBytes), volume.label});
  }
  if (asJson) {
    printJson({{"volumes", std::move(volumes)}});
  } else if (rows.size() == 1) {
    printNote("no other volume is mounted; connect and mount one, then name it here");
  } else {
    std::fputs(tableText(rows).c_str(), stdout);
  }
  return finishOutput() ? kSuccess : kFailure;
}

}  // namespace

std::string destinationSpecification() {
  const auto preferences = host::readDictionary(paths::kEnginePreferenceFile);
  return preferences ? storedSpecification(*preferences) : "";
}

int destination(const DestinationArguments& arguments) {
  if (arguments.list) return list(arguments.json);
  if (arguments.show || arguments.specification.empty()) return show(arguments.json);
  return set(arguments);
}

}  // namespace halyard::hostkit

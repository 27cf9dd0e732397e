#include "helmsman/restore/restore_plan.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/paths.h"
#include "common/sizes.h"
#include "common/times.h"
#include "common/volumes.h"
#include "helmsman/run/tree_size.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kRecordLimit = std::size_t{16} << 20;

std::uint64_t inodeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

PlannedItem plannedItem(const std::string& path, bool configuration, const std::string& saved) {
  PlannedItem item;
  item.path = path;
  item.configuration = configuration;
  item.inSnapshot = host::exists(appendPath(saved, path));
  item.live = host::exists(path);
  item.previous = inodeOf(asidePath(path)) != 0;
  item.inode = inodeOf(path);
  if (item.inSnapshot) item.bytes = treeBytes(appendPath(saved, path));
  return item;
}

// The folder nearest to the path that is there already.
std::string standingFolder(std::string path) {
  while (path.size() > 1 && !host::isDirectory(path)) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return "/";
    path.resize(std::max<std::size_t>(slash, 1));
  }
  return path;
}

}  // namespace

std::string asidePath(const std::string& path) { return path + ".previous"; }

std::vector<PlannedItem> planRestore(const std::vector<InstalledDescriptor>& descriptors,
                                     const Snapshot& snapshot) {
  std::vector<PlannedItem> plan;
  for (const InstalledDescriptor& descriptor : descriptors) {
    const std::string saved = joinPath(snapshot.metadataFolder, descriptor.serviceName());
    for (const char* key : {"ConfigurationFiles", "DataFiles"}) {
      const bool configuration = key == std::string_view("ConfigurationFiles");
      for (const std::string& path :
           descriptor.content.texts(key).value_or(std::vector<std::string>{})) {
        plan.push_back(plannedItem(path, configuration, saved));
      }
    }
  }
  return plan;
}

std::vector<std::string> roomProblems(const std::vector<PlannedItem>& plan) {
  struct Need {
    std::uint64_t bytes = 0;
    std::uint64_t free = 0;
  };
  std::map<std::string, Need> needs;
  for (const PlannedItem& item : plan) {
    if (!item.inSnapshot) continue;
    int error = 0;
    const auto volume = volumeOf(standingFolder(item.path), error);
    if (!volume) continue;
    Need& need = needs[volume->mountPoint];
    need.bytes += item.bytes;
    need.free = volume->freeBytes;
  }
  std::vector<std::string> problems;
  for (const auto& [mountPoint, need] : needs) {
    // The live items stay beside the restored ones, so nothing is freed.
    if (need.bytes <= need.free) continue;
    problems.push_back("the volume at " + mountPoint + " needs " + sizeText(need.bytes) +
                       " and has " + sizeText(need.free) + " free");
  }
  return problems;
}

std::vector<std::string> restoreProblems(const std::vector<PlannedItem>& plan) {
  std::vector<std::string> problems;
  for (const PlannedItem& item : plan) {
    if (!item.inSnapshot) continue;
    if (!host::exists(item.path)) {
      problems.push_back(item.path + " was not put back" +
                         (item.live ? "; the live one is " + asidePath(item.path) : ""));
    } else if (item.live && inodeOf(item.path) == item.inode) {
      problems.push_back(item.path + " was not replaced");
    }
  }
  return problems;
}

nlohmann::json restoreRecordJson(const RestoreRecord& record) {
  nlohmann::json items = nlohmann::json::array();
  for (const auto& item : record.items) {
    items.push_back({{"path", item.path}, {"wasLive", item.wasLive}});
  }
  return {{"service", record.service},
          {"snapshot", record.snapshot},
          {"time", timeText(record.time)},
          {"undone", record.undone},
          {"items", items}};
}

std::optional<RestoreRecord> restoreRecordFrom(const nlohmann::json& document) {
  const auto text = [](const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
  };
  const auto flag = [](const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
  };
  if (!document.is_object() || !document.contains("items") || !document["items"].is_array()) {
    return std::nullopt;
  }
  RestoreRecord record;
  record.service = text(document, "service");
  record.snapshot = text(document, "snapshot");
  record.time = parseTime(text(document, "time")).value_or(0);
  record.undone = flag(document, "undone");
  for (const auto& item : document["items"]) {
    // Only what a restore can have named: undo moves nothing else.
    if (!item.is_object() || !text(item, "path").starts_with('/')) return std::nullopt;
    record.items.push_back({text(item, "path"), flag(item, "wasLive")});
  }
  return record;
}

std::optional<RestoreRecord> readRestoreRecord(const std::string& service) {
  const auto bytes = host::readFile(joinPath(kUndoFolder, service + ".json"), kRecordLimit);
  if (!bytes) return std::nullopt;
  return restoreRecordFrom(nlohmann::json::parse(*bytes, nullptr, false));
}

bool keepRestoreRecord(const RestoreRecord& record) {
  return makeFolders(kUndoFolder, 0700) &&
         host::writeFile(joinPath(kUndoFolder, record.service + ".json"),
                         restoreRecordJson(record).dump(2, ' ', false,
                                                        nlohmann::json::error_handler_t::replace) +
                             "\n",
                         host::Durability::power);
}

}  // namespace halyard::hostkit

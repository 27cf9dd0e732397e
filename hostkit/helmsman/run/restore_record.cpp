// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/restore_record.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "base/text.h"
#include "common/json_members.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/services.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kRecordLimit = std::size_t{16} << 20;
constexpr std::string_view kRecordEnd = ".json";

nlohmann::json itemsJson(const std::vector<RestoreRecord::Item>& items) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& item : items) {
    list.push_back({{"path", item.path},
                    {"wasLive", item.wasLive},
                    {"aside", item.aside.inode},
                    {"asideBorn", item.aside.born}});
  }
  return list;
}

// False when the list is none of a record: only what a restore can have named is ever moved.
bool readItems(const nlohmann::json& document, const char* key,
               std::vector<RestoreRecord::Item>& items) {
  const nlohmann::json& list = memberOf(document, key);
  if (!list.is_array()) return false;
  for (const auto& entry : list) {
    if (!textOf(entry, "path").starts_with('/')) return false;
    RestoreRecord::Item item{textOf(entry, "path"), flagOf(entry, "wasLive"), {}};
    item.aside.inode = countOf(entry, "aside").value_or(item.aside.inode);
    // Records of earlier versions lack it.
    item.aside.born = integerOf(entry, "asideBorn").value_or(item.aside.born);
    items.push_back(std::move(item));
  }
  return true;
}

// A path can be too long for a name, and holds slashes: its hash (FNV-1a) stands for it. Two paths
// of one hash are told apart by what the record says.
std::string nameForPath(const std::string& path) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char letter : path) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001b3;
  }
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string name = "file-";
  for (int shift = 60; shift >= 0; shift -= 4) name += kDigits[hash >> shift & 0xf];
  return name;
}

std::string recordPath(const std::string& service) {
  const std::string name = service.starts_with('/') ? nameForPath(service) : service;
  return joinPath(kUndoFolder, name + std::string(kRecordEnd));
}

std::vector<std::string> recordedServices(std::vector<std::string>& unreadable) {
  std::vector<std::string> services;
  std::vector<std::string> names;
  const Status listed = host::listDirectory(kUndoFolder, names);
  if (!listed && !host::isAbsent(kUndoFolder)) unreadable.emplace_back(kUndoFolder);
  for (const std::string& name : names) {
    if (!name.ends_with(kRecordEnd)) continue;
    services.push_back(name.substr(0, name.size() - kRecordEnd.size()));
  }
  return services;
}

}  // namespace

std::string asidePath(const std::string& path) { return path + ".previous"; }

ItemIdentity identityOf(const std::string& path) { return identityAt(AT_FDCWD, path); }

ItemIdentity identityAt(int folder, const std::string& name) {
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  struct statx status {};
  if (::statx(folder, name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME, &status) != 0) {
    return {};
  }
  const bool isBorn = (status.stx_mask & STATX_BTIME) != 0;
  return {status.stx_ino,
          isBorn ? status.stx_btime.tv_sec * kNanoseconds + status.stx_btime.tv_nsec : 0};
}

bool isWhatWasSetAside(const RestoreRecord::Item& item, const ItemIdentity& there) {
  if (!there.isKnown()) return false;
  // Of something that the restore made nothing was set aside: what stands there is somebody's own.
  if (!item.aside.isKnown()) return item.wasLive;
  return item.aside.born == 0 ? item.aside.inode == there.inode : item.aside == there;
}

bool standsAside(const RestoreRecord::Item& item) {
  return isWhatWasSetAside(item, identityOf(asidePath(item.path)));
}

bool mayStandAside(const RestoreRecord::Item& item) {
  const ItemIdentity there = identityOf(asidePath(item.path));
  return there.isKnown() ? isWhatWasSetAside(item, there) : !host::isAbsent(asidePath(item.path));
}

std::string doubtOf(const RestoreRecord::Item& item) {
  if (item.aside.born != 0 || !standsAside(item)) return "";
  return asidePath(item.path) + " is not known for sure to be what the restore set aside: " +
         (item.aside.isKnown() ? "its record has only the inode number"
                               : "no record says what that was");
}

nlohmann::json restoreRecordJson(const RestoreRecord& record) {
  nlohmann::json lost = nlohmann::json::array();
  for (const auto& item : record.lost) lost.push_back({{"path", item.path}, {"why", item.why}});
  return {{"service", record.service},     {"snapshot", record.snapshot},
          {"time", timeText(record.time)}, {"finished", record.finished},
          {"undone", record.undone},       {"items", itemsJson(record.items)},
          {"lost", std::move(lost)},       {"older", itemsJson(record.older)}};
}

std::optional<RestoreRecord> restoreRecordFrom(const nlohmann::json& document) {
  RestoreRecord record;
  if (!readItems(document, "items", record.items)) return std::nullopt;
  record.service = textOf(document, "service");
  record.snapshot = textOf(document, "snapshot");
  record.time = parseTime(textOf(document, "time")).value_or(0);
  record.finished = flagOf(document, "finished");
  record.undone = flagOf(document, "undone");
  // Records of earlier versions have neither of these.
  if (document.contains("older") && !readItems(document, "older", record.older)) {
    return std::nullopt;
  }
  for (const auto& entry : memberOf(document, "lost")) {
    if (entry.is_object()) record.lost.push_back({textOf(entry, "path"), textOf(entry, "why")});
  }
  return record;
}

std::optional<RestoreRecord> readRestoreRecord(const std::string& service) {
  const auto bytes = host::readFile(recordPath(service), kRecordLimit);
  if (!bytes) return std::nullopt;
  auto record = restoreRecordFrom(nlohmann::json::parse(*bytes, nullptr, false));
  if (record && service.starts_with('/') && record->service != service) return std::nullopt;
  return record;
}

bool isRestoreRecordUnreadable(const std::string& service) {
  return !readRestoreRecord(service) && !host::isAbsent(recordPath(service));
}

std::vector<RestoreRecord> readRestoreRecords() {
  std::vector<std::string> ignored;
  return readRestoreRecords(ignored);
}

std::vector<RestoreRecord> readRestoreRecords(std::vector<std::string>& unreadable) {
  std::vector<RestoreRecord> records;
  for (const std::string& service : recordedServices(unreadable)) {
    auto record = readRestoreRecord(service);
    if (record) {
      records.push_back(std::move(*record));
    } else {
      unreadable.push_back(recordPath(service));
    }
  }
  return records;
}

bool keepRestoreRecord(const RestoreRecord& record) {
  return makeFolders(kUndoFolder, 0700) &&
         host::writeFile(recordPath(record.service),
                         restoreRecordJson(record).dump(2, ' ', false,
                                                        nlohmann::json::error_handler_t::replace) +
                             "\n",
                         host::Durability::power);
}

bool dropRestoreRecords(std::int64_t time) {
  bool dropped = true;
  std::vector<std::string> ignored;
  for (const std::string& service : recordedServices(ignored)) {
    const auto record = readRestoreRecord(service);
    if (!record || record->time > time) continue;
    dropped = host::removeItem(recordPath(service)) && dropped;
  }
  return dropped;
}

std::vector<RestoreRecord::Item> leftOf(const std::optional<RestoreRecord>& before,
                                        const std::vector<RestoreRecord::Item>& items) {
  std::vector<RestoreRecord::Item> left;
  if (!before) return left;
  for (const auto* list : {&before->items, &before->older}) {
    for (const RestoreRecord::Item& item : *list) {
      const auto hasItsPath = [&item](const RestoreRecord::Item& other) {
        return other.path == item.path;
      };
      if (standsAside(item) && std::ranges::none_of(items, hasItsPath)) left.push_back(item);
    }
  }
  return left;
}

std::vector<std::string> itemsSetAside() {
  std::set<std::string> paths;
  for (const RestoreRecord& record : readRestoreRecords()) {
    for (const auto* list : {&record.items, &record.older}) {
      for (const RestoreRecord::Item& item : *list) {
        if (standsAside(item)) paths.insert(asidePath(item.path));
      }
    }
  }
  return {paths.begin(), paths.end()};
}

std::vector<std::string> unrecordedAside() {
  std::set<std::string> paths;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    for (const std::string& file : descriptor.files()) {
      if (identityOf(asidePath(file)).isKnown()) paths.insert(asidePath(file));
    }
  }
  for (const std::string& path : itemsSetAside()) paths.erase(path);
  return {paths.begin(), paths.end()};
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/snapshot_pin.h"
#include "common/table.h"
#include "snapwheel/command_support.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

/// "lacks 2 items, 1 changed while it was read".
std::string lackText(std::uint64_t missing, std::uint64_t torn) {
  std::string text;
  if (missing != 0) text = "lacks " + countText(missing, "item");
  if (torn == 0) return text;
  return text + (text.empty() ? "" : ", ") + countText(torn, "file") + " changed while " +
         (torn == 1 ? "it was" : "they were") + " read";
}

nlohmann::json listEntry(const Repository& repository, const std::string& name, bool isLatest) {
  const std::string path = repository.path(name);
  const auto manifest = readManifest(path);
  nlohmann::json entry = manifest ? toJson(*manifest) : nlohmann::json::object();
  for (const char* own : {"format", "missing", "torn"}) entry.erase(own);  // Of the file.
  entry["pin"] = hostkit::pinJson(isInProgress(name) ? std::nullopt : hostkit::readPin(path));
  entry["name"] = name;
  entry["path"] = path;
  entry["inProgress"] = isInProgress(name);
  entry["latest"] = isLatest;
  if (!manifest) entry["complete"] = false;
  return entry;
}

std::string stateOf(const nlohmann::json& entry) {
  if (entry["inProgress"].get<bool>()) return "in progress or interrupted";
  if (!entry.contains("items"))
    return entry["pin"].is_null() ? "no manifest" : "no manifest, pinned";
  std::string text;
  if (!entry["complete"].get<bool>()) {
    text = lackText(entry["missingCount"].get<std::uint64_t>(),
                    entry["tornCount"].get<std::uint64_t>());
  }
  const auto add = [&text](const std::string& more) { text += (text.empty() ? "" : ", ") + more; };
  if (entry["unfinishedBackup"].get<bool>()) add("carries an unfinished backup");
  if (entry["latest"].get<bool>()) add("latest");
  if (!entry["pin"].is_null()) add(hostkit::pinText({entry["pin"]["note"].get<std::string>(), ""}));
  return text;
}

std::vector<std::string> listRow(const nlohmann::json& entry) {
  const bool known = entry.contains("items") && !entry["inProgress"].get<bool>();
  return {entry["name"].get<std::string>(),
          known ? std::to_string(entry["items"].get<std::uint64_t>()) : "-",
          known ? hostkit::sizeText(entry["copiedBytes"].get<std::uint64_t>() +
                                    entry["linkedBytes"].get<std::uint64_t>())
                : "-",
          known ? hostkit::sizeText(entry["copiedBytes"].get<std::uint64_t>()) : "-",
          stateOf(entry)};
}

std::vector<std::string> allNames(const Repository& repository) {
  HostFolderListing listing = repository.list();
  std::vector<std::string> names = std::move(listing.snapshots);
  names.insert(names.end(), listing.inProgress.begin(), listing.inProgress.end());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

int runList(const CommandOptions& options) {
  const Repository own = openRepository(options);
  const std::vector<std::string> computers =
      options.allComputers ? own.computers() : std::vector<std::string>{own.computerName()};
  nlohmann::json document = {{"snapshots", nlohmann::json::array()}};
  std::vector<std::vector<std::string>> rows = {{"SNAPSHOT", "ITEMS", "SIZE", "NEW", "STATE"}};
  for (const std::string& computer : computers) {
    const Repository repository(own.destination(), computer);
    const std::optional<std::string> latest = repository.latest();
    for (const std::string& name : allNames(repository)) {
      nlohmann::json entry = listEntry(repository, name, latest == name);
      std::vector<std::string> row = listRow(entry);
      if (options.allComputers) row.front().insert(0, computer + "/");
      rows.push_back(std::move(row));
      document["snapshots"].push_back(std::move(entry));
    }
  }
  if (options.json) {
    hostkit::printJson(document);
  } else if (rows.size() > 1) {
    std::fputs(hostkit::tableText(rows).c_str(), stdout);
  } else {
    hostkit::printNote("there is no snapshot in " + own.hostFolder());
  }
  return hostkit::kSuccess;
}

}  // namespace halyard::snapwheel

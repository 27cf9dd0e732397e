// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The commands that tell what snapshots hold, without their trees.
#include <sys/stat.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/times.h"
#include "snapwheel/command_support.h"
#include "snapwheel/failure.h"
#include "snapwheel/snapshot_diff.h"
#include "snapwheel/snapshot_find.h"

namespace halyard::snapwheel {

namespace {

const char* kindOf(std::uint32_t mode) {
  if (S_ISREG(mode)) return "file";
  if (S_ISDIR(mode)) return "folder";
  return S_ISLNK(mode) ? "link" : "other";
}

const char* wordOf(Change change) {
  switch (change) {
    case Change::added:
      return "added";
    case Change::removed:
      return "removed";
    case Change::changed:
      break;
  }
  return "changed";
}

std::string lineOf(const Difference& difference) {
  std::string line = wordOf(difference.change);
  line.resize(9, ' ');
  line += "/" + difference.path;
  std::string what;
  const auto add = [&what](const std::string& word) { what += (what.empty() ? "" : ", ") + word; };
  if (difference.contents) add("contents");
  if (difference.attributes) add("attributes");
  if (difference.isUnknown) add("cannot be looked at");
  if (difference.items > 1) add(countText(difference.items, "item"));
  return what.empty() ? line : line + "  (" + what + ")";
}

nlohmann::json jsonOf(const Difference& difference) {
  return {{"path", "/" + difference.path},   {"change", wordOf(difference.change)},
          {"kind", kindOf(difference.mode)}, {"items", difference.items},
          {"contents", difference.contents}, {"attributes", difference.attributes},
          {"unknown", difference.isUnknown}};
}

DiffRequest diffRequestOf(const Repository& repository, const CommandOptions& options) {
  DiffRequest request;
  std::size_t used = 1;
  request.older = repository.find(options.names.front());
  if (!options.isNow) {
    if (options.names.size() < 2) {
      throw Failure("name two snapshots, or one and --now", hostkit::kUsageError);
    }
    request.newer = repository.find(options.names[used++]);
  } else {
    request.exclusions = exclusionsFor(options);
    request.exclusions.addPath(repository.folder().substr(1));
  }
  request.paths.assign(options.names.begin() + static_cast<std::ptrdiff_t>(used),
                       options.names.end());
  return request;
}

std::string rangeText(const FoundVersion& version) {
  if (version.snapshots == 1) return version.first;
  return version.first + " to " + version.last + " (" + std::to_string(version.snapshots) + ")";
}

nlohmann::json jsonOf(const FoundVersion& version) {
  nlohmann::json document = {{"first", version.first},         {"last", version.last},
                             {"snapshots", version.snapshots}, {"kind", kindOf(version.mode)},
                             {"size", version.size},           {"modified", nullptr}};
  if (version.modified) document["modified"] = hostkit::timeText(*version.modified);
  return document;
}

void printFound(const FindReport& report) {
  hostkit::TableRows rows = {{"PATH", "SIZE", "MODIFIED", "SNAPSHOTS"}};
  for (const FoundItem& item : report.items) {
    for (const FoundVersion& version : item.versions) {
      rows.push_back(
          {"/" + item.path,
           S_ISREG(version.mode) ? hostkit::sizeText(version.size) : kindOf(version.mode),
           version.modified ? hostkit::timeText(*version.modified) : "unknown",
           rangeText(version)});
    }
  }
  if (rows.size() > 1) {
    std::fputs(hostkit::tableText(rows).c_str(), stdout);
  } else {
    hostkit::printNote("no snapshot holds it");
  }
}

}  // namespace

int runDiff(const CommandOptions& options) {
  const Repository repository = openRepository(options);
  const DiffRequest request = diffRequestOf(repository, options);
  nlohmann::json differences = nlohmann::json::array();
  std::uint64_t count = 0;
  bool isKnown = true;
  const auto notHeld = diffSnapshots(repository, request, [&](const Difference& difference) {
    ++count;
    isKnown = isKnown && !difference.isUnknown;
    if (options.json) {
      differences.push_back(jsonOf(difference));
    } else {
      hostkit::printLine(lineOf(difference));
    }
  });
  if (options.json) {
    nlohmann::json document = {
        {"older", request.older}, {"newer", nullptr}, {"differences", nullptr}};
    if (!request.newer.empty()) document["newer"] = request.newer;
    document["differences"] = std::move(differences);
    document["notHeld"] = notHeld;
    hostkit::printJson(document);
  } else {
    hostkit::printNote(count == 0 ? "no difference" : countText(count, "difference"));
  }
  for (const std::string& path : notHeld) {
    hostkit::printWarning(path + ": neither of the two holds it");
  }
  return isKnown ? hostkit::kSuccess : hostkit::kPartial;
}

int runFind(const CommandOptions& options) {
  const Repository repository = openRepository(options);
  if (options.pattern.empty()) throw Failure("the pattern is empty", hostkit::kUsageError);
  const FindReport report = findInSnapshots(repository, options.pattern);
  if (options.json) {
    nlohmann::json items = nlohmann::json::array();
    for (const FoundItem& item : report.items) {
      nlohmann::json versions = nlohmann::json::array();
      for (const FoundVersion& version : item.versions) versions.push_back(jsonOf(version));
      items.push_back({{"path", "/" + item.path}, {"versions", std::move(versions)}});
    }
    hostkit::printJson({{"items", std::move(items)}, {"withoutIndex", report.withoutIndex}});
  } else {
    printFound(report);
  }
  for (const std::string& name : report.withoutIndex) {
    hostkit::printWarning(name + " was not searched: it has no index that can be used");
  }
  return report.withoutIndex.empty() ? hostkit::kSuccess : hostkit::kPartial;
}

}  // namespace halyard::snapwheel

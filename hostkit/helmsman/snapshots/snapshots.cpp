// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/snapshots.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/table.h"
#include "common/times.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

namespace {

std::string kindOf(const Snapshot& snapshot) {
  if (snapshot.inProgress) return "not complete";
  std::string kind = snapshot.hasSignature ? "services" : "no services";
  if (snapshot.isLatest) kind += ", latest";
  if (snapshot.pin) kind += ", " + pinText(*snapshot.pin);
  return kind;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string servicesText(const Snapshot& snapshot) {
  const std::string held = joined(snapshot.services);
  if (snapshot.absent.empty()) return held.empty() ? "-" : held;
  return held + (held.empty() ? "" : " ") + "(not on this host: " + joined(snapshot.absent) + ")";
}

std::string namesOf(const std::vector<IncompleteService>& services) {
  std::vector<std::string> names;
  names.reserve(services.size());
  for (const IncompleteService& service : services) names.push_back(service.name);
  return joined(names);
}

nlohmann::json jsonOf(const Snapshot& snapshot) {
  nlohmann::json document = {{"name", snapshot.name},
                             {"path", snapshot.path},
                             {"time", nullptr},
                             {"inProgress", snapshot.inProgress},
                             {"latest", snapshot.isLatest},
                             {"pin", pinJson(snapshot.pin)},
                             {"signature", snapshot.hasSignature},
                             {"services", snapshot.services},
                             {"notOnThisHost", snapshot.absent},
                             {"incomplete", nlohmann::json::array()}};
  for (const IncompleteService& service : snapshot.incomplete) {
    document["incomplete"].push_back({{"name", service.name}, {"reasons", service.reasons}});
  }
  if (const auto time = beginOf(snapshot)) document["time"] = timeText(*time);
  return document;
}

}  // namespace

int listSnapshots(bool asJson) {
  std::string problem;
  const auto destination = backupDestination(problem);
  if (!destination) {
    printError(problem);
    return kFailure;
  }
  const auto snapshots = snapshotsIn(snapshotFolder(*destination));
  if (asJson) {
    nlohmann::json document = {{"snapshots", nlohmann::json::array()}};
    for (const Snapshot& snapshot : snapshots) document["snapshots"].push_back(jsonOf(snapshot));
    printJson(document);
  } else if (snapshots.empty()) {
    printNote("there is no snapshot of this host in " + snapshotFolder(*destination));
  } else {
    std::vector<std::vector<std::string>> rows = {
        {"SNAPSHOT", "TAKEN", "HOLDS", "SERVICES", "INCOMPLETE"}};
    for (const Snapshot& snapshot : snapshots) {
      const auto time = beginOf(snapshot);
      rows.push_back({snapshot.name, time ? ageText(secondsNow() - *time) : "-", kindOf(snapshot),
                      servicesText(snapshot),
                      snapshot.incomplete.empty() ? "-" : namesOf(snapshot.incomplete)});
    }
    std::fputs(tableText(rows).c_str(), stdout);
  }
  return finishOutput() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit

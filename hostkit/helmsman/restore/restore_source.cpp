// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/restore_source.h"

#include <unistd.h>

#include <algorithm>

#include "base/text.h"
#include "common/messages.h"
#include "common/question.h"

namespace halyard::hostkit {

namespace {

using Names = std::vector<std::string>;

// The first name that the snapshot has nothing of; none when it has something of each.
const std::string* missingIn(const Snapshot& snapshot, const Names& names) {
  for (const std::string& name : names) {
    if (!snapshot.holdsWhole(name) && snapshot.partOf(name) == nullptr) return &name;
  }
  return nullptr;
}

std::vector<std::string> partsIn(const Snapshot& snapshot, const Names& names) {
  std::vector<std::string> texts;
  for (const std::string& name : names) {
    if (const IncompleteService* part = snapshot.partOf(name)) {
      texts.push_back(incompleteText(*part, snapshot));
    }
  }
  return texts;
}

// What was typed; without a word the newest that has something of every service, else the newest.
std::optional<Snapshot> wantedSnapshot(const std::string& typed, const Names& names,
                                       const std::vector<Snapshot>& snapshots,
                                       std::string& problem) {
  if (typed.empty() || equalsIgnoringCase(typed, "latest")) {
    for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
      if (!snapshot->inProgress && missingIn(*snapshot, names) == nullptr) return *snapshot;
    }
  }
  return findSnapshot(snapshots, typed, problem);
}

std::string commandFor(const RestoreArguments& arguments, const std::string& service,
                       const Snapshot& snapshot) {
  return "helmsman restore " + service + " --from " + snapshot.name +
         (arguments.yes ? " --yes" : "");
}

// Another snapshot in place of one that holds the service in part, if the administrator wants it.
std::optional<Snapshot> offered(const RestoreArguments& arguments, const std::string& service,
                                const Snapshot* whole, std::string& problem) {
  if (whole == nullptr) {
    problem += ". No snapshot holds it whole; --force restores what there is";
    return std::nullopt;
  }
  problem += ". The newest that holds it whole is " + whole->name;
  if (!arguments.yes && !arguments.dryRun && ::isatty(STDIN_FILENO) != 0) {
    printWarning(problem);
    problem.clear();
    if (confirmed("Take " + whole->name + " instead?")) return *whole;
    return std::nullopt;
  }
  problem += ": " + commandFor(arguments, service, *whole);
  return std::nullopt;
}

}  // namespace

std::optional<Snapshot> restoreSource(const RestoreArguments& arguments, const std::string& service,
                                      const Names& names, std::string& problem) {
  std::string noRepository;
  const auto found = hostSnapshots(noRepository);
  if (!found && !arguments.snapshot.starts_with('/')) {
    problem = noRepository;
    return std::nullopt;
  }
  const std::vector<Snapshot> snapshots = found.value_or(std::vector<Snapshot>());
  auto snapshot = wantedSnapshot(arguments.snapshot, names, snapshots, problem);
  if (!snapshot) return std::nullopt;
  if (snapshot->inProgress) {
    problem = "the snapshot " + snapshot->name + " is not complete";
    return std::nullopt;
  }
  if (const std::string* missing = missingIn(*snapshot, names)) {
    problem = "the snapshot " + snapshot->name + " does not hold " +
              (missing->empty() ? "what every descriptor of " + service + " describes" : *missing);
    return std::nullopt;
  }
  const auto parts = partsIn(*snapshot, names);
  if (parts.empty()) return snapshot;
  if (arguments.force) {
    for (const std::string& part : parts) printWarning(part);
    return snapshot;
  }
  problem = parts.front();
  for (std::size_t index = 1; index < parts.size(); ++index) problem += ". " + parts[index];
  return offered(arguments, service, newestWhole(snapshots, names), problem);
}

}  // namespace halyard::hostkit

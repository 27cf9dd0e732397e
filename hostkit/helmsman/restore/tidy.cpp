// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/tidy.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/question.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/times.h"
#include "common/tree_size.h"
#include "common/trusted_folder.h"
#include "helmsman/run/host_work.h"
#include "helmsman/run/restore_record.h"
#include "host/files/sync.h"
#include "host/tree/inode_flags.h"
#include "host/tree/remove_tree.h"

namespace halyard::hostkit {

namespace {

struct SetAside {
  std::string service;
  RestoreRecord::Item item;
  std::int64_t time = 0;
  std::uint64_t bytes = 0;
  std::string problem;  // Why it is still there; empty when it is gone.
};

// By the open folder, too. Of what cannot be reached nothing is known, and nothing will be removed.
std::uint64_t bytesOf(const std::string& path) {
  Result<TrustedPlace> place = trustedPlace(path);
  if (!place) return 0;
  return treeBytes(host::Location{std::move(place->folder), std::move(place->name)});
}

// What cannot be looked at may still be removed.
std::vector<SetAside> findItems(std::int64_t before, std::vector<std::string>& unreadable) {
  std::vector<SetAside> found;
  for (const RestoreRecord& record : readRestoreRecords(unreadable)) {
    if (record.time > before) continue;
    for (const auto* list : {&record.items, &record.older}) {
      for (const RestoreRecord::Item& item : *list) {
        if (!mayStandAside(item)) continue;
        found.push_back({record.service, item, record.time, bytesOf(asidePath(item.path)), ""});
      }
    }
  }
  return found;
}

// By the open folder: nothing that others plant on the way is removed in its place.
std::string removed(const RestoreRecord::Item& item) {
  const Result<TrustedPlace> found = trustedPlace(asidePath(item.path));
  if (!found) return errnoText(found.error().code);
  const TrustedPlace& place = *found;
  const ItemIdentity there = identityAt(place.folder.get(), place.name);
  if (!there.isKnown()) return errnoText(errno);
  if (!isWhatWasSetAside(item, there)) return "it is not what was set aside";
  host::unlockTree(place.folder.get(), place.name.c_str());
  if (const Status gone = host::removeTreeAt(place.folder.get(), place.name); !gone) {
    return errnoText(gone.error().code);
  }
  const Status synced = host::syncFolder(place.folder.get());
  return synced ? "" : errnoText(synced.error().code);
}

// What is gone is nothing that undo can put back.
bool keepInRecords(const std::vector<SetAside>& found) {
  std::vector<std::string> unreadable;
  std::vector<RestoreRecord> records = readRestoreRecords(unreadable);
  bool kept = unreadable.empty();
  for (RestoreRecord& record : records) {
    bool changed = false;
    for (const SetAside& gone : found) {
      if (gone.service != record.service || !gone.problem.empty()) continue;
      const auto isIt = [&gone](const RestoreRecord::Item& item) {
        return item.path == gone.item.path;
      };
      if (std::erase_if(record.items, isIt) > 0) {
        record.lost.push_back({gone.item.path, "was set aside, which helmsman tidy removed"});
      }
      (void)std::erase_if(record.older, isIt);
      changed = true;
    }
    kept = (!changed || keepRestoreRecord(record)) && kept;
  }
  return kept;
}

void show(const std::vector<SetAside>& found) {
  std::vector<std::vector<std::string>> rows = {{"SET ASIDE", "SIZE", "SERVICE", "RESTORED"}};
  for (const SetAside& item : found) {
    rows.push_back({asidePath(item.item.path), sizeText(item.bytes), item.service,
                    ageText(secondsNow() - item.time)});
  }
  (void)std::fputs(tableText(rows).c_str(), stdout);
  for (const SetAside& item : found) {
    if (const std::string doubt = doubtOf(item.item); !doubt.empty()) printWarning(doubt);
  }
}

void tellUnrecorded() {
  for (const std::string& path : unrecordedAside()) {
    printWarning(path + " stays: no record of a restore names it; Halyard may have set it aside " +
                 "when it was called without helmsman");
  }
}

void printAnswer(const std::vector<SetAside>& found, bool removedThem) {
  nlohmann::json list = nlohmann::json::array();
  for (const SetAside& item : found) {
    list.push_back({{"path", asidePath(item.item.path)},
                    {"service", item.service},
                    {"bytes", item.bytes},
                    {"restored", timeText(item.time)},
                    {"removed", removedThem && item.problem.empty()}});
  }
  printJson({{"items", std::move(list)}, {"unrecorded", unrecordedAside()}});
}

int carryOut(std::vector<SetAside>& found, bool asJson) {
  std::size_t gone = 0;
  for (SetAside& item : found) {
    item.problem = removed(item.item);
    if (item.problem.empty()) {
      ++gone;
      printNote("removed " + asidePath(item.item.path));
    } else {
      printError(asidePath(item.item.path) + ": " + item.problem);
    }
  }
  const bool kept = keepInRecords(found);
  if (!kept) printError("not every record of a restore could be brought up to date");
  if (asJson) printAnswer(found, true);
  if (!finishOutput() || (gone == 0 && !found.empty())) return kFailure;
  return gone == found.size() && kept ? kSuccess : kPartial;
}

}  // namespace

std::optional<std::int64_t> parseAge(std::string_view text) {
  static constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> kUnits = {
      {{"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}}};
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < 0 || number > 100'000) return std::nullopt;
  const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
  for (const auto& [name, seconds] : kUnits) {
    if (unit == name) return number * seconds;
  }
  return std::nullopt;
}

int tidy(const TidyArguments& arguments) {
  int status = kFailure;
  auto work = arguments.dryRun ? std::optional<HostWork>() : HostWork::begin("tidy", status);
  if (!arguments.dryRun && !work) return status;
  std::int64_t before = secondsNow();
  if (!arguments.olderThan.empty()) {
    const auto age = parseAge(arguments.olderThan);
    if (!age) {
      printError("'" + arguments.olderThan + "' is no age: say 90s, 10min, 12h, 30d or 2w");
      return kUsageError;
    }
    before -= *age;
  }
  std::vector<std::string> unreadable;
  std::vector<SetAside> found = findItems(before, unreadable);
  for (const std::string& path : unreadable) {
    printError(path + " cannot be read; what it names stays");
  }
  if (found.empty() || arguments.dryRun) {
    if (arguments.json) {
      printAnswer(found, false);
    } else if (found.empty()) {
      printNote("no record names anything set aside that is to be removed");
    } else {
      show(found);
    }
    if (!arguments.json) tellUnrecorded();
    return finishOutput() && unreadable.empty() ? kSuccess : kFailure;
  }
  if (!arguments.json) tellUnrecorded();
  if (!arguments.yes) {
    show(found);
    if (!confirmed("Remove them for good? undo cannot bring them back.")) return kFailure;
  }
  return work->keepHalyardOut(status) ? carryOut(found, arguments.json) : status;
}

}  // namespace halyard::hostkit

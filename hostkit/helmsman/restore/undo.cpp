// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/undo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/question.h"
#include "common/times.h"
#include "common/trusted_folder.h"
#include "helmsman/restore/file_restore.h"
#include "helmsman/restore/server_units.h"
#include "helmsman/restore/unlocked_item.h"
#include "helmsman/run/host_work.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/settings/services.h"
#include "host/files/sync.h"

namespace halyard::hostkit {

namespace {

constexpr char kNotWatched[] =
    "what the restore did beside this is not known: helmsman did not watch it to its end";

bool stands(const std::string& path) { return identityOf(path).isKnown(); }

// What stands in the way of an item; empty when it can be moved.
std::string obstacle(const RestoreRecord::Item& item, bool undone) {
  // What the restore made is beside after an undo, as if it had been set aside.
  if (!item.wasLive && !undone) {
    if (!stands(item.path)) return "is gone by now";
    return stands(asidePath(item.path)) ? asidePath(item.path) + " is in its place" : "";
  }
  if (!stands(asidePath(item.path))) return "nothing is set aside any more";
  return standsAside(item) ? "" : asidePath(item.path) + " is not what the restore set aside";
}

// Done when the item and what was set aside have changed places, on disk.
Status changePlaces(const std::string& path) {
  const Result<TrustedPlace> found = trustedPlace(path);
  if (!found) return found.error();
  const TrustedPlace& place = *found;
  const std::string aside = asidePath(place.name);
  const auto renamed = [&](const std::string& from, const std::string& to, unsigned flags) {
    return ::renameat2(place.folder.get(), from.c_str(), place.folder.get(), to.c_str(), flags) ==
           0;
  };
  const auto isThere = [&](const std::string& name) {
    struct stat status {};
    return ::fstatat(place.folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  };
  // Each keeps its flags, whatever its name.
  std::optional<UnlockedItem> live;
  std::optional<UnlockedItem> former;
  if (isThere(place.name)) live.emplace(place.folder.get(), place.name);
  if (isThere(aside)) former.emplace(place.folder.get(), aside);
  for (const auto* item : {&live, &former}) {
    if (*item && (*item)->error() != 0) return Error{(*item)->error(), path};
  }
  const bool moved = isThere(place.name) && isThere(aside)
                         ? renamed(place.name, aside, RENAME_EXCHANGE)
                     : isThere(aside) ? renamed(aside, place.name, RENAME_NOREPLACE)
                                      : renamed(place.name, aside, RENAME_NOREPLACE);
  if (!moved) return Error{errno, path};
  return host::syncFolder(place.folder.get());
}

// Without a record, as after a restore that was not started from here: everything that has a
// ".previous" beside it.
RestoreRecord recordFromFiles(const std::string& service) {
  RestoreRecord record;
  record.service = service;
  for (const std::string& file : filesOfService(service)) {
    if (stands(asidePath(file))) record.items.push_back({file, true, {}});
  }
  return record;
}

void showPlan(const RestoreRecord& record) {
  if (record.time != 0) {
    printLine((record.undone ? "Brings back the restore of " : "Takes back the restore of ") +
              record.service + " from " + record.snapshot + ", " +
              ageText(secondsNow() - record.time) + ":");
  } else {
    printLine("There is no record of a restore; these have a .previous beside them:");
  }
  for (const auto& item : record.items) {
    if (!obstacle(item, record.undone).empty()) continue;
    printLine("  " + item.path);
    if (const std::string doubt = doubtOf(item); !doubt.empty()) printLine("    " + doubt);
  }
  bool any = false;
  const auto tellLoss = [&any](const std::string& path, const std::string& why) {
    if (!any) printLine("It cannot take back:");
    any = true;
    printLine("  " + path + ": " + why);
  };
  for (const auto& item : record.items) {
    const std::string why = obstacle(item, record.undone);
    if (!why.empty()) tellLoss(item.path, why);
  }
  for (const auto& lost : record.lost) tellLoss(lost.path, lost.why);
  if (!record.finished) {
    printLine(std::string("No promise is made: ") + kNotWatched + ".");
  } else if (!record.service.starts_with('/')) {
    printLine("What its restore program did elsewhere (accounts, databases) stays as it is.");
  }
}

struct Moved {
  std::size_t done = 0;
  std::size_t failed = 0;
};

Moved moveItems(RestoreRecord& record) {
  Moved moved;
  // Last things first: an item may lie inside one that was restored before it. And the other way
  // round when the restore is brought back.
  if (!record.undone) std::ranges::reverse(record.items);
  for (auto& item : record.items) {
    const std::string why = obstacle(item, record.undone);
    const std::string doubt = doubtOf(item);
    if (!why.empty()) {
      printWarning(item.path + ": " + why);
      ++moved.failed;
    } else if (const Status changed = changePlaces(item.path); !changed) {
      printError(item.path + ": " + errnoText(changed.error().code));
      ++moved.failed;
    } else {
      ++moved.done;
      printNote("put back " + item.path);
      if (!doubt.empty()) printWarning(doubt);
      item.aside = identityOf(asidePath(item.path));
    }
  }
  if (!record.undone) std::ranges::reverse(record.items);
  return moved;
}

int carryOut(RestoreRecord record) {
  const ServerUnits server(record.service);
  if (!server.stop()) {
    printError("nothing was taken back");
    (void)server.start();
    return kFailure;
  }
  const Moved moved = moveItems(record);
  bool kept = true;
  if (moved.done > 0) {
    record.undone = !record.undone;
    kept = record.time == 0 || keepRestoreRecord(record);
    if (!kept) printError("the record of the restore could not be written");
    printNote(
        "what stood there until now, with all that came into it since, is beside it as .previous "
        "(see: helmsman tidy)");
  }
  const bool running = server.start();
  if (!server.advice().empty()) printWarning(server.advice());
  if (!record.finished) printWarning(kNotWatched);
  for (const auto& lost : record.lost) printWarning(lost.path + " " + lost.why + ": it stays so");
  if (moved.done == 0 || !running || !kept) return kFailure;
  return moved.failed == 0 && record.lost.empty() && record.finished ? kSuccess : kPartial;
}

}  // namespace

int undo(const UndoArguments& arguments) {
  int status = kFailure;
  auto work = HostWork::begin("undo", status);
  if (!work) return status;
  std::string problem;
  const auto service = arguments.service.starts_with('/')
                           ? plainPath(arguments.service)
                           : completeServiceName(servicePreferences(), arguments.service, problem);
  if (!service) {
    printError(problem.empty() ? arguments.service + " is no path of a file" : problem);
    return kFailure;
  }
  const auto kept = readRestoreRecord(*service);
  const RestoreRecord record = kept ? *kept : recordFromFiles(*service);
  if (record.items.empty()) {
    printError("there is nothing to take back for " + arguments.service);
    for (const auto& lost : record.lost) printError(lost.path + " " + lost.why);
    return kFailure;
  }
  if (!arguments.yes) {
    showPlan(record);
    if (!confirmed("Go ahead?")) return kFailure;
  }
  return work->keepHalyardOut(status) ? carryOut(record) : status;
}

}  // namespace halyard::hostkit

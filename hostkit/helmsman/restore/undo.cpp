#include "helmsman/restore/undo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "common/exit_status.h"
#include "common/messages.h"
#include "common/question.h"
#include "common/times.h"
#include "helmsman/restore/restore_plan.h"
#include "helmsman/settings/services.h"
#include "host/files/sync.h"

namespace halyard::hostkit {

namespace {

bool stands(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool renamed(const std::string& from, const std::string& to, unsigned flags) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0;
}

// Whether there is anything to move for an item.
bool canMove(const RestoreRecord::Item& item) {
  return item.wasLive ? stands(asidePath(item.path))
                      : stands(item.path) != stands(asidePath(item.path));
}

// True when the item and what was set aside have changed places.
bool changePlaces(const std::string& path) {
  const std::string aside = asidePath(path);
  if (stands(path) && stands(aside)) return renamed(path, aside, RENAME_EXCHANGE);
  return stands(aside) ? renamed(aside, path, RENAME_NOREPLACE)
                       : renamed(path, aside, RENAME_NOREPLACE);
}

// Without a record, as after a restore that was not started from here: everything that has a
// ".previous" beside it.
RestoreRecord recordFromFiles(const std::string& service) {
  RestoreRecord record;
  record.service = service;
  for (const std::string& file : filesOfService(service)) {
    if (stands(asidePath(file))) record.items.push_back({file, true});
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
    if (canMove(item)) printLine("  " + item.path);
  }
}

int carryOut(RestoreRecord record) {
  bool complete = true;
  bool moved = false;
  // Last things first: an item may lie inside one that was restored before it.
  for (auto item = record.items.rbegin(); item != record.items.rend(); ++item) {
    if (!canMove(*item)) {
      printWarning(item->path + ": nothing was set aside");
      complete = false;
    } else if (!changePlaces(item->path)) {
      printError(item->path + ": " + errnoText(errno));
      complete = false;
    } else if (const Status synced = host::syncFolderOf(item->path); !synced) {
      printError(item->path + ": " + errnoText(synced.error().code));
      moved = true;
      complete = false;
    } else {
      moved = true;
      printNote("put back " + item->path);
    }
  }
  if (moved) {
    record.undone = !record.undone;
    if (record.time != 0 && !keepRestoreRecord(record)) {
      printError("the record of the restore could not be written");
      complete = false;
    }
    printNote(
        "the service may have to be restarted; the restored items stand beside, as .previous");
  }
  return complete ? kSuccess : kFailure;
}

}  // namespace

int undo(const UndoArguments& arguments) {
  std::string problem;
  const auto service = completeServiceName(servicePreferences(), arguments.service, problem);
  if (!service) {
    printError(problem);
    return kFailure;
  }
  const auto kept = readRestoreRecord(*service);
  RestoreRecord record = kept ? *kept : recordFromFiles(*service);
  if (record.items.empty()) {
    printError("there is nothing to take back for " + *service);
    return kFailure;
  }
  if (!arguments.yes) {
    showPlan(record);
    if (!confirmed("Go ahead?")) return kFailure;
  }
  return carryOut(std::move(record));
}

}  // namespace halyard::hostkit

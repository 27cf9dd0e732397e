// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/file_restore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/json_members.h"
#include "common/machine.h"
#include "common/messages.h"
#include "common/question.h"
#include "common/sizes.h"
#include "common/times.h"
#include "common/trusted_folder.h"
#include "helmsman/restore/unlocked_item.h"
#include "helmsman/run/host_work.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "host/files/files.h"
#include "host/files/rename_item.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/process/task.h"
#include "host/tree/extended_attributes.h"
#include "host/tree/folder_entries.h"
#include "host/tree/inode_flags.h"
#include "host/tree/remove_tree.h"
#include "host/volumes/volume.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

std::string textOfError(const std::string& what, int error) {
  return what + ": " + errnoText(error);
}

/// Where the item goes.
struct Destination {
  TrustedPlace place;  ///< The name is the one that it gets.
  std::string path;
};

/// A closed folder beside the destination; what is in it goes with the object.
class StageFolder {
 public:
  explicit StageFolder(int parent) : parent_(parent) {
    for (int attempt = 0; attempt < host::kTemporaryNameAttempts && !folder_; ++attempt) {
      name_ = host::temporaryName();
      if (::mkdirat(parent_, name_.c_str(), 0700) != 0) {
        if (errno == EEXIST) continue;
        return;
      }
      host::Descriptor made(::openat(parent_, name_.c_str(), host::kFolderFlags));
      struct stat status {};
      const bool isOurs = made && ::fstat(made.get(), &status) == 0 && status.st_uid == 0 &&
                          host::removeInheritedLists(made.get()) == 0 &&
                          ::fchmod(made.get(), 0700) == 0;
      if (!isOurs) return;
      folder_ = std::move(made);
    }
  }
  /// By the open folder: nothing else is removed that somebody gave its name meanwhile.
  ~StageFolder() {
    if (!folder_) return;
    // A descriptor of btrfs lists what stood there when it was opened, which is nothing.
    const host::Descriptor now(::openat(folder_.get(), ".", host::kFolderFlags));
    host::FolderReader reader;
    std::vector<host::FolderEntry> entries;
    (void)reader.next(now.get(), entries);            // The removal tells.
    for (const host::FolderEntry& entry : entries) {  // Only the way to one item was put there.
      const std::string name(entry.name);
      host::unlockTree(folder_.get(), name.c_str());
      (void)host::removeTreeAt(folder_.get(), name);
    }
    (void)::unlinkat(parent_, name_.c_str(), AT_REMOVEDIR);
  }
  StageFolder(const StageFolder&) = delete;
  StageFolder& operator=(const StageFolder&) = delete;

  int get() const { return folder_.get(); }
  explicit operator bool() const { return static_cast<bool>(folder_); }

 private:
  int parent_;
  std::string name_;
  host::Descriptor folder_;
};

struct EngineAnswer {
  int status = 0;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
};

/// The engine writes into the working folder, which nobody can swap. What it says is its own words,
/// but for the place that nobody will find anything at.
EngineAnswer runEngine(const std::string& snapshot, const std::string& path, bool dryRun) {
  std::vector<std::string> words = {"restore", snapshot, "--to", ".", "--path", path, "--json"};
  // What stands in the working folder is not what it would write to.
  if (dryRun) words.insert(words.end(), {"--dry-run", "--force"});
  const std::string stage = host::realPath(".").value_or("");
  const host::TaskResult result = host::RunTask(paths::kSnapshotTool, words);
  std::string said = result.error;
  const bool isToShorten = !dryRun && stage.size() > 1;
  for (std::size_t at = 0; isToShorten && (at = said.find(stage, at)) != std::string::npos;) {
    said.erase(at, stage.size());
  }
  (void)std::fputs(said.c_str(), stderr);
  const nlohmann::json answer = nlohmann::json::parse(result.output, nullptr, false);
  return {result.status, countOf(answer, "items").value_or(0),
          countOf(answer, "bytes").value_or(0)};
}

/// The folder of the restored item in the stage, following no link.
host::Descriptor openStaged(int stage, const std::string& path, std::string& name) {
  host::Descriptor at(::openat(stage, ".", host::kFolderFlags));
  name.clear();
  for (const std::string_view part : splitAt(path, '/')) {
    if (part.empty() || part == ".") continue;
    if (!name.empty() && at) {
      at = host::Descriptor(::openat(at.get(), name.c_str(), host::kFolderFlags));
    }
    name = part;
  }
  return at;
}

/// A mounted volume would be set aside with the folder that holds it, and not come back.
bool holdsMount(const std::string& path) {
  for (const host::Volume& volume : host::mountedVolumes()) {
    if (volume.mountPoint != path && !volume.mountPoint.starts_with(path + "/")) continue;
    printError("a volume is mounted at " + volume.mountPoint + ": nothing can take its place");
    return true;
  }
  return false;
}

std::optional<Destination> findDestination(const FileRestoreArguments& arguments,
                                           const Snapshot& snapshot) {
  const std::string name(lastPathComponent(arguments.path));
  Destination destination;
  const bool isElsewhere = !arguments.to.empty();
  const std::string suffix =
      arguments.inPlace || isElsewhere ? std::string() : ".from-" + snapshot.name;
  destination.path = isElsewhere ? appendPath(arguments.to, name) : arguments.path + suffix;
  auto place = trustedPlace(destination.path);
  if (!place) {
    const int error = place.error().code;
    printError(error == ELOOP ? "on the way to " + destination.path +
                                    " there is a link that others than root may have made"
                              : textOfError(destination.path, error));
    return std::nullopt;
  }
  destination.place = std::move(*place);
  if (arguments.inPlace) {
    if (holdsMount(arguments.path)) return std::nullopt;
    if (!identityAt(destination.place.folder.get(), asidePath(name)).isKnown()) return destination;
    printError(asidePath(destination.path) + " is there already (see: helmsman undo, tidy)");
    return std::nullopt;
  }
  if (!identityAt(destination.place.folder.get(), destination.place.name).isKnown()) {
    return destination;
  }
  printError(destination.path + " is there already; nothing is replaced");
  return std::nullopt;
}

/// What became of a restored item.
struct Outcome {
  bool isWhole = true;   ///< False when it lacks its inode flags.
  bool wasLive = false;  ///< Something stood in its place.
};

/// Sets the live item aside, which keeps its flags there.
int setAside(int folder, const std::string& name) {
  UnlockedItem live(folder, name);
  if (live.error() != 0) return live.error();
  return host::renameWithoutReplacing(folder, name, folder, asidePath(name));
}

/// Gives the restored item its name.
int giveName(int staged, const std::string& stagedName, const TrustedPlace& place,
             Outcome& outcome) {
  UnlockedItem restored(staged, stagedName);
  if (restored.error() != 0) return restored.error();
  const int error =
      host::renameWithoutReplacing(staged, stagedName, place.folder.get(), place.name);
  outcome.isWhole = restored.lockAgain();
  return error;
}

/// Sets the live item aside and the restored one in its place, or leaves both as they were.
int replaceLive(const Destination& destination, int staged, const std::string& stagedName,
                const Snapshot& snapshot, Outcome& outcome) {
  const int folder = destination.place.folder.get();
  const std::string& name = destination.place.name;
  const std::string aside = asidePath(name);
  outcome.wasLive = identityAt(folder, name).isKnown();
  RestoreRecord record;
  record.service = destination.path;
  record.snapshot = snapshot.path;
  record.time = secondsNow();
  record.items.push_back({destination.path, outcome.wasLive, identityAt(folder, name)});
  record.older = leftOf(readRestoreRecord(destination.path), record.items);
  if (!keepRestoreRecord(record)) {
    printError("nothing was done: the record for undo could not be written");
    return EIO;
  }
  if (const int error = outcome.wasLive ? setAside(folder, name) : 0) return error;
  if (const int error = giveName(staged, stagedName, destination.place, outcome)) {
    UnlockedItem live(folder, aside);
    if (outcome.wasLive && host::renameWithoutReplacing(folder, aside, folder, name) != 0) {
      printError("the live one stands at " + asidePath(destination.path));
    }
    return error;
  }
  const Status synced = host::syncFolder(folder);
  record.finished = true;
  if (!keepRestoreRecord(record)) printWarning("the record for undo is not up to date");
  return synced ? 0 : synced.error().code;
}

int publish(const Destination& destination, int stage, const FileRestoreArguments& arguments,
            const Snapshot& snapshot, Outcome& outcome) {
  std::string stagedName;
  const host::Descriptor staged = openStaged(stage, arguments.path, stagedName);
  if (!staged) return errno;
  if (arguments.inPlace) {
    return replaceLive(destination, staged.get(), stagedName, snapshot, outcome);
  }
  if (const int error = giveName(staged.get(), stagedName, destination.place, outcome)) {
    return error;
  }
  const Status synced = host::syncFolder(destination.place.folder.get());
  return synced ? 0 : synced.error().code;
}

void tell(const FileRestoreArguments& arguments, const Destination& destination,
          const Snapshot& snapshot, const EngineAnswer& answer, const Outcome& outcome) {
  if (arguments.json) {
    return printJson({{"path", arguments.path},
                      {"snapshot", snapshot.path},
                      {"restoredTo", destination.path},
                      {"inPlace", arguments.inPlace},
                      {"dryRun", arguments.dryRun},
                      {"complete", answer.status == kSuccess},
                      {"items", answer.items},
                      {"bytes", answer.bytes}});
  }
  printLine(arguments.path + (arguments.dryRun ? " would be restored from " : " restored from ") +
            snapshot.name + " to " + destination.path + " (" + sizeText(answer.bytes) + ")");
  if (!arguments.inPlace || arguments.dryRun) return;
  printNote((outcome.wasLive ? "what stood there is beside it as .previous"
                             : std::string("nothing stood there before")) +
            "; to take it back: helmsman undo " + shellWord(arguments.path));
}

/// Only what is whole takes a live item's place.
bool isEnough(const FileRestoreArguments& arguments, const EngineAnswer& answer) {
  const bool isPart = answer.status == kPartial;
  if (answer.status == kSuccess || (isPart && !arguments.inPlace)) return true;
  printError("nothing was changed: the snapshot does not give " + arguments.path +
             (isPart ? " whole; without --in-place what it gives comes beside it" : ""));
  return false;
}

int carryOut(const FileRestoreArguments& arguments, const Destination& destination,
             const Snapshot& snapshot) {
  const StageFolder stage(destination.place.folder.get());
  if (!stage) {
    printError(textOfError(destination.path, errno));
    return kFailure;
  }
  EngineAnswer answer;
  {
    const host::WorkingFolder here(stage.get());
    if (here.error() != 0) {
      printError(textOfError(destination.path, here.error()));
      return kFailure;
    }
    answer = runEngine(snapshot.path, arguments.path, false);
  }
  if (!isEnough(arguments, answer)) return kFailure;
  Outcome outcome;
  if (const int error = publish(destination, stage.get(), arguments, snapshot, outcome)) {
    printError(textOfError(destination.path, error));
    return kFailure;
  }
  if (!outcome.isWhole) answer.status = kPartial;
  tell(arguments, destination, snapshot, answer, outcome);
  return answer.status;
}

}  // namespace

std::optional<std::string> plainPath(const std::string& typed) {
  if (!typed.starts_with('/')) return std::nullopt;
  std::string plain;
  for (const std::string_view name : splitAt(typed, '/')) {
    if (name == "..") return std::nullopt;
    if (!name.empty() && name != ".") plain += "/" + std::string(name);
  }
  return plain.empty() ? std::nullopt : std::optional(plain);
}

int restoreFile(const FileRestoreArguments& given) {
  FileRestoreArguments arguments = given;
  const auto path = plainPath(given.path);
  if (!path || (!given.to.empty() && !given.to.starts_with('/'))) {
    printError("\"" + (path ? given.to : given.path) + "\" is no absolute path" +
               (path ? "" : " of a file or folder"));
    return kUsageError;
  }
  arguments.path = *path;
  int status = kFailure;
  auto work =
      arguments.dryRun ? std::optional<HostWork>() : HostWork::begin("file restore", status);
  if (!arguments.dryRun && !work) return status;
  std::string problem;
  const auto snapshot = chooseSnapshot(arguments.snapshot, problem);
  if (!snapshot) {
    printError(problem);
    return kFailure;
  }
  const auto destination = findDestination(arguments, *snapshot);
  if (!destination) return kFailure;
  if (arguments.dryRun) {
    const EngineAnswer answer = runEngine(snapshot->path, arguments.path, true);
    if (!isEnough(arguments, answer)) return kFailure;
    tell(arguments, *destination, *snapshot, answer, {});
    return answer.status;
  }
  if (arguments.inPlace && !arguments.yes &&
      !confirmed("Put " + arguments.path + " back from " + snapshot->name +
                 " and keep the live one as .previous?")) {
    return kFailure;
  }
  return work->keepHalyardOut(status) ? carryOut(arguments, *destination, *snapshot) : status;
}

}  // namespace halyard::hostkit

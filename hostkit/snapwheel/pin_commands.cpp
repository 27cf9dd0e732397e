// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The commands that say which snapshots stay.
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/snapshot_pin.h"
#include "common/times.h"
#include "snapwheel/command_support.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"
#include "snapwheel/snapshot_lock.h"
#include "snapwheel/writable_snapshot.h"

namespace halyard::snapwheel {

namespace {

/// Only what is finished can be promised to stay.
std::string finishedSnapshot(const Repository& repository, const std::string& word) {
  std::string name = isInProgress(word) ? word : repository.find(word);
  const auto manifest = readManifest(repository.path(name));
  if (!isInProgress(name) && manifest && !manifest->finished.empty()) return name;
  throw Failure(name + " is not finished: it cannot be pinned");
}

}  // namespace

int runPin(const CommandOptions& options) {
  if (options.note.size() > hostkit::kNoteLimit) {
    throw Failure("the note is longer than " + std::to_string(hostkit::kNoteLimit) + " bytes",
                  hostkit::kUsageError);
  }
  const Repository repository = openToChange(options);
  const SnapshotLock lock(repository);
  const std::string name = finishedSnapshot(repository, options.names.front());
  const WritableSnapshot writable(repository, name);
  const hostkit::Pin pin{options.note, hostkit::timeText(hostkit::secondsNow())};
  if (const Status written = hostkit::writePin(repository.path(name), pin); !written) {
    throw failureOf(written.error());
  }
  hostkit::printLine(repository.path(name) + ": " + hostkit::pinText(pin));
  return hostkit::kSuccess;
}

int runUnpin(const CommandOptions& options) {
  const Repository repository = openToChange(options);
  const SnapshotLock lock(repository);
  const std::string name = repository.find(options.names.front());
  if (!hostkit::readPin(repository.path(name))) {
    hostkit::printNote(name + " is not pinned");
    return hostkit::kSuccess;
  }
  const WritableSnapshot writable(repository, name);
  if (const Status removed = hostkit::removePin(repository.path(name)); !removed) {
    throw failureOf(removed.error());
  }
  hostkit::printLine(repository.path(name) + ": no longer pinned");
  return hostkit::kSuccess;
}

}  // namespace halyard::snapwheel

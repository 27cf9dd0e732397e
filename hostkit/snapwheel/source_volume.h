// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A volume of this host that goes into a snapshot.
#pragma once

#include <functional>
#include <string>

#include "common/exclusions.h"
#include "host/files/descriptor.h"
#include "snapwheel/repository.h"
#include "snapwheel/snapshot_volumes.h"

namespace halyard::snapwheel {

using hostkit::Exclusions;

/// Held open from the beginning: what happens to its path leads nobody elsewhere.
class SourceVolume {
 public:
  /// The one at "/" of the source: the folder `source` itself. Throws Failure when it is none, or a
  /// part of the repository.
  static SourceVolume root(const Repository& repository, const std::string& source,
                           std::string folder, const Exclusions& exclusions);

  /// A further one of the source. A missing() one where nothing is mounted, or a link leads there.
  static SourceVolume further(const Repository& repository, const SourceVolume& root,
                              const std::string& mountPoint, const Exclusions& exclusions);

  const SnapshotVolume& place() const { return place_; }
  const std::string& path() const { return path_; }
  /// The errno value that says why it cannot be copied: ENODEV where nothing is mounted; else 0.
  int missing() const { return missing_; }
  /// Of the file system; each empty when it is unknown.
  const std::string& uuid() const { return uuid_; }
  const std::string& type() const { return type_; }

  /// Whether an item is left out, by its path in the volume.
  bool leavesOut(std::string_view path) const;
  /// Whether an item of this path is the hand-over folder's name at the top of a further volume:
  /// whoever looks for the services' backup in a snapshot would find it there.
  bool isFalseHandOver(std::string_view path) const;

  /// What must be the same for an index to prove anything: the folder that was walked (a file
  /// system that was made anew has another root inode or birth time) and what was left out.
  std::string indexIdentity() const;

  /// What is written through a mapping sets the change time when a page is touched that is as the
  /// disk has it, so all are to be.
  void writeBack() const;

  /// As its own volume holds it: what is mounted inside it, as a hardened unit does for itself,
  /// hides nothing.
  host::Descriptor openAlone() const;

 private:
  void describe();
  void leaveOutRepository(const Repository& repository);

  SnapshotVolume place_;
  std::string path_;  ///< Without links.
  host::Descriptor folder_;
  Exclusions exclusions_;
  std::string uuid_;
  std::string type_;
  int missing_ = 0;
};

}  // namespace halyard::snapwheel

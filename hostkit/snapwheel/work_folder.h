// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A snapshot while it is being made: <name>.inProgress in the host's folder.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/record_file.h"
#include "snapwheel/manifest.h"
#include "snapwheel/repository.h"
#include "snapwheel/snapshot_volumes.h"

namespace halyard::snapwheel {

/// Changes at each start of the host; empty when unknown.
std::string bootIdentifier();

/// Where a volume of the new snapshot is made, and what it is built upon.
struct WorkVolume {
  std::string path;
  RecordPlace records;
  std::string reference;           ///< The snapshot that holds an earlier state; empty for none.
  std::string earlier;             ///< The volume's folder there; empty for none.
  RecordPlace referenceRecords;    ///< Of that.
  bool isUpdate = false;           ///< The folder began as a copy of an earlier state,
  bool isCopyOfReference = false;  ///< of the one that the reference holds.
  bool isReferenceExact = false;   ///< The reference's index describes what the walk builds upon.
};

/// Decides what the new snapshot is built upon, makes its folder and gives it its final name.
///
/// The basis is one of: nothing; the previous snapshot, whose unchanged files are linked; on btrfs
/// a writable snapshot of the previous one, which is then brought up to date; or what an
/// interrupted run of the same start of the host left behind (after a power cut its files may be
/// hollow, so an older one is removed). A volume that the previous snapshot lacks is built upon the
/// newest one that holds it. Needs SnapshotLock.
class WorkFolder {
 public:
  /// `volumes` are those that the snapshot is to hold, the one at "/" first.
  WorkFolder(const Repository& repository, std::string name, std::vector<SnapshotVolume> volumes,
             const std::string& source);

  /// Makes the folder and its first manifest. Tells of leftovers and removes or takes them over.
  /// Throws Failure.
  void begin(const Manifest& manifest);

  /// Syncs everything, renames the folder and moves "Latest". Throws Failure.
  void publish(const Manifest& manifest);

  /// After a failure: removes the folder to give its space back. Says in half a sentence what is
  /// left.
  std::string discard() const;

  const std::string& path() const { return path_; }
  /// Of the volume at "/".
  std::string volumePath() const { return volumes_.front().path(path_); }
  /// The previous snapshot's name; empty when there is none to build upon.
  const std::string& reference() const { return reference_; }
  WorkVolume volume(const SnapshotVolume& volume) const;

  /// 0 when an error that the walk met is not the destination's, else the errno value to end with.
  int fault(int error) const;

 private:
  enum class Basis { nothing, linkedReference, copyOfReference, leftover };

  struct Reference {
    std::string snapshot;
    SnapshotVolume volume;
  };

  void findReferences(const std::vector<std::string>& snapshots);
  void settleLeftovers();
  bool isReusable(const std::string& name) const;
  void makeFolder();
  void settleVolumes();
  void makeRecordFolders();

  /// The folder's own name, which path_ ends in.
  std::string workName() const { return name_ + std::string(kInProgress); }

  const Repository& repository_;
  host::Descriptor hostFolder_;
  std::string name_;
  std::vector<SnapshotVolume> volumes_;
  std::string source_;
  std::string path_;
  std::string reference_;
  std::map<std::string, Reference> references_;  ///< By mount point.
  std::set<std::string> begun_;  ///< Mount points of volumes that are there already.
  Basis basis_ = Basis::nothing;
};

}  // namespace halyard::snapwheel

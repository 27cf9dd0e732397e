// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A snapshot while it is being made: <name>.inProgress in the host's folder.
#pragma once

#include <string>

#include "snapwheel/manifest.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

/// Changes at each start of the host; empty when unknown.
std::string bootIdentifier();

/// Decides what the new snapshot is built upon, makes its folder and gives it its final name.
///
/// The basis is one of: nothing; the previous snapshot, whose unchanged files are linked; on btrfs
/// a writable snapshot of the previous one, which is then brought up to date; or what an
/// interrupted run of the same start of the host left behind (after a power cut its files may be
/// hollow, so an older one is removed). Needs SnapshotLock.
class WorkFolder {
 public:
  WorkFolder(const Repository& repository, std::string name, std::string volume,
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
  std::string volumePath() const { return path_ + "/" + volume_; }
  /// The previous snapshot's name; empty when there is none to build upon.
  const std::string& reference() const { return reference_; }
  /// The folder whose files may be linked; empty when there is none, or when the copy is made by
  /// bringing the work folder up to date.
  std::string referenceVolume() const;
  /// The same folder also when the copy is made by bringing the work folder up to date.
  std::string earlierVolume() const;
  /// The previous snapshot; empty when there is none to build upon.
  std::string referencePath() const;
  /// Whether the folder began as a copy of an earlier state.
  bool isUpdate() const { return basis_ == Basis::copyOfReference || basis_ == Basis::leftover; }
  /// Whether the reference's index describes what the walk builds upon.
  bool isReferenceExact() const { return !reference_.empty() && basis_ != Basis::leftover; }
  std::string indexPath() const { return record(path_, "index"); }
  std::string referenceIndexPath() const;

  /// 0 when an error that the walk met is not the destination's, else the errno value to end with.
  int fault(int error) const;

 private:
  enum class Basis { nothing, linkedReference, copyOfReference, leftover };

  static std::string record(const std::string& snapshot, const char* name);
  void settleLeftovers();
  bool isReusable(const std::string& name) const;
  void makeFolder();
  void makeRecordFolder();

  /// The folder's own name, which path_ ends in.
  std::string workName() const { return name_ + std::string(kInProgress); }

  const Repository& repository_;
  host::Descriptor hostFolder_;
  std::string name_;
  std::string volume_;
  std::string source_;
  std::string path_;
  std::string reference_;
  std::string referenceFolder_;  ///< The volume's name in the reference.
  Basis basis_ = Basis::nothing;
};

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A volume of the source that stands still while it is copied.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::snapwheel {

/// Where a source on btrfs has the subvolume of one walk, in its root, closed to all but root.
inline constexpr char kInstantFolder[] = ".snapwheel-source";

/// On btrfs, where the folder to copy is the root of a subvolume, a snapshot of that; elsewhere the
/// folder itself. Items have the inode numbers and the change times of the folder itself. Goes away
/// with the object, and what a run that was killed has left goes before it is made.
class SourceInstant {
 public:
  /// Whether a path in the folder, and what is below it, is left out of the copy.
  using LeavesOut = std::function<bool(std::string_view path)>;

  /// `folder` is the open folder as its own volume holds it.
  SourceInstant(host::Descriptor folder, const LeavesOut& leavesOut);
  ~SourceInstant();
  SourceInstant(const SourceInstant&) = delete;
  SourceInstant& operator=(const SourceInstant&) = delete;

  /// What to copy.
  const host::Descriptor& folder() const { return instant_ ? instant_ : live_; }
  /// Whether it stands still.
  bool isStill() const { return static_cast<bool>(instant_); }
  /// Whether it is all as it was at one moment: each subvolume in it is as of a moment of its own.
  bool isOfOneInstant() const { return isStill() && !hasNested_; }
  /// Why a subvolume is copied as it changes, an errno value; 0 when it is not.
  int error() const { return error_; }
  /// Whether the path is the one where the subvolume is made: nothing of the host's.
  bool isOwn(std::string_view path) const { return place_ && path == kInstantFolder; }

 private:
  Status openPlace();
  Status make(const LeavesOut& leavesOut);
  void remove();

  host::Descriptor live_;
  host::Descriptor place_;
  host::Descriptor instant_;
  bool hasNested_ = false;
  int error_ = 0;
};

}  // namespace halyard::snapwheel

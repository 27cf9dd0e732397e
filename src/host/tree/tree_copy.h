// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Copies items and whole trees with everything that belongs to them.
//
// Kept: mode with set-id bits, owner, group, times, every extended attribute (ACLs and capabilities
// among them), symbolic links as links, hard links within the item, holes, FIFOs, sockets, devices.
// The walk is relative to descriptors (no path limit), follows no link and uses a bounded number of
// descriptors, however deep or wide the tree is.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/files/descriptor.h"
#include "host/files/location.h"
#include "host/tree/inode_flags.h"
#include "host/tree/item_attributes.h"
#include "host/tree/tree_memory.h"
#include "host/tree/tree_scout.h"

namespace halyard::host {

class ExtendedAttributes;

/// A complete copy of an item that stands beside its destination, in a folder with a temporary name
/// that is closed to others. Goes away with the object unless it was published.
class StagedCopy {
 public:
  /// Copies the item at `source` beside `destination`. Absent, with nothing left behind, when the
  /// source is missing, the destination's folder is, the source is the destination or holds it, or
  /// on any error (after EIO or ENOSPC no other way of copying is tried).
  static std::optional<StagedCopy> stage(const std::string& source, const std::string& destination);

  StagedCopy(StagedCopy&&) noexcept = default;
  StagedCopy& operator=(StagedCopy&& other) noexcept;
  ~StagedCopy();

  /// Gives the copy its final name. Fails, and keeps what is there, when anything stands at the
  /// destination.
  bool publish();

  /// Where the copy stands now.
  const std::string& path() const { return path_; }

 private:
  StagedCopy() = default;
  bool makeFolder();
  void discard();

  std::string path_;
  std::string destination_;
  Location place_;         ///< Of the destination.
  std::string temporary_;  ///< The name of the temporary folder beside it.
  Descriptor folder_;      ///< That folder; none once the copy was published.
};

/// Copies one item, whole or not at all: stage and publish. False when the destination exists, its
/// folder or the source is missing, or on any error.
bool copyItem(const std::string& source, const std::string& destination);

/// How a tree is copied for a snapshot or from one.
struct TreeCopyOptions {
  /// A tree with an earlier copy of the source: a regular file whose contents, modification time,
  /// mode, owner, group and extended attributes are the same there becomes a hard link to it.
  std::string reference;
  /// Does not descend into other mounted file systems (the empty mount point is copied). A folder
  /// of the same file system that is mounted somewhere hides what belongs there: EXDEV.
  bool oneFileSystem = false;
  /// Given a path relative to the source root, whether it and what is below it are left out.
  std::function<bool(std::string_view relativePath)> excluded;
  /// Told of each item that could not be copied (relative path, empty for the root, and errno);
  /// whether the walk goes on without it. It does not, and does not ask, when the destination is
  /// full or read-only. Without this function the first error ends the copy.
  std::function<bool(std::string_view relativePath, int error)> failed;
  /// The destination folder, or a link to one, may exist already: folders are merged and take the
  /// attributes of the source, other items are replaced, each at once and by what is on disk.
  bool intoExisting = false;
  /// The destination is an earlier copy and is brought up to date: as intoExisting, but a regular
  /// file that is the same there stays, and what the source no longer has is removed. No file is
  /// written into: it may have names in other copies.
  bool update = false;
  /// Changes what an item of the copy is to be given, before it is: its owner, its group and the
  /// values of its extended attributes. Null for nothing.
  std::function<void(struct stat& status, ExtendedAttributes& attributes)> adapt;
  /// Whether a folder that was there keeps its own attributes, for the sake of what is in it.
  std::function<bool(std::string_view relativePath)> passedThrough;
  /// Told of each item that is there without some of its attributes, which the target cannot hold.
  /// Without this function such an item counts as one that could not be copied.
  std::function<void(std::string_view relativePath, const LostAttributes& lost)> attributesLost;
  /// What stands in the target with flags that lock it (chattr +i, +a) is unlocked where it is in
  /// the way, and new items get none of the flags that their folders hand down. Told of each
  /// folder that was there with inode flags: what becomes of them is the caller's affair. Null:
  /// flags are left alone.
  std::function<void(std::string_view relativePath, InodeFlags flags)> flagged;
  /// What the caller remembers of the source at the time of the earlier copy, which is the
  /// reference, or in an update the destination: an item that it knows to be unchanged is not
  /// compared with that copy.
  TreeMemory* memory = nullptr;
  /// With a memory: what it has seen needs no look. Null for none.
  TreeScout* scout = nullptr;
  /// The tree that the memory remembers, where files that moved since are found; empty for none.
  std::string earlier;
};

struct TreeCopyCounts {
  std::uint64_t items = 0;        ///< Items of any kind.
  std::uint64_t copied = 0;       ///< Regular files copied afresh.
  std::uint64_t copiedBytes = 0;  ///< Their sizes, as stat(2) gives them.
  std::uint64_t linked = 0;       ///< Regular files linked to the reference, or left in place.
  std::uint64_t linkedBytes = 0;

  TreeCopyCounts& operator+=(const TreeCopyCounts& other);
};

struct TreeCopyReport : TreeCopyCounts {
  bool complete = false;  ///< Everything that was not excluded is there.
  bool ended = false;     ///< An error ended the walk before it had been everywhere.
  int error = 0;          ///< The errno value that ended the walk, or of the first failure.
};

/// Copies the tree at `source` to `destination` in place: for work folders that a caller publishes
/// or removes as a whole. A destination inside the source is left out of the copy.
TreeCopyReport copyTree(const std::string& source, const std::string& destination,
                        const TreeCopyOptions& options = {});
/// The same for a source that is held open; "." is the open folder itself.
TreeCopyReport copyTree(const Location& source, const std::string& destination,
                        const TreeCopyOptions& options = {});
/// And for a destination that is.
TreeCopyReport copyTree(const std::string& source, const Location& destination,
                        const TreeCopyOptions& options = {});

}  // namespace halyard::host

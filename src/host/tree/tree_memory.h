// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a caller of copyTree remembers of the source from the walk that made the earlier copy.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/tree/inode_flags.h"

namespace halyard::host {

/// Stands for the contents of a file, holes as zeros: equal for equal contents, and for others not.
using ContentDigest = std::array<std::uint64_t, 2>;

/// Sees the contents of a regular file as they are read, from the first byte to the last.
class ContentWatcher {
 public:
  virtual ~ContentWatcher() = default;

  virtual void begin() = 0;  ///< Of a file, or once more of the same one.
  virtual void read(const char* bytes, std::size_t count) = 0;
  virtual void readZeros(std::uint64_t count) = 0;
  virtual void end() = 0;  ///< Not called when the reading stops before.
};

/// Called in the order of the walk, with names as they stand in the current folder. A caller that
/// knows an item to be unchanged spares the walk every look at the earlier copy.
class TreeMemory : public ContentWatcher {
 public:
  /// What is known of a regular file in the earlier copy.
  struct Earlier {
    const ContentDigest* digest = nullptr;  ///< Null where it is not known.
    bool isDamaged = false;                 ///< It does not hold that any more.
  };
  /// Where a regular file stood in the earlier copy that now stands elsewhere.
  struct Moved {
    const char* folder;  ///< Relative to the root, empty for it.
    const char* name;
    Earlier earlier;
    bool isProven;  ///< The contents are for certain the same.
  };

  /// The walk goes into a folder; the root comes first, with an empty name. True when the folder's
  /// own attributes and the names in it are for certain as they were; what is below is still asked.
  virtual bool enter(const char* name, const struct stat& status) = 0;
  /// The walk is done with the folder that it entered last.
  virtual void leave() = 0;

  /// Whether an item that is no folder is for certain as it was: contents, attributes and links.
  virtual bool isUnchanged(const char* name, const struct stat& status) = 0;
  /// The regular file of this name and size in the current folder of the earlier copy.
  virtual Earlier earlier(const char* name, const struct stat& status) = 0;
  /// The same inode with the same size under another name. What it points to holds until the next
  /// call.
  virtual std::optional<Moved> movedFrom(const struct stat& status) = 0;
  /// Whether the inode flags of the folder that was entered last, or of the regular file that
  /// isUnchanged was asked about, are to be read and told.
  virtual bool wantsFlags() { return false; }
  virtual void sawFlags(InodeFlags /*flags*/) {}
  /// Flags that the copy of the file must have before it has contents.
  virtual InodeFlags flagsOfContents(const char* /*name*/) { return 0; }
  /// Of what was seen from begin() to end().
  virtual ContentDigest digest() = 0;
  /// The item that isUnchanged was asked about stands in the copy as `status` says.
  virtual void took(const char* name, const struct stat& status) = 0;
  /// The same for a regular file that changed whenever it was read: the copy may hold a mixture.
  virtual void tookTorn(const char* name, const struct stat& status) = 0;
};

}  // namespace halyard::host

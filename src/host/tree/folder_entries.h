// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The entries of a folder, a batch at a time.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::host {

struct FolderEntry {
  ino_t inode;
  const char* name;    ///< Valid until the next batch.
  unsigned char type;  ///< As d_type of readdir(3); DT_UNKNOWN where the file system does not say.
};

/// Reads folders through one buffer. A batch comes in inode order: on file systems that list by
/// hash this turns random access to the inode table into a sequential one.
class FolderReader {
 public:
  FolderReader();

  /// The next entries without "." and "..", none at the end of the folder. `folder` was opened for
  /// reading and is used for nothing else meanwhile.
  int next(int folder, std::vector<FolderEntry>& entries);

 private:
  std::unique_ptr<char[]> buffer_;
};

/// What stands in a folder, by kind.
class FolderKinds {
 public:
  /// `folder` is read from where it stands and stands at its beginning afterwards.
  int read(FolderReader& reader, int folder);

  /// As d_type of readdir(3); absent when there is no such name.
  std::optional<unsigned char> find(std::string_view name);

 private:
  struct Entry {
    std::size_t name;  ///< Where in names_ it starts.
    unsigned char kind;
  };
  std::string_view nameOf(const Entry& entry) const { return names_.c_str() + entry.name; }

  std::string names_;           ///< Each ended by a NUL.
  std::vector<Entry> entries_;  ///< In the order of the folder, until a search needs another one.
  std::size_t next_ = 0;        ///< Follows the entry that was found last.
  bool isSorted_ = false;
};

/// Names kept for later, first in, first out, without an allocation for each.
class NameQueue {
 public:
  bool empty() const { return next_ == names_.size(); }
  void add(const char* name);
  std::string take();

 private:
  std::string names_;  ///< Each ended by a NUL.
  std::size_t next_ = 0;
};

}  // namespace halyard::host

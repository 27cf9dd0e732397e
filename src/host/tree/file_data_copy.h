// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The content of regular files.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>

#include "host/tree/tree_memory.h"

namespace halyard::host {

/// Copies contents with their holes, the cheapest way that the file systems offer: shared blocks,
/// else a copy by the kernel, else by a buffer. Another way is tried only when the file systems do
/// not offer one; an error of the disk ends the copy. Remembers from file to file what is offered.
class FileDataCopier {
 public:
  FileDataCopier();

  /// From now on shows what is copied or compared; contents that nobody has read cannot be shown,
  /// so that the kernel alone copies none. Null for nobody.
  void watch(ContentWatcher* watcher) { watcher_ = watcher; }

  /// Fills the new, empty file `to` with what is in `from`, whose fstat(2) is `status` and whose
  /// offset is 0. A file that shrinks meanwhile ends where it was found to end. `to` is open for
  /// reading too.
  int copy(int from, int to, const struct stat& status, dev_t targetDevice);

  /// The same, where `earlier` on the device of the target holds most of the contents: its blocks
  /// are shared as far as they hold them. EOPNOTSUPP, and nothing done, where blocks cannot be.
  int copyChanges(int from, int to, int earlier, const struct stat& status);

  /// Reads all of `from`, for the watcher.
  int read(int from, const struct stat& status);

  /// Whether `right` holds what `left` does, whose fstat(2) is `status`; the watcher sees `left` up
  /// to where they differ. ENOENT when they do, and when `left` ends before its size.
  int compare(int left, int right, const struct stat& status);

 private:
  template <typename UseBytes, typename UseZeros>
  int readPieces(int from, const struct stat& status, UseBytes useBytes, UseZeros useZeros);
  int copyWatched(int from, int to, const struct stat& status);
  int share(int from, int to);
  int readShared(int to);
  int copySmall(int from, int to, const struct stat& status);
  int copyLarge(int from, int to, off_t size);
  int copyRange(int from, int to, off_t& at, off_t end);
  int copyThroughBuffer(int from, int to, off_t& at, off_t end);
  int writeAll(int to, const char* bytes, std::size_t count, off_t at);
  int replaceWhereOther(int to, const char* bytes, std::size_t count, off_t at);
  char* otherBuffer();

  ContentWatcher* watcher_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  std::unique_ptr<char[]> otherBuffer_;  ///< Made when it is needed first.
  dev_t sourceDevice_ = 0;
  dev_t targetDevice_ = 0;
  bool shares_ = true;      ///< Sharing blocks has not been refused yet.
  bool hasShared_ = false;  ///< And has been done.
  bool kernelCopies_ = true;
};

}  // namespace halyard::host

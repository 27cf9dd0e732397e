// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The content of regular files.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>

namespace halyard::host {

/// Copies contents with their holes, the cheapest way that the file systems offer: shared blocks,
/// else a copy by the kernel, else by a buffer. Another way is tried only when the file systems do
/// not offer one; an error of the disk ends the copy. Remembers from file to file what is offered.
class FileDataCopier {
 public:
  FileDataCopier();

  /// Fills the new, empty file `to` with what is in `from`, whose fstat(2) is `status` and whose
  /// offset is 0. A file that shrinks meanwhile ends where it was found to end.
  int copy(int from, int to, const struct stat& status, dev_t targetDevice);

 private:
  int share(int from, int to);
  int copySmall(int from, int to, const struct stat& status);
  int copyLarge(int from, int to, off_t size);
  int copyRange(int from, int to, off_t& at, off_t end);
  int copyThroughBuffer(int from, int to, off_t& at, off_t end);
  int writeAll(int to, const char* bytes, std::size_t count, off_t at);

  std::unique_ptr<char[]> buffer_;
  dev_t sourceDevice_ = 0;
  dev_t targetDevice_ = 0;
  bool shares_ = true;      ///< Sharing blocks has not been refused yet.
  bool hasShared_ = false;  ///< And has been done.
  bool kernelCopies_ = true;
};

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/file_data_copy.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{128} << 10;
constexpr off_t kToTheEnd = std::numeric_limits<off_t>::max();

/// Errors that only say that this way is closed for this file: besides the usual ones, swap files
/// (ETXTBSY) and descriptors that the call cannot serve.
bool isRefusal(int error) { return isUnsupported(error) || error == ETXTBSY || error == EBADF; }

bool hasHoles(const struct stat& status) { return status.st_blocks * 512 < status.st_size; }

}  // namespace

FileDataCopier::FileDataCopier() : buffer_(new char[kBufferBytes]) {}

int FileDataCopier::copy(int from, int to, const struct stat& status, dev_t targetDevice) {
  if (status.st_dev != sourceDevice_ || targetDevice != targetDevice_) {
    sourceDevice_ = status.st_dev;
    targetDevice_ = targetDevice;
    shares_ = kernelCopies_ = true;
    hasShared_ = false;
  }
  if (shares_ && status.st_size > 0) {
    const int error = share(from, to);
    if (error == 0 || !isRefusal(error)) return error;
  }
  const bool small = status.st_size <= static_cast<off_t>(kBufferBytes);
  if (small && !hasHoles(status)) return copySmall(from, to, status);
  return copyLarge(from, to, status.st_size);
}

int FileDataCopier::share(int from, int to) {
  const int error = errorOf([&] { return ::ioctl(to, FICLONE, from); });
  if (error == 0) hasShared_ = true;
  // One file may be refused where others are not, so one success keeps the way open.
  if (isRefusal(error) && !hasShared_) shares_ = false;
  return error;
}

/// As many bytes as fstat(2) promised, in one read, are the whole file; files of the kernel, which
/// promise nothing or too much, are read to their end.
int FileDataCopier::copySmall(int from, int to, const struct stat& status) {
  off_t at = 0;
  for (;;) {
    const auto got = uninterrupted([&] { return ::read(from, buffer_.get(), kBufferBytes); });
    if (got < 0) return errno;
    if (got == 0) return 0;
    if (const int error = writeAll(to, buffer_.get(), static_cast<std::size_t>(got), at)) {
      return error;
    }
    at += got;
    if (at == status.st_size) return 0;
  }
}

int FileDataCopier::copyLarge(int from, int to, off_t size) {
  off_t at = 0;
  bool ended = false;
  while (at < size && !ended) {
    off_t start = uninterrupted([&] { return ::lseek(from, at, SEEK_DATA); });
    if (start < 0 && errno == ENXIO) break;  // Nothing but a hole up to the end.
    if (start < 0 && !isUnsupported(errno)) return errno;
    off_t end = start < 0 ? -1 : uninterrupted([&] { return ::lseek(from, start, SEEK_HOLE); });
    if (start >= 0 && end < 0) return errno;
    if (start < 0) {
      start = at;  // Knows no holes.
      end = kToTheEnd;
    }
    at = start;
    if (const int error = copyRange(from, to, at, end)) return error;
    ended = at < end;  // Shorter than it was a moment ago.
  }
  if (ended || at >= size) return 0;
  return errorOf([&] { return ::ftruncate(to, size); });
}

/// Copies up to `end`, or to the end of the file when that comes first, and moves `at` there.
int FileDataCopier::copyRange(int from, int to, off_t& at, off_t end) {
  constexpr off_t kStep = off_t{1} << 30;
  while (kernelCopies_ && at < end) {
    off_t readAt = at;
    off_t writeAt = at;
    const auto count = static_cast<std::size_t>(std::min(end - at, kStep));
    const auto copied =
        uninterrupted([&] { return ::copy_file_range(from, &readAt, to, &writeAt, count, 0); });
    if (copied < 0 && !isRefusal(errno)) return errno;
    if (copied < 0) kernelCopies_ = false;
    if (copied <= 0) break;  // Files of the kernel answer 0 here and yet can be read.
    at += copied;
  }
  return copyThroughBuffer(from, to, at, end);
}

int FileDataCopier::copyThroughBuffer(int from, int to, off_t& at, off_t end) {
  while (at < end) {
    const auto count =
        static_cast<std::size_t>(std::min(end - at, static_cast<off_t>(kBufferBytes)));
    const auto got = uninterrupted([&] { return ::pread(from, buffer_.get(), count, at); });
    if (got < 0) return errno;
    if (got == 0) return 0;
    if (const int error = writeAll(to, buffer_.get(), static_cast<std::size_t>(got), at)) {
      return error;
    }
    at += got;
  }
  return 0;
}

int FileDataCopier::writeAll(int to, const char* bytes, std::size_t count, off_t at) {
  while (count > 0) {
    const auto written = uninterrupted([&] { return ::pwrite(to, bytes, count, at); });
    if (written < 0) return errno;
    bytes += written;
    at += written;
    count -= static_cast<std::size_t>(written);
  }
  return 0;
}

}  // namespace halyard::host

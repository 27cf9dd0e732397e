// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/file_data_copy.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{128} << 10;
constexpr std::size_t kBlockBytes = std::size_t{4} << 10;  // What file systems share at the least.
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
    if (error == 0 && watcher_ != nullptr) return readShared(to);
    if (error == 0 || !isRefusal(error)) return error;
  }
  if (watcher_ != nullptr) return copyWatched(from, to, status);
  const bool small = status.st_size <= static_cast<off_t>(kBufferBytes);
  if (small && !hasHoles(status)) return copySmall(from, to, status);
  return copyLarge(from, to, status.st_size);
}

/// Calls `useBytes(bytes, count, at)` and `useZeros(count, at)` for the contents in their order
/// until one answers with an error, and shows them to the watcher. Ends where the file is found to
/// end.
template <typename UseBytes, typename UseZeros>
int FileDataCopier::readPieces(int from, const struct stat& status, UseBytes useBytes,
                               UseZeros useZeros) {
  if (watcher_ != nullptr) watcher_->begin();
  // Files of the kernel promise nothing and are read to their end.
  off_t size = status.st_size > 0 ? status.st_size : kToTheEnd;
  bool seeks = hasHoles(status);
  off_t at = 0;
  while (at < size) {
    off_t end = size;
    if (seeks) {
      const off_t hole = at;
      at = uninterrupted([&] { return ::lseek(from, at, SEEK_DATA); });
      if (at < 0 && errno == ENXIO) at = size;  // Nothing but a hole up to the end.
      if (at < 0 && !isUnsupported(errno)) return errno;
      seeks = at >= 0;
      if (!seeks) at = hole;
      if (at > hole) {
        const auto count = static_cast<std::uint64_t>(std::min(at, size) - hole);
        if (watcher_ != nullptr) watcher_->readZeros(count);
        if (const int error = useZeros(count, hole)) return error;
      }
      if (seeks && at < size) {
        end = uninterrupted([&] { return ::lseek(from, at, SEEK_HOLE); });
        if (end < 0 && errno != ENXIO) return errno;
        if (end < 0) size = at;  // Shorter than it was a moment ago.
        end = std::min(end, size);
      }
    }
    while (at < std::min(end, size)) {
      const auto wanted =
          static_cast<std::size_t>(std::min(end - at, static_cast<off_t>(kBufferBytes)));
      const auto got = uninterrupted([&] { return ::pread(from, buffer_.get(), wanted, at); });
      if (got < 0) return errno;
      if (got == 0) {
        size = at;  // Shorter than it was a moment ago.
        break;
      }
      const auto count = static_cast<std::size_t>(got);
      if (watcher_ != nullptr) watcher_->read(buffer_.get(), count);
      if (const int error = useBytes(buffer_.get(), count, at)) return error;
      at += got;
    }
  }
  if (watcher_ != nullptr) watcher_->end();
  return 0;
}

/// What was shared is what must be seen, whatever happens to the source; it may have grown before.
int FileDataCopier::readShared(int to) {
  struct stat status = {};
  const int error = errorOf([&] { return ::fstat(to, &status); });
  return error != 0 ? error : read(to, status);
}

int FileDataCopier::copyWatched(int from, int to, const struct stat& status) {
  off_t holeEnd = 0;  // Of a hole that nothing follows.
  const int error = readPieces(
      from, status,
      [&](const char* bytes, std::size_t count, off_t at) {
        holeEnd = 0;
        return writeAll(to, bytes, count, at);
      },
      [&](std::uint64_t count, off_t at) {
        holeEnd = at + static_cast<off_t>(count);
        return 0;
      });
  if (error != 0 || holeEnd == 0) return error;
  return errorOf([&] { return ::ftruncate(to, holeEnd); });
}

int FileDataCopier::copyChanges(int from, int to, int earlier, const struct stat& status) {
  if (const int error = errorOf([&] { return ::ioctl(to, FICLONE, earlier); })) {
    return isRefusal(error) ? EOPNOTSUPP : error;
  }
  off_t end = 0;
  int error = readPieces(
      from, status,
      [&](const char* bytes, std::size_t count, off_t at) {
        end = at + static_cast<off_t>(count);
        return replaceWhereOther(to, bytes, count, at);
      },
      [&](std::uint64_t count, off_t at) {
        end = at + static_cast<off_t>(count);
        return errorOf([&] {
          return ::fallocate(to, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, at,
                             static_cast<off_t>(count));
        });
      });
  if (error == 0) error = errorOf([&] { return ::ftruncate(to, end); });
  return error;
}

int FileDataCopier::replaceWhereOther(int to, const char* bytes, std::size_t count, off_t at) {
  const char* there = otherBuffer();
  // What cannot be read there, as where the disk has lost it, is written like what is another.
  const auto got =
      std::max<ssize_t>(0, uninterrupted([&] { return ::pread(to, otherBuffer(), count, at); }));
  for (std::size_t block = 0; block < count; block += kBlockBytes) {
    const std::size_t length = std::min(kBlockBytes, count - block);
    const bool isThere = block + length <= static_cast<std::size_t>(got);
    if (isThere && std::memcmp(bytes + block, there + block, length) == 0) continue;
    const off_t blockAt = at + static_cast<off_t>(block);
    if (const int error = writeAll(to, bytes + block, length, blockAt)) return error;
  }
  return 0;
}

int FileDataCopier::read(int from, const struct stat& status) {
  return readPieces(
      from, status, [](const char*, std::size_t, off_t) { return 0; },
      [](std::uint64_t, off_t) { return 0; });
}

int FileDataCopier::compare(int left, int right, const struct stat& status) {
  struct stat other = {};
  if (const int error = errorOf([&] { return ::fstat(right, &other); })) return error;
  if (other.st_size != status.st_size) return ENOENT;
  off_t end = 0;
  const auto compareAt = [&](const char* bytes, std::size_t count, off_t at) {
    end = at + static_cast<off_t>(count);
    const auto got = uninterrupted([&] { return ::pread(right, otherBuffer(), count, at); });
    if (got < 0) return errno;
    const bool same =
        static_cast<std::size_t>(got) == count && std::memcmp(bytes, otherBuffer(), count) == 0;
    return same ? 0 : ENOENT;
  };
  static constexpr std::array<char, kBufferBytes> kZeros{};
  const auto compareZeros = [&](std::uint64_t count, off_t at) {
    int error = 0;
    while (error == 0 && count > 0) {
      // Where the other has a hole as well there is nothing to read, however long it is.
      off_t data =
          hasHoles(other) ? uninterrupted([&] { return ::lseek(right, at, SEEK_DATA); }) : at;
      if (data < 0) data = errno == ENXIO ? other.st_size : at;
      const auto skipped = std::min(count, static_cast<std::uint64_t>(std::max(data, at) - at));
      at += static_cast<off_t>(skipped);
      count -= skipped;
      end = at;
      if (count == 0) break;
      const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(count, kBufferBytes));
      error = compareAt(kZeros.data(), step, at);
      at += static_cast<off_t>(step);
      count -= step;
    }
    return error;
  };
  const int error = readPieces(left, status, compareAt, compareZeros);
  // One that became shorter meanwhile is not what the other holds.
  return error == 0 && end < status.st_size ? ENOENT : error;
}

char* FileDataCopier::otherBuffer() {
  if (!otherBuffer_) otherBuffer_.reset(new char[kBufferBytes]);
  return otherBuffer_.get();
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

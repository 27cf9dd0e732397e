// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Small files that are absent, old or complete at any instant.
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/files/location.h"
#include "host/files/sync.h"
#include "host/files/system_call.h"
#include "host/files/temporary_name.h"

namespace halyard::host {

namespace {

constexpr mode_t kOpenMode = 0666;
constexpr mode_t kPrivateMode = 0600;  // Until the file has its own.

PieceSource wholeOf(std::string_view bytes) {
  return [bytes](const PieceSink& sink) { sink(bytes); };
}

int writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = uninterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
    if (written < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

/// Creates a file under a new name in the folder and sets `name` to it.
Result<Descriptor> createTemporary(int folder, std::string& name, mode_t mode) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    name = temporaryName();
    Descriptor file(uninterrupted([&] { return ::openat(folder, name.c_str(), kFlags, mode); }));
    if (file) return file;
    if (errno != EEXIST) return Error{errno, name};
  }
  return Error{EEXIST, name};
}

/// The error of the first piece that could not be written; the ones after it are passed over.
int writePieces(int file, const PieceSource& produce) {
  int error = 0;
  produce([&](std::string_view piece) {
    if (error == 0) error = writeAll(file, piece);
  });
  return error;
}

int readBackPieces(int file, const PieceSink& readBack) {
  std::string piece(std::size_t{64} << 10, '\0');
  for (off_t position = 0;;) {
    const auto got =
        uninterrupted([&] { return ::pread(file, piece.data(), piece.size(), position); });
    if (got <= 0) return got == 0 ? 0 : errno;
    readBack(std::string_view(piece).substr(0, static_cast<std::size_t>(got)));
    position += got;
  }
}

/// The finished file `name` in an open folder, still open.
Result<Descriptor> replaceFile(int folder, const std::string& name, const PieceSource& produce,
                               Durability durability, std::optional<mode_t> mode = {}) {
  const bool syncs = durability == Durability::power;
  std::string temporary;
  Result<Descriptor> file = createTemporary(folder, temporary, mode ? kPrivateMode : kOpenMode);
  if (!file) return Error{file.error().code, name};
  const int number = file->get();
  int error = writePieces(number, produce);
  if (error == 0 && mode) error = errorOf([&] { return ::fchmod(number, *mode); });
  if (error == 0 && syncs) error = errorOf([&] { return ::fsync(number); });
  if (error == 0) {
    error = errorOf([&] { return ::renameat(folder, temporary.c_str(), folder, name.c_str()); });
  }
  if (error != 0) {
    (void)errorOf([&] { return ::unlinkat(folder, temporary.c_str(), 0); });
    return Error{error, name};
  }
  if (!syncs) return file;
  if (const Status synced = syncFolder(folder); !synced) return Error{synced.error().code, name};
  return file;
}

Result<Descriptor> replaceFile(const std::string& path, const PieceSource& produce,
                               Durability durability, std::optional<mode_t> mode = {}) {
  const Result<Location> place = locate(path);
  if (!place) return place.error();
  auto file = replaceFile(place->folder.get(), place->name, produce, durability, mode);
  if (!file) return Error{file.error().code, path};
  return file;
}

Status outcomeOf(const Result<Descriptor>& file) { return file ? Status() : file.error(); }

}  // namespace

Status writeFile(const std::string& path, std::string_view bytes, Durability durability) {
  return outcomeOf(replaceFile(path, wholeOf(bytes), durability));
}

Status writeFile(const std::string& path, std::string_view bytes, Durability durability,
                 mode_t mode) {
  return outcomeOf(replaceFile(path, wholeOf(bytes), durability, mode));
}

Status writeFileAt(int folder, const std::string& name, std::string_view bytes,
                   Durability durability, mode_t mode) {
  return outcomeOf(replaceFile(folder, name, wholeOf(bytes), durability, mode));
}

Status writeFileAndReadBack(const std::string& path, const PieceSource& produce,
                            const PieceSink& readBack, Durability durability) {
  const auto file = replaceFile(path, produce, durability);
  if (!file) return file.error();
  return halyard::outcomeOf(readBackPieces(file->get(), readBack), path);
}

}  // namespace halyard::host

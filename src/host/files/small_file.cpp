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

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = uninterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Creates a file under a new name in the folder and sets `name` to it.
Descriptor createTemporary(int folder, std::string& name) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    name = temporaryName();
    Descriptor file(uninterrupted([&] { return ::openat(folder, name.c_str(), kFlags, 0666); }));
    if (file || errno != EEXIST) return file;
  }
  return {};
}

/// False when a piece could not be written; the ones after it are then passed over.
bool writePieces(int file, const PieceSource& produce) {
  bool written = true;
  produce([&](std::string_view piece) { written = written && writeAll(file, piece); });
  return written;
}

bool readBackPieces(int file, const PieceSink& readBack) {
  std::string piece(std::size_t{64} << 10, '\0');
  for (off_t position = 0;;) {
    const auto got =
        uninterrupted([&] { return ::pread(file, piece.data(), piece.size(), position); });
    if (got <= 0) return got == 0;
    readBack(std::string_view(piece).substr(0, static_cast<std::size_t>(got)));
    position += got;
  }
}

/// The finished file, still open; none on any error.
Descriptor replaceFile(const std::string& path, const PieceSource& produce, Durability durability,
                       std::optional<mode_t> mode = {}) {
  const Location place = locate(path);
  if (!place) return {};
  const int folder = place.folder.get();
  const bool syncs = durability == Durability::power;

  std::string temporary;
  Descriptor file = createTemporary(folder, temporary);
  if (!file) return {};
  const bool renamed = writePieces(file.get(), produce) &&
                       (!mode || errorOf([&] { return ::fchmod(file.get(), *mode); }) == 0) &&
                       (!syncs || errorOf([&] { return ::fsync(file.get()); }) == 0) &&
                       errorOf([&] {
                         return ::renameat(folder, temporary.c_str(), folder, place.name.c_str());
                       }) == 0;
  if (!renamed) {
    (void)errorOf([&] { return ::unlinkat(folder, temporary.c_str(), 0); });
    return {};
  }
  if (syncs && !syncFolder(folder)) return {};
  return file;
}

}  // namespace

bool writeFile(const std::string& path, std::string_view bytes, Durability durability) {
  const auto whole = [&](const PieceSink& sink) { sink(bytes); };
  return static_cast<bool>(replaceFile(path, whole, durability));
}

bool writeFile(const std::string& path, std::string_view bytes, Durability durability,
               mode_t mode) {
  const auto whole = [&](const PieceSink& sink) { sink(bytes); };
  return static_cast<bool>(replaceFile(path, whole, durability, mode));
}

bool writeFileAndReadBack(const std::string& path, const PieceSource& produce,
                          const PieceSink& readBack, Durability durability) {
  const Descriptor file = replaceFile(path, produce, durability);
  return file && readBackPieces(file.get(), readBack);
}

}  // namespace halyard::host

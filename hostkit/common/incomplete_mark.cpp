// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/incomplete_mark.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/text.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kMarkLimit = std::size_t{64} << 10;

std::string printable(std::string_view line) {
  std::string text;
  for (const char letter : line) {
    const bool control = static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f;
    text += control ? '?' : letter;
  }
  return text;
}

// The mark's bytes, as far as they are read; absent when it is no regular file.
std::optional<std::string> readMark(const std::string& path) {
  // A FIFO would be waited for, a link could lead anywhere.
  const host::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string bytes(kMarkLimit, '\0');
  const ssize_t count = ::pread(file.get(), bytes.data(), bytes.size(), 0);
  if (count < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

}  // namespace

bool isFolderName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

bool markIncomplete(const std::string& metadataFolder, const std::string& service,
                    const std::vector<std::string>& reasons) {
  if (!isFolderName(service) || !host::isRealDirectory(metadataFolder)) return false;
  const std::string folder = joinPath(metadataFolder, service);
  (void)host::createDirectory(folder);  // Mostly it is there; the next line tells.
  if (!host::isRealDirectory(folder)) return false;
  std::string text;
  for (const std::string& reason : reasons) text += printable(reason) + "\n";
  return host::writeFile(joinPath(folder, paths::kIncompleteMark), text,
                         host::Durability::power) &&
         host::syncFolder(metadataFolder);  // The service's folder may be new.
}

std::optional<std::vector<std::string>> incompleteReasons(const std::string& metadataFolder,
                                                          const std::string& service) {
  const std::string mark = joinPath(joinPath(metadataFolder, service), paths::kIncompleteMark);
  struct stat status {};
  const bool stands = ::lstat(mark.c_str(), &status) == 0;
  if (!stands && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  std::vector<std::string> reasons;
  const auto text = stands ? readMark(mark) : std::nullopt;
  if (!text) return std::vector<std::string>{"its mark cannot be read"};
  for (const std::string_view line : splitAt(*text, '\n')) {
    if (!line.empty()) reasons.push_back(printable(line));
  }
  if (reasons.empty()) reasons.emplace_back("no reason was written down");
  return reasons;
}

}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/running_backup.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/text.h"
#include "common/paths.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kTextLimit = 4096;
constexpr std::string_view kProcessMark = "(process ";

bool lives(int process) { return process > 0 && (::kill(process, 0) == 0 || errno == EPERM); }

}  // namespace

bool isHeldByBackup() {
  const host::Descriptor file(::open(kRunLock, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;  // The byte that only a backup takes.
  return file && ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::optional<std::string> backupBeside() {
  if (isHeldByBackup()) {
    const std::string holder(trimLineFeeds(host::readFile(kRunLock, kTextLimit).value_or("")));
    const std::size_t mark = holder.find(kProcessMark);
    const int process =
        mark == std::string::npos ? 0 : leadingInteger(holder.substr(mark + kProcessMark.size()));
    if (process != ::getppid()) return holder.empty() ? "a backup" : holder;
    return std::nullopt;  // It starts its Halyard and this one after the other.
  }
  const std::string text(trimLineFeeds(host::readFile(paths::kPidFile, kTextLimit).value_or("")));
  const int process = leadingInteger(text);
  if (!text.ends_with(std::string(texts::kSeparator) + "backup") || !lives(process)) {
    return std::nullopt;
  }
  return "Halyard -cmd backup " + std::string(kProcessMark) + std::to_string(process) + ")";
}

}  // namespace halyard::hostkit

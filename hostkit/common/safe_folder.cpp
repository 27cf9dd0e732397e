#include "common/safe_folder.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "base/text.h"

namespace halyard::hostkit {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kUnfinishedMode = 0600;

// A name that nobody can have prepared.
std::string unfinishedName(const std::string& name) {
  std::uint64_t random = 0;
  (void)!::getrandom(&random, sizeof random, 0);  // O_EXCL refuses a name that is there.
  std::array<char, 24> digits{};
  (void)std::snprintf(digits.data(), digits.size(), "%016llx",
                      static_cast<unsigned long long>(random));
  return "." + name + "." + digits.data();
}

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

host::Descriptor openFolderSafely(const std::string& path) {
  if (!path.starts_with('/')) {
    errno = EINVAL;
    return {};
  }
  host::Descriptor folder(::open("/", kFolderFlags));
  for (const std::string_view component : splitAt(path, '/')) {
    if (!folder) break;
    if (component.empty() || component == ".") continue;
    folder = host::Descriptor(::openat(folder.get(), std::string(component).c_str(), kFolderFlags));
  }
  return folder;
}

bool replaceFile(const host::Descriptor& folder, const std::string& name, std::string_view bytes,
                 mode_t mode) {
  const std::string unfinished = unfinishedName(name);
  const host::Descriptor file(::openat(folder.get(), unfinished.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       kUnfinishedMode));
  if (!file) return false;
  if (writeAll(file.get(), bytes) && ::fchmod(file.get(), mode) == 0 && ::fsync(file.get()) == 0 &&
      ::renameat(folder.get(), unfinished.c_str(), folder.get(), name.c_str()) == 0) {
    (void)::fsync(folder.get());  // Not every network file system syncs a folder.
    return true;
  }
  const int error = errno;
  (void)::unlinkat(folder.get(), unfinished.c_str(), 0);
  errno = error;
  return false;
}

std::optional<std::string> readFileSafely(const host::Descriptor& folder, const std::string& name,
                                          std::size_t limit) {
  const host::Descriptor file(
      ::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string bytes(limit + 1, '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t got = ::read(file.get(), bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > limit) return std::nullopt;
  bytes.resize(length);
  return bytes;
}

}  // namespace halyard::hostkit

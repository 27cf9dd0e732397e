#include "helmsman/restore/trusted_folder.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>

#include "base/text.h"

namespace halyard::hostkit {

namespace {

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kLongestWay = 256;  // Of components, links resolved.

bool isRootsAlone(int folder) {
  struct stat status {};
  return ::fstat(folder, &status) == 0 && status.st_uid == 0 &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Where a link of root's leads; false, with errno, for anything else.
bool readTrustedLink(int folder, const std::string& name, std::string& target) {
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  errno = S_ISLNK(status.st_mode) ? ELOOP : ENOTDIR;
  if (!S_ISLNK(status.st_mode) || status.st_uid != 0 || !isRootsAlone(folder)) return false;
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(folder, name.c_str(), text.data(), text.size());
  if (length <= 0) return false;
  target.assign(text.data(), static_cast<std::size_t>(length));
  return true;
}

void putInFront(std::deque<std::string>& names, const std::string& path) {
  std::deque<std::string> front;
  for (const std::string_view name : splitAt(path, '/')) {
    if (!name.empty() && name != ".") front.emplace_back(name);
  }
  names.insert(names.begin(), front.begin(), front.end());
}

}  // namespace

TrustedPlace trustedPlace(const std::string& path) {
  std::deque<std::string> names;
  putInFront(names, path);
  if (!path.starts_with('/') || names.empty()) {
    errno = EINVAL;
    return {};
  }
  TrustedPlace place{host::Descriptor(::open("/", kFolder)), names.back()};
  names.pop_back();
  for (int steps = 0; place.folder && !names.empty(); ++steps) {
    const std::string name = names.front();
    names.pop_front();
    host::Descriptor next(::openat(place.folder.get(), name.c_str(), kFolder));
    if (!next && (errno == ELOOP || errno == ENOTDIR)) {
      std::string target;
      if (steps > kLongestWay || !readTrustedLink(place.folder.get(), name, target)) return {};
      putInFront(names, target);
      if (!target.starts_with('/')) continue;
      next = host::Descriptor(::open("/", kFolder));
    }
    if (!next) return {};
    place.folder = std::move(next);
  }
  return place;
}

}  // namespace halyard::hostkit

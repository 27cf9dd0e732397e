// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/item_look.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string_view>

#include "host/files/system_call.h"
#include "host/tree/extended_attributes.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

/// Where a link leads; empty when that cannot be read.
std::string targetOf(const host::Descriptor& link) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(link.get(), "", text.data(), text.size());
  return length < 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(length));
}

/// Follows no link on the way, and enters nothing that is mounted there.
host::Descriptor openBelow(int folder, const std::string& path, int flags) {
  struct open_how how {};
  how.flags = static_cast<std::uint64_t>(flags) | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
  return host::Descriptor(host::uninterrupted([&] {
    return static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how));
  }));
}

bool isSameTime(const struct timespec& left, const struct timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool hasOtherAttributes(const struct stat& left, const struct stat& right) {
  return left.st_mode != right.st_mode || left.st_uid != right.st_uid ||
         left.st_gid != right.st_gid ||
         (!S_ISDIR(left.st_mode) && !isSameTime(left.st_mtim, right.st_mtim));
}

}  // namespace

LookedAtTree::LookedAtTree(const std::string& root)
    : root_(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!root_) throw Failure(errorText(root, errno));
}

host::Descriptor LookedAtTree::open(const std::string& path, int flags) const {
  host::Descriptor above;
  int folder = root_.get();
  std::string_view left = path;
  while (left.size() >= PATH_MAX) {  // One call takes no more.
    const std::size_t end = left.rfind('/', PATH_MAX - 1);
    if (end == std::string_view::npos) break;
    above = openBelow(folder, std::string(left.substr(0, end)), O_PATH | O_DIRECTORY);
    if (!above) return above;
    folder = above.get();
    left.remove_prefix(end + 1);
  }
  return openBelow(folder, left.empty() ? "." : std::string(left), flags);
}

ItemDifference ItemLook::compare(const LookedAtTree& left, const LookedAtTree& right,
                                 const std::string& path, bool withContents) {
  const host::Descriptor one = left.open(path, O_PATH);
  const host::Descriptor other = right.open(path, O_PATH);
  struct stat leftStatus {};
  struct stat rightStatus {};
  if (!one || !other || ::fstat(one.get(), &leftStatus) != 0 ||
      ::fstat(other.get(), &rightStatus) != 0 ||
      ((leftStatus.st_mode ^ rightStatus.st_mode) & S_IFMT) != 0) {
    return {false, false, true};
  }
  // Snapshots share what did not change.
  const bool isShared =
      leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino;
  if (isShared) return {};
  ItemDifference difference;
  if (S_ISREG(leftStatus.st_mode) || S_ISDIR(leftStatus.st_mode)) {
    difference = compareOpened(left, right, path, leftStatus, withContents);
  } else if (S_ISLNK(leftStatus.st_mode)) {
    difference.contents = targetOf(one) != targetOf(other);
  } else {
    difference.contents = leftStatus.st_rdev != rightStatus.st_rdev;
  }
  difference.attributes = difference.attributes || hasOtherAttributes(leftStatus, rightStatus);
  return difference;
}

ItemDifference ItemLook::compareOpened(const LookedAtTree& left, const LookedAtTree& right,
                                       const std::string& path, const struct stat& leftStatus,
                                       bool withContents) {
  const host::Descriptor one = left.open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  const host::Descriptor other = right.open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  host::ExtendedAttributes mine;
  host::ExtendedAttributes others;
  if (!one || !other || mine.read(host::AttributeItem::opened(one.get())) != 0 ||
      others.read(host::AttributeItem::opened(other.get())) != 0) {
    return {false, false, true};
  }
  ItemDifference difference;
  difference.attributes = !mine.isSameEverywhere(others);
  if (!withContents || !S_ISREG(leftStatus.st_mode)) return difference;
  const int error = data_.compare(one.get(), other.get(), leftStatus);
  difference.contents = error == ENOENT;
  difference.isUnknown = error != 0 && error != ENOENT;
  return difference;
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/item_attributes.h"

#include <unistd.h>

#include <array>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

bool hasOtherOwner(const struct stat& source, const GivenAttributes& given) {
  return source.st_uid != given.owner || source.st_gid != given.group;
}

bool needsPermissions(const struct stat& source, const ExtendedAttributes& attributes,
                      const GivenAttributes& given) {
  constexpr mode_t kSetIdBits = S_ISUID | S_ISGID;
  const mode_t wanted = source.st_mode & kPermissionBits;
  return wanted != given.permissions || !attributes.empty() ||
         (hasOtherOwner(source, given) && (wanted & kSetIdBits) != 0);
}

std::array<struct timespec, 2> timesOf(const struct stat& source) {
  return {source.st_atim, source.st_mtim};
}

int setModeOfNamed(int folder, const char* name, mode_t mode) {
  const int error = errorOf([&] { return ::fchmodat(folder, name, mode, AT_SYMLINK_NOFOLLOW); });
  // Older kernels do this through /proc alone, which is not mounted everywhere.
  if (error != EOPNOTSUPP) return error;
  return errorOf([&] { return ::fchmodat(folder, name, mode, 0); });
}

}  // namespace

int giveAttributes(int item, const struct stat& source, const ExtendedAttributes& attributes,
                   const GivenAttributes& given) {
  int error = 0;
  if (hasOtherOwner(source, given)) {
    error = errorOf([&] { return ::fchown(item, source.st_uid, source.st_gid); });
  }
  if (error == 0) error = attributes.give(AttributeItem::opened(item));
  if (error == 0 && needsPermissions(source, attributes, given)) {
    error = errorOf([&] { return ::fchmod(item, source.st_mode & kPermissionBits); });
  }
  if (error == 0) {
    error = errorOf([&] { return ::futimens(item, timesOf(source).data()); });
  }
  return error;
}

int giveAttributesByName(int folder, const char* name, const struct stat& source,
                         const ExtendedAttributes& attributes, const GivenAttributes& given) {
  int error = 0;
  if (hasOtherOwner(source, given)) {
    error = errorOf([&] {
      return ::fchownat(folder, name, source.st_uid, source.st_gid, AT_SYMLINK_NOFOLLOW);
    });
  }
  if (error == 0 && !attributes.empty()) {
    const WorkingFolder here(folder);
    error = here.error() != 0 ? here.error() : attributes.give(AttributeItem::named(name));
  }
  if (error == 0 && !S_ISLNK(source.st_mode) && needsPermissions(source, attributes, given)) {
    error = setModeOfNamed(folder, name, source.st_mode & kPermissionBits);
  }
  if (error == 0) {
    error = errorOf(
        [&] { return ::utimensat(folder, name, timesOf(source).data(), AT_SYMLINK_NOFOLLOW); });
  }
  return error;
}

}  // namespace halyard::host

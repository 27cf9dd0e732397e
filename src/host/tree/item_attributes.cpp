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

/// Whether the file system, or the right to use it, has no place for what was to be given.
bool cannotHold(int error) {
  return error == EPERM || error == E2BIG || error == ERANGE || isUnsupported(error);
}

/// Takes the loss of one attribute for done where losses are told.
int tolerate(int error, bool LostAttributes::*what, LostAttributes* lost) {
  if (lost == nullptr || !cannotHold(error)) return error;
  lost->*what = true;
  return 0;
}

/// Without the owner set-id bits would be another account's; without the list its mask would be the
/// group's.
mode_t permissionsFor(const struct stat& source, const LostAttributes* lost) {
  mode_t wanted = source.st_mode & kPermissionBits;
  if (lost != nullptr && lost->owner) wanted &= ~mode_t{S_ISUID | S_ISGID};
  if (lost != nullptr && lost->extended) wanted &= ~mode_t{S_IRWXG};
  return wanted;
}

/// Some file systems take what they cannot hold without a word.
void compare(const struct stat& made, const struct stat& source, LostAttributes& lost) {
  if (made.st_uid != source.st_uid || made.st_gid != source.st_gid) lost.owner = true;
  if (!S_ISLNK(source.st_mode) && ((made.st_mode ^ source.st_mode) & kPermissionBits) != 0) {
    lost.permissions = true;
  }
}

}  // namespace

int giveAttributes(int item, const struct stat& source, const ExtendedAttributes& attributes,
                   const GivenAttributes& given, LostAttributes* lost) {
  int error = 0;
  if (hasOtherOwner(source, given)) {
    error = errorOf([&] { return ::fchown(item, source.st_uid, source.st_gid); });
    error = tolerate(error, &LostAttributes::owner, lost);
  }
  if (error == 0) {
    error =
        attributes.give(AttributeItem::opened(item), lost == nullptr ? nullptr : &lost->extended);
  }
  if (error == 0 && (lost != nullptr || needsPermissions(source, attributes, given))) {
    error = errorOf([&] { return ::fchmod(item, permissionsFor(source, lost)); });
    error = tolerate(error, &LostAttributes::permissions, lost);
  }
  if (error == 0) {
    error = errorOf([&] { return ::futimens(item, timesOf(source).data()); });
  }
  struct stat made = {};
  if (error == 0 && lost != nullptr && ::fstat(item, &made) == 0) compare(made, source, *lost);
  return error;
}

int giveAttributesByName(int folder, const char* name, const struct stat& source,
                         const ExtendedAttributes& attributes, const GivenAttributes& given,
                         LostAttributes* lost) {
  int error = 0;
  if (hasOtherOwner(source, given)) {
    error = errorOf([&] {
      return ::fchownat(folder, name, source.st_uid, source.st_gid, AT_SYMLINK_NOFOLLOW);
    });
    error = tolerate(error, &LostAttributes::owner, lost);
  }
  if (error == 0 && !attributes.empty()) {
    const WorkingFolder here(folder);
    bool* const extended = lost == nullptr ? nullptr : &lost->extended;
    error =
        here.error() != 0 ? here.error() : attributes.give(AttributeItem::named(name), extended);
  }
  if (error == 0 && !S_ISLNK(source.st_mode) && needsPermissions(source, attributes, given)) {
    error = setModeOfNamed(folder, name, permissionsFor(source, lost));
    error = tolerate(error, &LostAttributes::permissions, lost);
  }
  if (error == 0) {
    error = errorOf(
        [&] { return ::utimensat(folder, name, timesOf(source).data(), AT_SYMLINK_NOFOLLOW); });
  }
  struct stat made = {};
  if (error == 0 && lost != nullptr && ::fstatat(folder, name, &made, AT_SYMLINK_NOFOLLOW) == 0) {
    compare(made, source, *lost);
  }
  return error;
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/item_copier.h"

#include <dirent.h>
#include <linux/limits.h>
#include <stdio.h>
#include <unistd.h>

#include <array>

#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/tree/remove_tree.h"

namespace halyard::host {

namespace {

constexpr mode_t kPrivateMode = 0600;

bool sameTime(const struct timespec& left, const struct timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool hasOtherNames(const struct stat& status) { return status.st_nlink > 1; }

/// Whether a link that cannot be made leaves a fresh copy as the other way.
bool isLinkRefusal(int error) {
  return error == ENOENT || error == EMLINK || error == EPERM || isUnsupported(error);
}

int statusOf(int folder, const char* name, struct stat& status) {
  return errorOf([&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); });
}

GivenAttributes givenBy(const struct stat& status) {
  return {status.st_uid, status.st_gid, status.st_mode & kPermissionBits};
}

int makeLink(const FolderPair& folders, const char* fromName, const char* name) {
  std::array<char, PATH_MAX + 1> text{};
  const auto length = uninterrupted(
      [&] { return ::readlinkat(folders.source, fromName, text.data(), text.size() - 1); });
  if (length < 0) return errno;
  return errorOf([&] { return ::symlinkat(text.data(), folders.target, name); });
}

}  // namespace

/// Makes the item under the name, or, where another may be replaced, under a temporary name and
/// renames it: the old item stands until the new one is complete.
template <typename Make>
int ItemCopier::place(FolderPair& folders, const char* name, Make make) {
  int error = make(name);
  folders.changed = true;
  if (error != EEXIST || !folders.replaces) return error;

  std::string temporary;
  for (int attempt = 0; error == EEXIST && attempt < kTemporaryNameAttempts; ++attempt) {
    temporary = temporaryName();
    error = make(temporary.c_str());
  }
  if (error != 0) return error;
  const auto rename = [&] {
    return errorOf(
        [&] { return ::renameat(folders.target, temporary.c_str(), folders.target, name); });
  };
  error = rename();
  if (error == EISDIR) {
    error = removeTreeAt(folders.target, name).error().code;
    if (error == 0) error = rename();
  }
  // Two names of one item are not renamed over each other: the temporary one would stay.
  (void)errorOf([&] { return ::unlinkat(folders.target, temporary.c_str(), 0); });
  return error;
}

int ItemCopier::copy(FolderPair& folders, const char* fromName, const char* toName,
                     unsigned char type) {
  if (type == DT_DIR) return EISDIR;
  if (folders.memory == nullptr) return copyAfresh(folders, fromName, toName, type);

  struct stat status = {};
  int error = statusOf(folders.source, fromName, status);
  if (error != 0) return error;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  error = ENOENT;
  if (folders.memory->isUnchanged(fromName, status)) {
    error = keep(folders, fromName, toName, status);
  }
  if (isLinkRefusal(error)) error = copyAfresh(folders, fromName, toName, type);
  if (error == 0) folders.memory->took(fromName, status);
  return error;
}

/// Takes an item that is known to be the same from the earlier copy. ENOENT when it has to be
/// copied after all.
int ItemCopier::keep(FolderPair& folders, const char* fromName, const char* toName,
                     const struct stat& status) {
  int error = ENOENT;
  if (hasOtherNames(status)) {
    error = place(folders, toName,
                  [&](const char* name) { return hardLinks_.link(status, folders.target, name); });
    if (!isLinkRefusal(error)) return error;
  }
  if (folders.updates) {
    error = 0;
  } else if (folders.reference >= 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))) {
    error = place(folders, toName, [&](const char* name) {
      return errorOf(
          [&] { return ::linkat(folders.reference, fromName, folders.target, name, 0); });
    });
  }
  if (error == 0 && S_ISREG(status.st_mode)) countShared(status);
  if (error == 0 && hasOtherNames(status)) hardLinks_.remember(status, toName);
  return error;
}

int ItemCopier::copyAfresh(FolderPair& folders, const char* fromName, const char* toName,
                           unsigned char type) {
  // The entry may be out of date, so a file that turns out to be something else is looked at again.
  if (type == DT_REG) {
    const int error = copyFile(folders, fromName, toName);
    if (error != ELOOP) return error;
  }
  return copyOther(folders, fromName, toName);
}

int ItemCopier::copyFile(FolderPair& folders, const char* fromName, const char* toName) {
  const Descriptor from(opener_.open(folders.source, fromName,
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!from) return errno == ENXIO ? ELOOP : errno;
  struct stat status = {};
  if (const int error = errorOf([&] { return ::fstat(from.get(), &status); })) return error;
  if (!S_ISREG(status.st_mode)) return ELOOP;

  int error = ENOENT;
  if (hasOtherNames(status)) {
    error = place(folders, toName,
                  [&](const char* name) { return hardLinks_.link(status, folders.target, name); });
    if (error == 0) return 0;
    if (!isLinkRefusal(error)) return error;
  }
  error = attributes_.read(AttributeItem::opened(from.get()));
  if (error != 0) return error;
  // A copy with more names than one may be another item's as well: that one is made anew.
  struct stat there = {};
  if (folders.updates && !hasOtherNames(status) && statusOf(folders.target, toName, there) == 0 &&
      !hasOtherNames(there) && isSame(folders.target, toName, status, there)) {
    countShared(status);
    return 0;
  }
  error = linkToReference(folders, fromName, toName, status);
  if (isLinkRefusal(error)) {
    error = place(folders, toName,
                  [&](const char* name) { return makeFile(folders, from.get(), name, status); });
    if (error == 0) {
      ++report_.copied;
      report_.copiedBytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  if (error == 0 && hasOtherNames(status)) hardLinks_.remember(status, toName);
  return error;
}

int ItemCopier::makeFile(FolderPair& folders, int from, const char* name,
                         const struct stat& status) {
  // Closed to others until it is whole and has its owner and lists: nobody reads or runs a part.
  const Descriptor to(uninterrupted([&] {
    return ::openat(folders.target, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    kPrivateMode);
  }));
  if (!to) return errno;
  const int error = fillFile(folders, from, to.get(), status);
  if (error != 0) (void)errorOf([&] { return ::unlinkat(folders.target, name, 0); });
  return error;
}

int ItemCopier::fillFile(FolderPair& folders, int from, int to, const struct stat& status) {
  int error = 0;
  if (!folders.firstMade) {
    struct stat made = {};
    error = errorOf([&] { return ::fstat(to, &made); });
    if (error != 0) return error;
    folders.firstMade = made;
  }
  error = data_.copy(from, to, status, folders.firstMade->st_dev);
  if (error == 0 && folders.handsDown) error = removeInheritedLists(to);
  GivenAttributes given = givenBy(*folders.firstMade);
  given.permissions = kPrivateMode;
  if (error == 0) error = giveAttributes(to, status, attributes_, given);
  return error;
}

int ItemCopier::copyOther(FolderPair& folders, const char* fromName, const char* toName) {
  struct stat status = {};
  if (const int error = statusOf(folders.source, fromName, status)) return error;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (S_ISREG(status.st_mode)) return copyFile(folders, fromName, toName);
  if (hasOtherNames(status)) {
    const int error = place(folders, toName, [&](const char* name) {
      return hardLinks_.link(status, folders.target, name);
    });
    if (!isLinkRefusal(error)) return error;
  }
  const WorkingFolder here(folders.source);
  int error = here.error();
  if (error == 0) error = attributes_.read(AttributeItem::named(fromName));
  if (error == 0) {
    error = place(folders, toName,
                  [&](const char* name) { return makeOther(folders, fromName, name, status); });
  }
  if (error == 0 && hasOtherNames(status)) hardLinks_.remember(status, toName);
  return error;
}

int ItemCopier::makeOther(FolderPair& folders, const char* fromName, const char* name,
                          const struct stat& status) {
  const mode_t mode = status.st_mode & (S_IFMT | 0777U);
  int error = S_ISLNK(status.st_mode)
                  ? makeLink(folders, fromName, name)
                  : errorOf([&] { return ::mknodat(folders.target, name, mode, status.st_rdev); });
  if (error != 0) return error;
  struct stat made = {};
  error = statusOf(folders.target, name, made);
  if (error == 0) {
    error = giveAttributesByName(folders.target, name, status, attributes_, givenBy(made));
  }
  if (error != 0) (void)errorOf([&] { return ::unlinkat(folders.target, name, 0); });
  return error;
}

/// Whether a regular file, whose status is `earlier`, is a copy of the one at hand as far as its
/// attributes tell.
bool ItemCopier::isSame(int folder, const char* name, const struct stat& status,
                        const struct stat& earlier) {
  if (earlier.st_mode != status.st_mode || earlier.st_size != status.st_size ||
      earlier.st_uid != status.st_uid || earlier.st_gid != status.st_gid ||
      !sameTime(earlier.st_mtim, status.st_mtim)) {
    return false;
  }
  const Descriptor file(
      opener_.open(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return file && referenceAttributes_.read(AttributeItem::opened(file.get())) == 0 &&
         referenceAttributes_.isSameEverywhere(attributes_);
}

void ItemCopier::countShared(const struct stat& status) {
  ++report_.linked;
  report_.linkedBytes += static_cast<std::uint64_t>(status.st_size);
}

/// ENOENT when there is no earlier copy that is the same.
int ItemCopier::linkToReference(FolderPair& folders, const char* fromName, const char* toName,
                                const struct stat& status) {
  struct stat earlier = {};
  if (folders.reference < 0 || statusOf(folders.reference, fromName, earlier) != 0 ||
      !isSame(folders.reference, fromName, status, earlier)) {
    return ENOENT;
  }
  // Names of one item in the reference may be names of two items by now, which stay apart.
  if (earlier.st_nlink > 1 && !linkedInodes_.insert(earlier.st_ino)) return ENOENT;
  const int error = place(folders, toName, [&](const char* name) {
    return errorOf([&] { return ::linkat(folders.reference, fromName, folders.target, name, 0); });
  });
  if (error == 0) countShared(status);
  return error;
}

}  // namespace halyard::host

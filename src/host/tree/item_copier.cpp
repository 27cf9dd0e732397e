// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/item_copier.h"

#include <dirent.h>
#include <linux/limits.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <utility>

#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/tree/change_time.h"
#include "host/tree/replace_item.h"

namespace halyard::host {

namespace {

constexpr mode_t kPrivateMode = 0600;
constexpr int kReadings = 3;
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
// Of a smaller file that changed, finding the blocks that did not costs more than they do.
constexpr off_t kWorthSharingBlocks = off_t{1} << 20;

bool hasOtherNames(const struct stat& status) { return status.st_nlink > 1; }

/// Whether a link that cannot be made leaves a fresh copy as the other way.
bool isLinkRefusal(int error) {
  return error == ENOENT || error == EMLINK || error == EPERM || isUnsupported(error);
}

int statusOf(int folder, const char* name, struct stat& status) {
  return errorOf([&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); });
}

/// Whether a change from now on shows. What bears a time to come is believed when it keeps it.
bool isSettled(const struct stat& status) {
  const struct timespec now = timeOfChanges();
  return isBefore(status, now) || std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec) >
                                      std::pair(now.tv_sec, now.tv_nsec);
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

/// Makes the item under the name, or, where another stands or others look, under a temporary name
/// and renames it: the old item stands until the new one is complete.
template <typename Make>
int ItemCopier::place(FolderPair& folders, const char* name, Make make) {
  int error = folders.isLive ? EEXIST : make(name);
  folders.changed = true;
  if (error != EEXIST || !folders.replaces) return error;

  std::string temporary;
  for (int attempt = 0; error == EEXIST && attempt < kTemporaryNameAttempts; ++attempt) {
    temporary = temporaryName();
    error = make(temporary.c_str());
  }
  if (error != 0) return error;
  const Locks locks = options_.flagged ? Locks::opened : Locks::respected;
  return options_.update ? replaceItem(folders.target, temporary, name, locks)
                         : publishItem(folders.target, temporary, name, locks);
}

int ItemCopier::copy(FolderPair& folders, const char* fromName, const char* toName,
                     unsigned char type) {
  if (type == DT_DIR) return EISDIR;
  if (memory_ == nullptr) return copyAfresh(folders, fromName, toName, type);

  struct stat status = {};
  if (folders.seen != nullptr) {
    status = folders.seen->status;
  } else if (const int error = statusOf(folders.source, fromName, status)) {
    return error;
  }
  if (S_ISDIR(status.st_mode)) return EISDIR;
  int error = ENOENT;
  if (memory_->isUnchanged(fromName, status)) {
    error = keep(folders, fromName, toName, status);
    if (error == 0 && memory_->wantsFlags()) {
      const Descriptor from(opener_.open(folders.source, fromName, kFileFlags));
      if (from) noteFlags(from.get());
    }
  }
  if (isLinkRefusal(error) && std::exchange(folders.seen, nullptr) != nullptr) {
    return copy(folders, fromName, toName, type);  // As it is now.
  }
  isTorn_ = false;
  if (isLinkRefusal(error)) error = copyAfresh(folders, fromName, toName, type);
  if (error == 0 && isTorn_) {
    memory_->tookTorn(fromName, status);
  } else if (error == 0) {
    memory_->took(fromName, status);
  }
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
  // Whoever can write to the earlier copy may have put something else there.
  if (folders.updates) {
    const auto kind = folders.there.find(toName);
    const bool isAsked = kind && *kind == DT_UNKNOWN;
    const bool stays =
        isAsked ? isAlike(folders.target, toName, status) : kind == IFTODT(status.st_mode);
    error = stays ? 0 : ENOENT;
  } else if (folders.reference >= 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) &&
             (folders.seen != nullptr ? folders.seen->isAlike
                                      : isAlike(folders.reference, fromName, status))) {
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
  const Descriptor from(opener_.open(folders.source, fromName, kFileFlags));
  if (!from) return errno == ENXIO ? ELOOP : errno;
  struct stat status = {};
  if (const int error = errorOf([&] { return ::fstat(from.get(), &status); })) return error;
  if (!S_ISREG(status.st_mode)) return ELOOP;
  if (hasOtherNames(status)) {
    noteFlags(from.get());
    // What was copied under another name was read then, and is not read once more.
    const int error = place(folders, toName, [&](const char* name) {
      return hardLinks_.link(status, folders.target, name);
    });
    if (!isLinkRefusal(error)) return error;
  }
  if (memory_ == nullptr) return copyOpened(folders, from.get(), fromName, toName, status);
  return copyUntorn(folders, from.get(), fromName, toName, status);
}

/// What cannot be read stays unknown.
void ItemCopier::noteFlags(int from) {
  InodeFlags flags = 0;
  if (memory_ != nullptr && memory_->wantsFlags() && readInodeFlags(from, flags) == 0) {
    memory_->sawFlags(flags);
  }
}

/// Waits until a change that follows has another change time than the last one.
int ItemCopier::letSettle(int from, struct stat& status) {
  // What is written through a mapping shows when a page is touched that is as the disk has it.
  if (!isBefore(status, began_)) (void)::fdatasync(from);
  if (isSettled(status)) return 0;
  const struct timespec pause = tickOf(status);
  (void)::nanosleep(&pause, nullptr);
  return errorOf([&] { return ::fstat(from, &status); });
}

/// Copies a file again while it changes under the reading, a few times.
int ItemCopier::copyUntorn(FolderPair& folders, int from, const char* fromName, const char* toName,
                           struct stat status) {
  for (int reading = 1;; ++reading) {
    if (const int error = letSettle(from, status)) return error;
    const bool isSeen = isSettled(status);  // Each change from here on.
    noteFlags(from);
    const TreeCopyReport before = report_;
    if (const int error = copyOpened(folders, from, fromName, toName, status)) return error;
    struct stat after = {};
    if (const int error = errorOf([&] { return ::fstat(from, &after); })) return error;
    isTorn_ = !isSeen || !sameTime(status.st_ctim, after.st_ctim);
    if (!isTorn_ || reading == kReadings) return 0;
    status = after;
    report_ = before;
    // Neither another name nor an earlier file may be taken for it. A live one is replaced.
    const auto remove = [&] { return ::unlinkat(folders.target, toName, 0); };
    const int error = folders.isLive ? 0 : errorOf(remove);
    if (error != 0 || ::lseek(from, 0, SEEK_SET) != 0) return error != 0 ? error : errno;
  }
}

int ItemCopier::copyOpened(FolderPair& folders, int from, const char* fromName, const char* toName,
                           const struct stat& status) {
  int error = attributes_.read(AttributeItem::opened(from));
  if (error != 0) return error;
  flagsOfContents_ = memory_ == nullptr ? 0 : memory_->flagsOfContents(fromName);
  EarlierFile base;
  error = shareEarlier(folders, from, fromName, toName, status, base);
  if (isLinkRefusal(error)) {
    error = place(folders, toName,
                  [&](const char* name) { return makeFile(folders, from, name, status, base); });
    if (error == 0) {
      ++report_.copied;
      report_.copiedBytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  if (error == 0 && hasOtherNames(status)) hardLinks_.remember(status, toName);
  return error;
}

/// Takes the file from an earlier copy. ENOENT when none is the same; `base` then is the one whose
/// blocks may serve.
int ItemCopier::shareEarlier(FolderPair& folders, int from, const char* fromName,
                             const char* toName, const struct stat& status, EarlierFile& base) {
  const auto known =
      memory_ == nullptr ? TreeMemory::Earlier{} : memory_->earlier(fromName, status);
  digest_.reset();
  const auto attempt = [&](EarlierFile earlier) {
    if (!earlier || !isSame(from, status, earlier)) {
      if (earlier && !base) base = std::move(earlier);
      return ENOENT;
    }
    const int error = share(folders, earlier, toName, status);
    if (isLinkRefusal(error)) {
      base = std::move(earlier);
      base.isProven = true;
    }
    return error;
  };
  int error = ENOENT;
  if (folders.updates && !hasOtherNames(status)) {
    EarlierFile there = openEarlier(opener_, folders.target, toName, known);
    // A copy with more names than one may be another item's as well: that one is made anew.
    there.isInPlace = there && !hasOtherNames(there.status);
    if (there.isInPlace) error = attempt(std::move(there));
  }
  if (isLinkRefusal(error)) {
    error = attempt(openEarlier(opener_, folders.reference, fromName, known));
  }
  if (isLinkRefusal(error) && !base.isProven && memory_ != nullptr && folders.earlierRoot >= 0) {
    if (const auto moved = memory_->movedFrom(status)) {
      error = attempt(openMoved(opener_, folders.earlierRoot, *moved));
    }
  }
  return error;
}

int ItemCopier::share(FolderPair& folders, const EarlierFile& earlier, const char* toName,
                      const struct stat& status) {
  int error = 0;
  if (!earlier.isInPlace) {
    // Two items stay apart: names of one item in the reference may be theirs by now, and one of
    // them may have moved away while the other took its place.
    if (!linkedInodes_.insert(earlier.status.st_ino)) return ENOENT;
    error = place(folders, toName, [&](const char* name) {
      return errorOf(
          [&] { return ::linkat(earlier.folder, earlier.name.c_str(), folders.target, name, 0); });
    });
  }
  if (error == 0) countShared(status);
  return error;
}

int ItemCopier::makeFile(FolderPair& folders, int from, const char* name, const struct stat& status,
                         const EarlierFile& base) {
  // Closed to others until it is whole and has its owner and lists: nobody reads or runs a part.
  const Descriptor to(uninterrupted([&] {
    return ::openat(folders.target, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    kPrivateMode);
  }));
  if (!to) return errno;
  const int error = fillFile(folders, from, to.get(), status, base);
  if (error != 0) (void)errorOf([&] { return ::unlinkat(folders.target, name, 0); });
  return error;
}

int ItemCopier::fillFile(FolderPair& folders, int from, int to, const struct stat& status,
                         const EarlierFile& base) {
  if (!folders.firstMade) {
    struct stat made = {};
    if (const int error = errorOf([&] { return ::fstat(to, &made); })) return error;
    folders.firstMade = made;
  }
  InodeFlags lacking = 0;  // It is told when the file is given all its flags.
  if (folders.handsDownFlags || flagsOfContents_ != 0) {
    (void)setInodeFlags(to, flagsOfContents_, lacking);
  }
  int error = copyData(folders, from, to, status, base);
  if (error == 0 && folders.handsDown) error = removeInheritedLists(to);
  GivenAttributes given = givenBy(*folders.firstMade);
  given.permissions = kPrivateMode;
  struct stat wanted = status;
  if (options_.adapt) options_.adapt(wanted, attributes_);
  if (error == 0) error = giveAttributes(to, wanted, attributes_, given, losses());
  return error;
}

int ItemCopier::copyData(FolderPair& folders, int from, int to, const struct stat& status,
                         const EarlierFile& base) {
  const bool mayShareBlocks = base && (base.isProven || status.st_size >= kWorthSharingBlocks);
  if (mayShareBlocks) {
    const int error = data_.copyChanges(from, to, base.file.get(), status);
    if (error != EOPNOTSUPP) return error;
  }
  return data_.copy(from, to, status, folders.firstMade->st_dev);
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
  if (folders.handsDown && !S_ISLNK(status.st_mode)) {
    error = removeInheritedList(folders.target, name);
  }
  struct stat made = {};
  if (error == 0) error = statusOf(folders.target, name, made);
  struct stat wanted = status;
  if (options_.adapt) options_.adapt(wanted, attributes_);
  if (error == 0) {
    error =
        giveAttributesByName(folders.target, name, wanted, attributes_, givenBy(made), losses());
  }
  if (error != 0) (void)errorOf([&] { return ::unlinkat(folders.target, name, 0); });
  return error;
}

/// Whether an earlier file is a copy of the one at hand.
bool ItemCopier::isSame(int from, const struct stat& status, const EarlierFile& earlier) {
  return earlier.status.st_mode == status.st_mode && earlier.status.st_size == status.st_size &&
         earlier.status.st_uid == status.st_uid && earlier.status.st_gid == status.st_gid &&
         sameTime(earlier.status.st_mtim, status.st_mtim) &&
         earlierAttributes_.read(AttributeItem::opened(earlier.file.get())) == 0 &&
         earlierAttributes_.isSameEverywhere(attributes_) && hasSameContents(from, status, earlier);
}

/// Neither size nor time prove anything: both can be kept, or set back.
bool ItemCopier::hasSameContents(int from, const struct stat& status, const EarlierFile& earlier) {
  if (earlier.isProven) return true;
  if (earlier.known.digest == nullptr) {
    return data_.compare(from, earlier.file.get(), status) == 0;
  }
  if (!digest_) {
    if (data_.read(from, status) != 0) return false;  // The copy meets the error again.
    digest_ = memory_->digest();
  }
  return *digest_ == *earlier.known.digest;
}

void ItemCopier::countShared(const struct stat& status) {
  ++report_.linked;
  report_.linkedBytes += static_cast<std::uint64_t>(status.st_size);
}

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/tree_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "host/files/identity.h"
#include "host/files/rename_item.h"
#include "host/files/system_call.h"
#include "host/files/temporary_name.h"
#include "host/tree/extended_attributes.h"
#include "host/tree/remove_tree.h"
#include "host/tree/tree_copier.h"

namespace halyard::host {

namespace {

/// The copy's name in its temporary folder.
constexpr const char* kStagedName = "item";

int statusOf(const Location& item, struct stat& status) {
  return errorOf([&] {
    return ::fstatat(item.folder.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  });
}

bool stands(const Location& item) {
  struct stat status = {};
  return statusOf(item, status) == 0;
}

/// Whether the folder is `inner` or one of the folders above it. True too when that cannot be told.
bool isOrHolds(const Identity& folder, const Descriptor& inner) {
  Identity current;
  Identity above;
  if (identify(inner.get(), current) != 0) return true;
  Descriptor step;
  for (int at = inner.get(); !current.sameItem(folder); current = above) {
    Descriptor parent(
        uninterrupted([&] { return ::openat(at, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!parent || identify(parent.get(), above) != 0) return true;
    if (above.sameItem(current) && above.sameMount(current)) return false;  // The root folder.
    step = std::move(parent);
    at = step.get();
  }
  return true;
}

/// Whether the destination is the source, or stands somewhere in it.
bool isInside(const Location& source, const Location& destination) {
  const Descriptor item(uninterrupted([&] {
    return ::openat(source.folder.get(), source.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
  }));
  Identity identity;
  struct stat status = {};
  if (!item || identify(item.get(), identity) != 0 || statusOf(source, status) != 0) return true;
  if (S_ISDIR(status.st_mode)) {
    const Descriptor there(uninterrupted([&] {
      return ::openat(destination.folder.get(), destination.name.c_str(),
                      O_PATH | O_NOFOLLOW | O_CLOEXEC);
    }));
    Identity destinationItself;
    const bool isThere = there && identify(there.get(), destinationItself) == 0;
    return (isThere && destinationItself.sameItem(identity)) ||
           isOrHolds(identity, destination.folder);
  }
  // Another name of the same file is another item, the same name in the same folder is not.
  Identity left;
  Identity right;
  if (identify(source.folder.get(), left) != 0) return true;
  if (identify(destination.folder.get(), right) != 0) return true;
  return left.sameItem(right) && source.name == destination.name;
}

TreeCopyReport notBegun(const Error& error) {
  TreeCopyReport report;
  report.ended = true;
  report.error = error.code;
  return report;
}

}  // namespace

std::optional<StagedCopy> StagedCopy::stage(const std::string& source,
                                            const std::string& destination) {
  const Result<Location> from = locate(source);
  Result<Location> place = locate(destination);
  if (!from || !place || isInside(*from, *place)) return std::nullopt;
  StagedCopy copy;
  copy.place_ = std::move(*place);
  if (!copy.makeFolder()) return std::nullopt;
  const std::size_t nameStart = destination.find_last_not_of('/') + 1 - copy.place_.name.size();
  copy.destination_ = destination;
  copy.path_ = destination.substr(0, nameStart) + copy.temporary_ + "/" + kStagedName;

  Location to;
  to.folder =
      Descriptor(uninterrupted([&] { return ::openat(copy.folder_.get(), ".", kFolderFlags); }));
  to.name = kStagedName;
  if (!to.folder || !TreeCopier({}, SelfCopy::refused).copy(*from, to).complete)
    return std::nullopt;
  return copy;
}

/// A folder of our own: nobody else reaches what is not finished, and nothing is inherited from the
/// folder that the copy is to stand in.
bool StagedCopy::makeFolder() {
  const int parent = place_.folder.get();
  int error = EEXIST;
  for (int attempt = 0; error == EEXIST && attempt < kTemporaryNameAttempts; ++attempt) {
    temporary_ = temporaryName();
    error = errorOf([&] { return ::mkdirat(parent, temporary_.c_str(), 0700); });
  }
  if (error != 0) return false;
  folder_ =
      Descriptor(uninterrupted([&] { return ::openat(parent, temporary_.c_str(), kFolderFlags); }));
  struct stat status = {};
  const bool isOurs = folder_ && errorOf([&] { return ::fstat(folder_.get(), &status); }) == 0 &&
                      status.st_uid == ::geteuid();
  if (isOurs && removeInheritedLists(folder_.get()) == 0 &&
      errorOf([&] { return ::fchmod(folder_.get(), 0700); }) == 0) {
    return true;
  }
  (void)errorOf([&] { return ::unlinkat(parent, temporary_.c_str(), AT_REMOVEDIR); });
  folder_.reset();
  return false;
}

StagedCopy& StagedCopy::operator=(StagedCopy&& other) noexcept {
  if (this != &other) {
    discard();
    path_ = std::move(other.path_);
    destination_ = std::move(other.destination_);
    place_ = std::move(other.place_);
    temporary_ = std::move(other.temporary_);
    folder_ = std::move(other.folder_);
  }
  return *this;
}

StagedCopy::~StagedCopy() { discard(); }

void StagedCopy::discard() {
  if (!folder_) return;
  const auto removeFolder = [&] {
    // What others put there, if anybody could, stays: only what was made here is removed.
    (void)removeTreeAt(folder_.get(), kStagedName);
    return errorOf(
        [&] { return ::unlinkat(place_.folder.get(), temporary_.c_str(), AT_REMOVEDIR); });
  };
  // A second try, since nobody will ever look for a folder of this name.
  if (removeFolder() != 0) (void)removeFolder();
  folder_.reset();
}

bool StagedCopy::publish() {
  if (!folder_ ||
      renameWithoutReplacing(folder_.get(), kStagedName, place_.folder.get(), place_.name) != 0) {
    return false;
  }
  path_ = destination_;
  discard();
  return true;
}

bool copyItem(const std::string& source, const std::string& destination) {
  const Result<Location> place = locate(destination);
  if (!place || stands(*place)) return false;
  auto copy = StagedCopy::stage(source, destination);
  return copy && copy->publish();
}

TreeCopyCounts& TreeCopyCounts::operator+=(const TreeCopyCounts& other) {
  items += other.items;
  copied += other.copied;
  copiedBytes += other.copiedBytes;
  linked += other.linked;
  linkedBytes += other.linkedBytes;
  return *this;
}

TreeCopyReport copyTree(const std::string& source, const std::string& destination,
                        const TreeCopyOptions& options) {
  const Result<Location> from = locate(source);
  if (from) return copyTree(*from, destination, options);
  return notBegun(from.error());
}

TreeCopyReport copyTree(const std::string& source, const Location& destination,
                        const TreeCopyOptions& options) {
  const Result<Location> from = locate(source);
  if (from) return TreeCopier(options, SelfCopy::leftOut).copy(*from, destination);
  return notBegun(from.error());
}

TreeCopyReport copyTree(const Location& source, const std::string& destination,
                        const TreeCopyOptions& options) {
  const Result<Location> to = locate(destination);
  if (to) return TreeCopier(options, SelfCopy::leftOut).copy(source, *to);
  return notBegun(to.error());
}

}  // namespace halyard::host

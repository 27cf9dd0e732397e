// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/hard_links.h"

#include <unistd.h>

#include <utility>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr int kPassFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

int HardLinks::begin(int targetRoot) {
  root_ = Descriptor(uninterrupted([&] { return ::openat(targetRoot, ".", kPassFlags); }));
  return root_ ? 0 : errno;
}

void HardLinks::enter(const std::string& name) { path_.push_back({name, kUnnumbered}); }

void HardLinks::leave() { path_.pop_back(); }

void HardLinks::rename(const std::string& name) {
  Step& step = path_.back();
  step.name = name;
  if (step.number != kUnnumbered) folders_[step.number].name = keepName(name);
}

std::size_t HardLinks::keepName(const std::string& name) {
  const std::size_t start = names_.size();
  names_.append(name).push_back('\0');
  return start;
}

HardLinks::FolderNumber HardLinks::currentNumber() {
  FolderNumber parent = kRoot;
  for (Step& step : path_) {
    if (step.number == kUnnumbered) {
      step.number = static_cast<FolderNumber>(folders_.size());
      folders_.push_back({parent, keepName(step.name)});
    }
    parent = step.number;
  }
  return parent;
}

/// Step by step, since the path may be longer than a call takes and must not pass a link.
int HardLinks::openFolder(FolderNumber number) {
  if (opened_ && openedNumber_ == number) return 0;
  std::vector<const char*> names;
  for (FolderNumber at = number; at != kRoot; at = folders_[at].parent) {
    names.push_back(names_.c_str() + folders_[at].name);
  }
  Descriptor folder(uninterrupted([&] { return ::openat(root_.get(), ".", kPassFlags); }));
  for (auto name = names.rbegin(); folder && name != names.rend(); ++name) {
    folder = Descriptor(uninterrupted([&] { return ::openat(folder.get(), *name, kPassFlags); }));
  }
  if (!folder) return errno;
  opened_ = std::move(folder);
  openedNumber_ = number;
  return 0;
}

int HardLinks::link(const struct stat& source, int targetFolder, const char* name) {
  const auto found = places_.find({source.st_dev, source.st_ino});
  if (found == places_.end()) return ENOENT;
  Place& place = found->second;
  int folder = targetFolder;
  if (place.folder != (path_.empty() ? kRoot : path_.back().number)) {
    if (const int error = openFolder(place.folder)) return error;
    folder = opened_.get();
  }
  const int error =
      errorOf([&] { return ::linkat(folder, names_.c_str() + place.name, targetFolder, name, 0); });
  if (error == 0 && --place.namesToCome == 0) places_.erase(found);
  return error;
}

void HardLinks::remember(const struct stat& source, const char* name) {
  if (!root_) return;  // A single item has no other names in its tree.
  const auto namesToCome = static_cast<std::uint32_t>(source.st_nlink - 1);
  places_.insert_or_assign(Key{source.st_dev, source.st_ino},
                           Place{keepName(name), currentNumber(), namesToCome});
}

}  // namespace halyard::host

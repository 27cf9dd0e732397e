// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/folder_entries.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} << 10;

bool isSelfOrParent(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

FolderReader::FolderReader() : buffer_(new char[kBufferBytes]) {}

int FolderReader::next(int folder, std::vector<FolderEntry>& entries) {
  entries.clear();
  // A batch may hold nothing but "." and "..", so an empty list alone does not end the folder.
  while (entries.empty()) {
    const auto filled =
        uninterrupted([&] { return ::getdents64(folder, buffer_.get(), kBufferBytes); });
    if (filled < 0) return errno;
    if (filled == 0) return 0;
    for (std::size_t at = 0; at < static_cast<std::size_t>(filled);) {
      const char* record = buffer_.get() + at;
      const auto* entry = reinterpret_cast<const struct dirent64*>(record);
      at += entry->d_reclen;
      if (isSelfOrParent(entry->d_name)) continue;
      entries.push_back({entry->d_ino, entry->d_name, entry->d_type});
    }
  }
  std::ranges::sort(entries, {}, &FolderEntry::inode);
  return 0;
}

int FolderKinds::read(FolderReader& reader, int folder) {
  names_.clear();
  entries_.clear();
  next_ = 0;
  isSorted_ = false;
  std::vector<FolderEntry> batch;
  do {
    if (const int error = reader.next(folder, batch)) return error;
    for (const FolderEntry& entry : batch) {
      entries_.push_back({names_.size(), entry.type});
      names_.append(entry.name).push_back('\0');
    }
  } while (!batch.empty());
  return ::lseek(folder, 0, SEEK_SET) == 0 ? 0 : errno;
}

/// A copy lists its items mostly in the order in which they are asked for.
std::optional<unsigned char> FolderKinds::find(std::string_view name) {
  if (next_ < entries_.size() && nameOf(entries_[next_]) == name) return entries_[next_++].kind;
  const auto byName = [this](const Entry& entry) { return nameOf(entry); };
  if (!isSorted_) std::ranges::sort(entries_, {}, byName);
  isSorted_ = true;
  const auto found = std::ranges::lower_bound(entries_, name, {}, byName);
  if (found == entries_.end() || nameOf(*found) != name) return std::nullopt;
  return found->kind;
}

void NameQueue::add(const char* name) { names_.append(name).push_back('\0'); }

std::string NameQueue::take() {
  std::string name = names_.c_str() + next_;
  next_ += name.size() + 1;
  if (empty()) {
    names_ = std::string();  // A wide folder's names are many.
    next_ = 0;
  }
  return name;
}

}  // namespace halyard::host

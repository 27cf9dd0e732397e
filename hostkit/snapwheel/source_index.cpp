// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/source_index.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "host/files/descriptor.h"
#include "snapwheel/index_flags.h"

namespace halyard::snapwheel {

namespace {

constexpr char kMagic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '4'};
// With other digests of files that hold long runs of zeros.
constexpr char kAllZerosMagic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '3'};
// Without flags, too, which stand where those have zeros.
constexpr char kFlaglessMagic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '2'};
constexpr char kFormerMagic[8] = {'S', 'W', 'I', 'N', 'D', 'E', 'X', '1'};  // Without digests.
constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::size_t kAlignment = 8;
constexpr std::size_t kMostCompressed = 16;

struct Header {
  char magic[8];
  std::uint64_t length;  ///< Of the whole file.
  std::uint64_t root;    ///< Where the root's block stands.
  std::uint32_t identityLength;
  std::uint16_t rootFlags;
  std::uint16_t unused;
  host::ContentDigest digest;  ///< Of all that follows.
};

struct BlockHeader {
  std::uint32_t count;
  std::uint32_t nameBytes;
};

bool isMagic(const char* bytes, const char (&magic)[8]) {
  return std::memcmp(bytes, magic, sizeof magic) == 0;
}

/// The half of a former word that now is the mode comes first.
bool hasKnownMagic(const char* bytes) {
  return isMagic(bytes, kMagic) || isMagic(bytes, kAllZerosMagic) ||
         (std::endian::native == std::endian::little && isMagic(bytes, kFlaglessMagic));
}

std::size_t aligned(std::size_t length) {
  return (length + kAlignment - 1) / kAlignment * kAlignment;
}

/// Whether all that follows the header can be read and has this digest. By reading: what the disk
/// cannot give back would end the program when it is met in a mapping.
bool isSound(int file, std::size_t length, const host::ContentDigest& digest) {
  Digester digester;
  std::array<char, std::size_t{64} << 10> piece{};
  for (std::size_t at = sizeof(Header); at < length;) {
    const std::size_t wanted = std::min(piece.size(), length - at);
    const ssize_t got = ::pread(file, piece.data(), wanted, static_cast<off_t>(at));
    if (got <= 0) return false;
    digester.add(piece.data(), static_cast<std::size_t>(got));
    at += static_cast<std::size_t>(got);
  }
  return digester.digest() == digest;
}

bool isItemName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

}  // namespace

bool keepsChangeTimes(const std::string& path) {
  constexpr std::uint32_t kZfs = 0x2fc12fc1;
  constexpr std::uint32_t kBcachefs = 0xca451a4e;
  struct statfs status {};
  if (::statfs(path.c_str(), &status) != 0) return false;
  switch (static_cast<std::uint32_t>(status.f_type)) {
    case EXT4_SUPER_MAGIC:  // Of ext2 and ext3 as well.
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case kZfs:
    case kBcachefs:
      return true;
    default:  // FAT keeps the time of creation there; what a server answers is its own affair;
              // tmpfs does not see what is written through a mapping.
      return false;
  }
}

std::int64_t changeTimeOf(const struct stat& status) {
  return status.st_ctim.tv_sec * kNanoseconds + status.st_ctim.tv_nsec;
}

const IndexEntry* SourceIndex::Folder::find(std::uint64_t inode, const char* name) {
  const auto matches = [&](const IndexEntry& entry) {
    return entry.inode == inode && entry.name < names_.size() &&
           std::strcmp(names_.data() + entry.name, name) == 0;
  };
  if (next_ < count_ && matches(entries_[next_])) return &entries_[next_++];

  const IndexEntry* end = entries_ + count_;
  const IndexEntry* entry = std::lower_bound(
      entries_, end, inode,
      [](const IndexEntry& left, std::uint64_t right) { return left.inode < right; });
  for (; entry != end && entry->inode == inode; ++entry) {
    if (!matches(*entry)) continue;
    next_ = static_cast<std::uint32_t>(entry - entries_) + 1;
    return entry;
  }
  return nullptr;
}

const IndexEntry* SourceIndex::Folder::find(const char* name) {
  if (byName_.empty()) {
    byName_.resize(count_);
    std::iota(byName_.begin(), byName_.end(), 0U);
    std::ranges::sort(byName_, {}, [this](std::uint32_t at) { return nameOf(entries_[at]); });
  }
  const auto found =
      std::ranges::lower_bound(byName_, std::string_view(name), {},
                               [this](std::uint32_t at) { return nameOf(entries_[at]); });
  if (found == byName_.end() || nameOf(entries_[*found]) != name) return nullptr;
  return &entries_[*found];
}

std::string_view SourceIndex::Folder::nameOf(const IndexEntry& entry) const {
  return entry.name < names_.size() ? names_.data() + entry.name : std::string_view();
}

std::unique_ptr<SourceIndex> SourceIndex::open(const std::string& path,
                                               std::optional<std::string_view> identity) {
  const host::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  const auto length = static_cast<std::size_t>(status.st_size);
  // Digests are not to be compressed: a file of holes would only take memory.
  const bool isHollow = static_cast<std::size_t>(status.st_blocks) * 512 < length / kMostCompressed;
  Header header{};
  if (isHollow || length < sizeof header ||
      ::pread(file.get(), &header, sizeof header, 0) != ssize_t{sizeof header} ||
      !hasKnownMagic(header.magic) || header.length != length ||
      !isSound(file.get(), length, header.digest)) {
    return nullptr;
  }
  const bool isFormer = !isMagic(header.magic, kMagic);
  const int access = isFormer ? PROT_READ | PROT_WRITE : PROT_READ;
  void* bytes = ::mmap(nullptr, length, access, MAP_PRIVATE, file.get(), 0);
  if (bytes == MAP_FAILED) return nullptr;
  std::unique_ptr<SourceIndex> index(new SourceIndex(static_cast<char*>(bytes), length));
  if (!index->readHeader(identity) || !index->isTree()) return nullptr;
  if (isFormer) index->forgetOtherDigests();
  return index;
}

bool SourceIndex::isDamaged(const std::string& path) {
  const host::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file) return errno != ENOENT;
  char magic[sizeof kFormerMagic] = {};
  const bool isFormer = ::pread(file.get(), magic, sizeof magic, 0) == ssize_t{sizeof magic} &&
                        isMagic(magic, kFormerMagic);
  if (isFormer) return false;
  const auto index = open(path);
  return index == nullptr;
}

SourceIndex::~SourceIndex() { ::munmap(bytes_, length_); }

bool SourceIndex::readHeader(std::optional<std::string_view> identity) {
  Header header{};
  std::memcpy(&header, bytes_, sizeof header);
  if (header.identityLength > length_ - sizeof header) return false;
  root_ = header.root;
  hasFlags_ = !isMagic(header.magic, kFlaglessMagic);
  rootFlags_ = header.rootFlags;
  return !identity || *identity == std::string_view(bytes_ + sizeof header, header.identityLength);
}

/// Whether it tells no more than it has room for, and names only what can be in a folder. One that
/// was made to hold itself, or one block many times, would keep whoever walks through it busy for
/// ever; a name such as ".." would lead out of the snapshot, or of what is restored.
bool SourceIndex::isTree() const {
  std::size_t left = length_ / sizeof(IndexEntry);
  std::vector<Folder> open = {root()};
  while (!open.empty()) {
    const Folder folder = std::move(open.back());
    open.pop_back();
    if (folder.entries().size() > left) return false;
    left -= folder.entries().size();
    for (const IndexEntry& entry : folder.entries()) {
      if (!isItemName(folder.nameOf(entry))) return false;
      if (S_ISDIR(entry.mode)) open.push_back(below(entry));
    }
  }
  return true;
}

/// In this mapping alone: of what may hold a long run of zeros.
void SourceIndex::forgetOtherDigests() {
  std::vector<Folder> open = {root()};
  while (!open.empty()) {
    const std::span<const IndexEntry> entries = open.back().entries();
    open.pop_back();
    for (const IndexEntry& entry : entries) {
      if (S_ISDIR(entry.mode)) open.push_back(below(entry));
      if (!S_ISREG(entry.mode) || entry.size < kLongZeros) continue;
      const auto forget = [this](const auto& value, const auto& unknown) {
        const auto at = reinterpret_cast<const char*>(&value) - bytes_;
        std::memcpy(bytes_ + at, &unknown, sizeof value);
      };
      forget(entry.digest, kNoDigest);
      forget(entry.changeTime, kUntrusted);  // The next walk reads it, and knows one.
    }
  }
}

SourceIndex::Folder SourceIndex::at(std::uint64_t offset) const {
  Folder folder;
  if (offset % kAlignment != 0 || offset > length_ || length_ - offset < sizeof(BlockHeader)) {
    return folder;
  }
  BlockHeader header{};
  std::memcpy(&header, bytes_ + offset, sizeof header);
  const std::size_t room = length_ - offset - sizeof header;
  const std::size_t entryBytes = std::size_t{header.count} * sizeof(IndexEntry);
  if (entryBytes > room || header.nameBytes > room - entryBytes) return folder;
  const char* entries = bytes_ + offset + sizeof header;
  const std::string_view names(entries + entryBytes, header.nameBytes);
  if (!names.empty() && names.back() != '\0') return folder;
  folder.entries_ = reinterpret_cast<const IndexEntry*>(entries);
  folder.count_ = header.count;
  folder.names_ = names;
  return folder;
}

KnownFlags SourceIndex::flagsOf(const IndexEntry& entry) const {
  return unpacked(hasFlags_ ? entry.flags : kUnknownFlags);
}

KnownFlags SourceIndex::flagsOfRoot() const {
  return unpacked(hasFlags_ ? rootFlags_ : kUnknownFlags);
}

void SourceIndex::listFiles() const {
  folders_.push_back({0, nullptr, root()});
  for (std::uint32_t at = 0; at < folders_.size(); ++at) {
    const std::span<const IndexEntry> entries = folders_[at].contents.entries();
    for (std::uint32_t entry = 0; entry < entries.size(); ++entry) {
      if (S_ISREG(entries[entry].mode)) {
        files_.push_back({entries[entry].inode, at, entry, entries[entry].digest == kNoDigest});
      }
      if (S_ISDIR(entries[entry].mode)) {
        folders_.push_back({at, &entries[entry], below(entries[entry])});
      }
    }
  }
  std::ranges::stable_sort(
      files_, {}, [](const KnownFile& file) { return std::pair(file.inode, file.lacksDigest); });
}

const SourceIndex::KnownFile* SourceIndex::fileOf(std::uint64_t inode) const {
  std::call_once(isListed_, [this] { listFiles(); });
  const auto file = std::ranges::lower_bound(files_, inode, {}, &KnownFile::inode);
  return file == files_.end() || file->inode != inode ? nullptr : &*file;
}

std::optional<SourceIndex::Place> SourceIndex::findAnywhere(std::uint64_t inode) const {
  const KnownFile* file = fileOf(inode);
  if (file == nullptr) return std::nullopt;
  const KnownFolder& folder = folders_[file->folder];
  Place place;
  place.entry = &folder.contents.entries()[file->entry];
  place.name = folder.contents.nameOf(*place.entry);
  for (std::uint32_t at = file->folder; at != 0; at = folders_[at].parent) {
    const Folder& parent = folders_[folders_[at].parent].contents;
    const std::string_view name = parent.nameOf(*folders_[at].entry);
    place.folder = std::string(name) + (place.folder.empty() ? "" : "/") + place.folder;
  }
  return place;
}

SourceIndexWriter::SourceIndexWriter(std::string path, std::string_view identity)
    : path_(std::move(path)), identityLength_(identity.size()) {
  // A leftover may have other names, or lead elsewhere: it is never written into.
  (void)::unlink(path_.c_str());
  file_ = std::fopen(path_.c_str(), "wxe");
  const Header header{};  // Without the magic word until finish().
  write(&header, sizeof header);
  digester_.begin();
  write(identity.data(), identity.size());
}

SourceIndexWriter::~SourceIndexWriter() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  (void)::unlink(path_.c_str());  // A half index is refused by its readers in any case.
}

void SourceIndexWriter::enter(const char* name, const struct stat& status, bool trusted) {
  IndexEntry entry;
  entry.inode = status.st_ino;
  entry.changeTime = trusted ? changeTimeOf(status) : kUntrusted;
  entry.mode = static_cast<std::uint16_t>(status.st_mode);
  entry.flags = kUnknownFlags;
  open_.push_back({name, entry, {}, {}});
}

void SourceIndexWriter::setFolderFlags(const KnownFlags& flags) {
  open_.back().entry.flags = packed(flags);
}

void SourceIndexWriter::leave() {
  OpenFolder folder = std::move(open_.back());
  open_.pop_back();
  folder.entry.size = writeBlock(folder);
  if (open_.empty()) {
    root_ = folder.entry.size;
    rootFlags_ = folder.entry.flags;
  } else {
    append(open_.back(), folder.name.c_str(), folder.entry);
  }
}

void SourceIndexWriter::add(const char* name, const struct stat& status, bool trusted,
                            const host::ContentDigest& digest, const KnownFlags& flags) {
  IndexEntry entry;
  entry.inode = status.st_ino;
  entry.changeTime = trusted ? changeTimeOf(status) : kUntrusted;
  entry.size = static_cast<std::uint64_t>(status.st_size);
  entry.mode = static_cast<std::uint16_t>(status.st_mode);
  entry.flags = packed(flags);
  entry.digest = digest;
  append(open_.back(), name, entry);
}

void SourceIndexWriter::append(OpenFolder& folder, const char* name, IndexEntry entry) {
  entry.name = static_cast<std::uint32_t>(folder.names.size());
  folder.names.append(name).push_back('\0');
  folder.entries.push_back(entry);
}

std::uint64_t SourceIndexWriter::writeBlock(OpenFolder& folder) {
  std::stable_sort(
      folder.entries.begin(), folder.entries.end(),
      [](const IndexEntry& left, const IndexEntry& right) { return left.inode < right.inode; });
  static constexpr char kPadding[kAlignment] = {};
  write(kPadding, aligned(position_) - position_);
  const std::uint64_t offset = position_;
  const BlockHeader header{static_cast<std::uint32_t>(folder.entries.size()),
                           static_cast<std::uint32_t>(folder.names.size())};
  write(&header, sizeof header);
  write(folder.entries.data(), folder.entries.size() * sizeof(IndexEntry));
  write(folder.names.data(), folder.names.size());
  return offset;
}

void SourceIndexWriter::write(const void* bytes, std::size_t length) {
  if (file_ == nullptr || length == 0) return;
  // A failure stays in the stream's error flag, which finish() looks at.
  (void)std::fwrite(bytes, 1, length, file_);
  digester_.add(bytes, length);
  position_ += length;
}

bool SourceIndexWriter::finish() {
  if (file_ == nullptr) return false;
  Header header{};
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  header.length = position_;
  header.root = root_;
  header.identityLength = static_cast<std::uint32_t>(identityLength_);
  header.rootFlags = rootFlags_;
  header.digest = digester_.digest();
  bool whole = std::fseek(file_, 0, SEEK_SET) == 0;
  write(&header, sizeof header);
  whole = whole && std::ferror(file_) == 0;
  whole = std::fclose(file_) == 0 && whole;
  file_ = nullptr;
  if (!whole) (void)::unlink(path_.c_str());
  return whole;
}

}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the source looked like when a snapshot was made: <snapshot>/.snapwheel/index.
//
// An inode whose number and change time are the ones in the index has the contents, attributes and
// links that went into the snapshot, when both walks carry the same attributes: everything that
// changes one of them sets the change time, and no call sets it back. The next walk so needs one
// stat(2) for an unchanged item, and none in the snapshot. What changed is compared by its digest.
//
// Inode flags stand in the index alone: a copy with flags of its own could not be removed.
//
// The file: a header, then one block a folder, each after the blocks of the folders in it. A block
// holds the entries in inode order, the order in which the walk meets them, and their names. The
// header carries a digest of all the rest: an index with a wrong bit proves nothing.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/tree/inode_flags.h"
#include "snapwheel/digest.h"

namespace halyard::snapwheel {

/// One item as the index keeps it.
struct IndexEntry {
  std::uint64_t inode = 0;
  std::int64_t changeTime = 0;  ///< Nanoseconds; kUntrusted when it proves nothing.
  std::uint64_t size = 0;       ///< Of a folder: where its block stands in the file.
  std::uint16_t mode = 0;
  std::uint16_t flags = 0;          ///< As SourceIndex::flagsOf reads them.
  std::uint32_t name = 0;           ///< Where the name begins among the block's names.
  host::ContentDigest digest = {};  ///< Of the copy; kNoDigest of what is no regular file, and of
                                    ///< a further name of one.
};

inline constexpr std::int64_t kUntrusted = 0;

/// The inode flags of a regular file or folder; absent where they are not known.
using KnownFlags = std::optional<host::InodeFlags>;

/// An index that is being read. Whatever the file holds, nothing outside of it is touched.
class SourceIndex {
 public:
  /// One folder of the index, with a place from which the next look-up starts.
  class Folder {
   public:
    /// The entry of that inode and name; null when there is none.
    const IndexEntry* find(std::uint64_t inode, const char* name);
    /// The entry of that name, whatever its inode; null when there is none.
    const IndexEntry* find(const char* name);

    std::span<const IndexEntry> entries() const { return {entries_, count_}; }
    /// Empty for an entry whose name lies outside of the index.
    std::string_view nameOf(const IndexEntry& entry) const;

   private:
    friend class SourceIndex;
    const IndexEntry* entries_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t next_ = 0;
    std::vector<std::uint32_t> byName_;  ///< Made when it is needed first.
    std::string_view names_;             ///< Each ended by a NUL, the last one too.
  };

  /// Null when there is no index, it is damaged, it names one folder's block many times or in
  /// itself, or, where an identity is given, it was made with another one.
  static std::unique_ptr<SourceIndex> open(const std::string& path,
                                           std::optional<std::string_view> identity = {});
  /// Whether an index of this format, or one that cannot even tell its format, stands there and
  /// cannot be opened.
  static bool isDamaged(const std::string& path);
  ~SourceIndex();
  SourceIndex(const SourceIndex&) = delete;
  SourceIndex& operator=(const SourceIndex&) = delete;

  Folder root() const { return at(root_); }
  KnownFlags flagsOf(const IndexEntry& entry) const;
  KnownFlags flagsOfRoot() const;
  /// The folder that an entry stands for; an empty one when the entry is no folder.
  Folder below(const IndexEntry& entry) const {
    return S_ISDIR(entry.mode) ? at(entry.size) : Folder();
  }

  /// A regular file wherever it stands.
  struct Place {
    const IndexEntry* entry;
    std::string folder;  ///< Relative to the root, empty for it.
    std::string name;
  };
  /// Of several names one whose digest is known. The first call goes through the whole index. May
  /// be called in another thread.
  std::optional<Place> findAnywhere(std::uint64_t inode) const;
  /// Its entry alone, null when there is none. May be called in another thread, too.
  const IndexEntry* anyOf(std::uint64_t inode) const {
    const KnownFile* file = fileOf(inode);
    return file == nullptr ? nullptr : &folders_[file->folder].contents.entries()[file->entry];
  }

 private:
  struct KnownFolder {
    std::uint32_t parent;
    const IndexEntry* entry;
    Folder contents;
  };
  struct KnownFile {
    std::uint64_t inode;
    std::uint32_t folder;
    std::uint32_t entry;
    bool lacksDigest;
  };
  SourceIndex(char* bytes, std::size_t length) : bytes_(bytes), length_(length) {}
  bool readHeader(std::optional<std::string_view> identity);
  bool isTree() const;
  void forgetOtherDigests();
  Folder at(std::uint64_t offset) const;
  void listFiles() const;
  const KnownFile* fileOf(std::uint64_t inode) const;

  char* bytes_;
  std::size_t length_;
  std::uint64_t root_ = 0;
  bool hasFlags_ = false;
  std::uint16_t rootFlags_ = 0;
  mutable std::once_flag isListed_;           ///< Both of these.
  mutable std::vector<KnownFolder> folders_;  ///< The root first, each after its parent.
  mutable std::vector<KnownFile> files_;      ///< By inode, those with a digest first.
};

/// An index that is being written, in the order of a walk.
class SourceIndexWriter {
 public:
  /// What stands at the path is removed; the file counts as an index once finish() succeeded.
  SourceIndexWriter(std::string path, std::string_view identity);
  ~SourceIndexWriter();
  SourceIndexWriter(const SourceIndexWriter&) = delete;
  SourceIndexWriter& operator=(const SourceIndexWriter&) = delete;

  /// Goes into a folder; the first call is for the root.
  void enter(const char* name, const struct stat& status, bool trusted);
  void leave();
  /// What is known of the folder that was entered last.
  void setFolderFlags(const KnownFlags& flags);
  void add(const char* name, const struct stat& status, bool trusted,
           const host::ContentDigest& digest, const KnownFlags& flags = 0);

  /// False, and no index, when not everything could be written.
  bool finish();

 private:
  struct OpenFolder {
    std::string name;
    IndexEntry entry;
    std::vector<IndexEntry> entries;
    std::string names;
  };
  void append(OpenFolder& folder, const char* name, IndexEntry entry);
  std::uint64_t writeBlock(OpenFolder& folder);
  void write(const void* bytes, std::size_t length);

  std::string path_;
  std::FILE* file_ = nullptr;
  Digester digester_;  ///< Of all that follows the header.
  std::size_t identityLength_;
  std::uint64_t position_ = 0;
  std::uint64_t root_ = 0;
  std::uint16_t rootFlags_ = 0;
  std::vector<OpenFolder> open_;
};

/// Whether the file system of the path is known to set the change time of an item at every change
/// and to let nobody choose it. Where this is false no index proves anything.
bool keepsChangeTimes(const std::string& path);

/// The change time of an item in nanoseconds.
std::int64_t changeTimeOf(const struct stat& status);

}  // namespace halyard::snapwheel

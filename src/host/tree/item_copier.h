// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Copies single items, folders excepted, from one folder into another.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <utility>

#include "host/tree/change_time.h"
#include "host/tree/earlier_file.h"
#include "host/tree/extended_attributes.h"
#include "host/tree/file_data_copy.h"
#include "host/tree/folder_entries.h"
#include "host/tree/hard_links.h"
#include "host/tree/inode_set.h"
#include "host/tree/item_attributes.h"
#include "host/tree/quiet_opener.h"
#include "host/tree/tree_copy.h"
#include "host/tree/tree_scout.h"

namespace halyard::host {

/// The folders between which items are copied, as open descriptors.
struct FolderPair {
  int source = -1;
  int target = -1;
  int reference = -1;           ///< Where an earlier copy of the source folder stands; -1 for none.
  bool replaces = false;        ///< Items may stand in the target already: they are replaced.
  bool updates = false;         ///< The same items may stay.
  bool isLive = false;          ///< Others look there: no item gets its name before it is whole.
  FolderKinds there;            ///< What the target has, where a memory says what may stay.
  bool handsDown = false;       ///< The target gives new items an access control list of its own.
  bool changed = false;         ///< Something in the target was made or replaced.
  bool handsDownFlags = false;  ///< The target gives new items inode flags of its own.
  int earlierRoot = -1;         ///< The root of the copy that the memory knows; -1 for none.
  const TreeScout::Item* seen = nullptr;  ///< Of the item that is copied next; null for nothing.
  /// The first file that was made in the target, as it came out: its owner, group and device are
  /// those of the next ones too.
  std::optional<struct stat> firstMade;
};

/// Copies items with everything that belongs to them. REQUIRES: a umask of 0.
class ItemCopier {
 public:
  ItemCopier(TreeCopyReport& report, const TreeCopyOptions& options)
      : report_(report), options_(options), memory_(options.memory) {
    data_.watch(memory_);
  }

  /// Copies the item `fromName` to `toName`; `type` is its kind as a directory entry tells it.
  /// EISDIR, and nothing done, for a folder. After any other error nothing new stands at `toName`.
  int copy(FolderPair& folders, const char* fromName, const char* toName, unsigned char type);

  /// What was not kept of the items since the last call.
  LostAttributes takeLost() { return std::exchange(lost_, {}); }

  QuietOpener& opener() { return opener_; }
  HardLinks& hardLinks() { return hardLinks_; }

 private:
  int copyAfresh(FolderPair& folders, const char* fromName, const char* toName, unsigned char type);
  int keep(FolderPair& folders, const char* fromName, const char* toName,
           const struct stat& status);
  int copyFile(FolderPair& folders, const char* fromName, const char* toName);
  void noteFlags(int from);
  int letSettle(int from, struct stat& status);
  int copyUntorn(FolderPair& folders, int from, const char* fromName, const char* toName,
                 struct stat status);
  int copyOpened(FolderPair& folders, int from, const char* fromName, const char* toName,
                 const struct stat& status);
  int shareEarlier(FolderPair& folders, int from, const char* fromName, const char* toName,
                   const struct stat& status, EarlierFile& base);
  int copyOther(FolderPair& folders, const char* fromName, const char* toName);
  template <typename Make>
  int place(FolderPair& folders, const char* name, Make make);
  int share(FolderPair& folders, const EarlierFile& earlier, const char* toName,
            const struct stat& status);
  int makeFile(FolderPair& folders, int from, const char* name, const struct stat& status,
               const EarlierFile& base);
  int fillFile(FolderPair& folders, int from, int to, const struct stat& status,
               const EarlierFile& base);
  int copyData(FolderPair& folders, int from, int to, const struct stat& status,
               const EarlierFile& base);
  int makeOther(FolderPair& folders, const char* fromName, const char* name,
                const struct stat& status);
  bool isSame(int from, const struct stat& status, const EarlierFile& earlier);
  bool hasSameContents(int from, const struct stat& status, const EarlierFile& earlier);
  LostAttributes* losses() { return options_.attributesLost ? &lost_ : nullptr; }
  void countShared(const struct stat& status);

  TreeCopyReport& report_;
  const TreeCopyOptions& options_;
  TreeMemory* memory_;
  struct timespec began_ = timeOfChanges();
  QuietOpener opener_;
  HardLinks hardLinks_;
  InodeSet linkedInodes_;  ///< Of the reference.
  FileDataCopier data_;
  ExtendedAttributes attributes_;  ///< Of the item at hand.
  ExtendedAttributes earlierAttributes_;
  InodeFlags flagsOfContents_ = 0;  ///< What the copy at hand gets first.
  LostAttributes lost_;
  bool isTorn_ = false;                  ///< It changed whenever it was read.
  std::optional<ContentDigest> digest_;  ///< Of the file at hand, once it was read to compare it.
};

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The walk of a tree copy.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/files/location.h"
#include "host/files/umask.h"
#include "host/tree/folder_chain.h"
#include "host/tree/folder_entries.h"
#include "host/tree/item_copier.h"
#include "host/tree/tree_copy.h"

namespace halyard::host {

/// What becomes of a destination that the walk meets inside the source.
enum class SelfCopy {
  leftOut,
  refused,  ///< The copy ends with EINVAL.
};

/// Copies one item with everything in it, depth first: of each folder first the items that are no
/// folders, then one folder after the other. Holds three chains of open folders: of the source, of
/// the copy, and of an earlier copy for as far as that has the same folders.
class TreeCopier {
 public:
  TreeCopier(const TreeCopyOptions& options, SelfCopy selfCopy);

  /// REQUIRES: is called once.
  TreeCopyReport copy(const Location& source, const Location& target);

 private:
  struct Level {
    NameQueue folders;  ///< Still to be copied.
    struct stat source;
    GivenAttributes given;
    struct timespec givenTime;  ///< When the target folder was changed last.
    bool isMerged;              ///< The target folder was there before.
    bool handsDown;             ///< The target folder gives new items an access control list.
    InodeFlags flags;           ///< Of the target folder, where they concern anybody.
    bool isKnown;               ///< As it was when the earlier copy was made, as far as names go.
    bool isChanged;             ///< Something in the target folder was made, replaced or removed.
    std::size_t pathLength;     ///< Of the relative path of the folder above.
    std::string temporary;      ///< Its name while what it replaces stands, empty for its own.
    std::string name;           ///< The name that it gets in place of that one.
  };

  int copyRoot(const Location& source, const Location& target);
  int walk();
  int tolerate(int error, std::string_view name);
  bool isLeftOut(const char* name);
  std::size_t appendToPath(std::string_view name);
  int enter(int sourceFolder, const char* fromName, int targetFolder, const char* toName);
  int openTarget(int folder, const char* name, Descriptor& opened, Level& level);
  int makeTemporary(int folder, const char* name, Level& level);
  int prepareTarget(int folder, Level& level);
  int settleFlags(int folder, Level& level) const;
  void enterReference(const char* name);
  int copyEntries();
  int copyEntry(FolderPair& folders, const FolderEntry& entry);
  int giveUp(int error, int targetFolder, const char* name, std::string_view shownName);
  bool mayHaveStale() const;
  void noteChange();
  int removeStale();
  int publish(const Level& level);
  void discardUnfinished();
  int giveFolderAttributes(const Level& level);
  void tellLost(std::string_view name, const LostAttributes& lost);
  int leave();

  const TreeCopyOptions& options_;
  SelfCopy selfCopy_;
  TreeCopyReport report_;
  ScopedUmask exactModes_{0};
  ItemCopier items_;
  FolderReader reader_;
  std::vector<FolderEntry> entries_;
  std::vector<std::string> names_;  ///< Of the current folder, where the copy may have others.
  FolderChain source_;
  FolderChain target_;
  FolderChain reference_;   ///< Shorter than the others where the earlier copy lacks folders.
  Descriptor earlierRoot_;  ///< Of the copy that the memory is about.
  std::vector<Level> levels_;
  std::string path_;  ///< Of the current folder relative to the root.
  Identity sourceRoot_;
  Identity targetRoot_;
};

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which item of the source has been copied under which name already.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/files/descriptor.h"

namespace halyard::host {

/// Follows the walk of a tree copy and finds the copy of an item that has several names. Holds only
/// items with names still to come, and of folders only those with such an item in them.
class HardLinks {
 public:
  /// The walk begins in the root folder of the copy.
  int begin(int targetRoot);
  void enter(const std::string& name);
  void leave();
  /// The current folder of the copy got another name.
  void rename(const std::string& name);

  /// Makes `name` in the current folder of the copy, given as a descriptor too, another name of the
  /// copy of the item. ENOENT when that has not been copied yet.
  int link(const struct stat& source, int targetFolder, const char* name);

  /// The copy of the item stands in the current folder under this name.
  void remember(const struct stat& source, const char* name);

 private:
  using FolderNumber = std::uint32_t;
  static constexpr FolderNumber kRoot = 0;
  static constexpr FolderNumber kUnnumbered = UINT32_MAX;

  struct Key {
    dev_t device;
    ino_t inode;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    std::size_t operator()(const Key& key) const { return key.inode * 31 + key.device; }
  };
  struct Place {
    std::size_t name;  ///< Where in names_ it starts.
    FolderNumber folder;
    std::uint32_t namesToCome;
  };
  struct Folder {
    FolderNumber parent;
    std::size_t name;
  };
  struct Step {
    std::string name;
    FolderNumber number;
  };

  std::size_t keepName(const std::string& name);
  FolderNumber currentNumber();
  int openFolder(FolderNumber number);

  Descriptor root_;
  std::vector<Step> path_;  ///< The current folder's, below the root.
  std::unordered_map<Key, Place, KeyHash> places_;
  std::vector<Folder> folders_{{kRoot, 0}};
  std::string names_;
  Descriptor opened_;  ///< The folder that was needed last.
  FolderNumber openedNumber_ = kUnnumbered;
};

}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// An immutable or append-only item that gets another name.
#pragma once

#include <string>

#include "host/files/descriptor.h"
#include "host/tree/inode_flags.h"

namespace halyard::hostkit {

/// Takes the flags that keep an item from being renamed, and gives them again at the latest when
/// the object goes, to this very item, whatever it is called by then. An item that has no such
/// flags, or is neither a regular file nor a folder, is left alone.
class UnlockedItem {
 public:
  UnlockedItem(int folder, const std::string& name);
  ~UnlockedItem() { (void)lockAgain(); }
  UnlockedItem(const UnlockedItem&) = delete;
  UnlockedItem& operator=(const UnlockedItem&) = delete;

  /// Why it is still locked; 0 when it is not.
  int error() const { return error_; }

  /// False when it does not have its flags again, which is told.
  bool lockAgain();

 private:
  int unlock(int folder);

  std::string name_;
  host::Descriptor item_;  ///< Only while the flags are to be given again.
  host::InodeFlags flags_ = 0;
  int error_ = 0;
};

}  // namespace halyard::hostkit

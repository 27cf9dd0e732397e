// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What chattr(1) sets, for tests.
#pragma once

#include <string>
#include <vector>

#include "host/tree/inode_flags.h"

namespace halyard::test {

/// Of a regular file or folder.
host::InodeFlags flagsOf(const std::string& path);

/// False where the file system does not take them.
bool setFlags(const std::string& path, host::InodeFlags flags);

/// "PATH FLAGS", relative to the root, of each file and folder that has flags, sorted.
std::vector<std::string> listFlags(const std::string& root);

/// So that a tree can be removed; the flags of one that is being made go with the object.
class UnlockedAtTheEnd {
 public:
  explicit UnlockedAtTheEnd(std::string root) : root_(std::move(root)) {}
  ~UnlockedAtTheEnd();
  UnlockedAtTheEnd(const UnlockedAtTheEnd&) = delete;
  UnlockedAtTheEnd& operator=(const UnlockedAtTheEnd&) = delete;

 private:
  std::string root_;
};

}  // namespace halyard::test

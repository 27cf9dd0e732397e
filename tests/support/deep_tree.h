// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A tree that no path reaches the bottom of.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/scratch.h"

namespace halyard::test {

class DeepTree {
 public:
  /// Folders of long names, so that the path is far longer than any call takes.
  DeepTree(const Scratch& scratch, int levels, const std::string& root = "tree") {
    int folder = ::open(scratch.makeFolder(root).c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < levels; ++level) {
      EXPECT_EQ(::mkdirat(folder, name().c_str(), 0750), 0);
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    const int file = ::openat(folder, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
    EXPECT_EQ(::write(file, "deep", 4), 4);
    EXPECT_EQ(::linkat(folder, "bottom", folder, "again", 0), 0);
    ::close(file);
    ::close(folder);
  }

  static std::string name() { return std::string(30, 'd'); }

  /// How many levels there are before "bottom"; -1 when it is not found.
  static int depth(const std::string& root) {
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; folder >= 0; ++level) {
      struct stat status = {};
      if (::fstatat(folder, "bottom", &status, 0) == 0) {
        ::close(folder);
        return status.st_size == 4 && status.st_nlink == 2 ? level : -1;
      }
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    return -1;
  }
};

}  // namespace halyard::test

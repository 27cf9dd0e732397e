// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/inode_set.h"

#include <gtest/gtest.h>

namespace halyard::host {
namespace {

TEST(InodeSet, TakesEachNumberOnce) {
  InodeSet set;
  for (ino_t inode = 1; inode <= 100000; ++inode) ASSERT_TRUE(set.insert(inode)) << inode;
  for (ino_t inode = 1; inode <= 100000; ++inode) ASSERT_FALSE(set.insert(inode)) << inode;
}

TEST(InodeSet, TakesNumbersThatAreFarApart) {
  InodeSet set;
  for (unsigned bit = 0; bit < 64; ++bit) EXPECT_TRUE(set.insert(ino_t{1} << bit));
  for (unsigned bit = 0; bit < 64; ++bit) EXPECT_FALSE(set.insert(ino_t{1} << bit));
}

}  // namespace
}  // namespace halyard::host

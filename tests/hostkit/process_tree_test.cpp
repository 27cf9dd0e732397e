// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/process_tree.h"

#include <gmock/gmock.h>

#include <optional>
#include <vector>

namespace halyard::hostkit {
namespace {

using testing::ElementsAre;

TEST(ProcessEntry, ANameMayHoldBracketsAndBlanks) {
  const auto entry = parseProcessEntry(
      "12 (a) b (c) S 7 12 12 0 -1 4194560 100 200 0 0 11 12 13 14 20 0 1 0 5678 0 0");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->process, 12);
  EXPECT_EQ(entry->parent, 7);
  EXPECT_FALSE(entry->hasEnded);
  EXPECT_EQ(entry->ticks, 50U);
  EXPECT_EQ(entry->startTime, 5678U);
  EXPECT_EQ(parseProcessEntry("12 (a) S"), std::nullopt);
}

TEST(ProcessesBelow, AreFoundAtAnyDepthAndWithoutThoseThatHaveEnded) {
  const std::vector<ProcessEntry> all = {
      {2, 9, false, 0, 0}, {9, 5, false, 0, 0}, {7, 5, true, 0, 0}, {5, 1, false, 0, 0}};
  std::vector<int> found;
  for (const ProcessEntry& entry : processesBelow(all, 5)) found.push_back(entry.process);
  EXPECT_THAT(found, ElementsAre(2, 9));
}

}  // namespace
}  // namespace halyard::hostkit

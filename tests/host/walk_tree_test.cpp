// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/walk_tree.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>

#include "host/tree/remove_tree.h"
#include "support/deep_tree.h"
#include "support/forked.h"
#include "support/items.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;
using testing::ElementsAre;

/// The paths that a walk met, sorted.
std::vector<std::string> pathsIn(const std::string& root, bool entersMounts = false) {
  std::vector<std::string> paths;
  TreeWalk walk;
  walk.entersMounts = entersMounts;
  walk.visit = [&](const WalkedItem& item) {
    paths.emplace_back(item.path);
    return WalkStep::goOn;
  };
  if (!walkTree(root, walk)) paths.emplace_back("failed");
  std::ranges::sort(paths);
  return paths;
}

TEST(WalkTree, MeetsEachItemOnce) {
  const Scratch scratch;
  scratch.write("tree/one", "1");
  scratch.write("tree/deep/er/two", "2");
  scratch.makeFolder("tree/empty");
  EXPECT_THAT(pathsIn(scratch / "tree"),
              ElementsAre("", "deep", "deep/er", "deep/er/two", "empty", "one"));
  EXPECT_THAT(pathsIn(scratch / "tree/one"), ElementsAre(""));
}

TEST(WalkTree, FollowsNoLinkNotEvenAtItsRoot) {
  const Scratch scratch;
  scratch.write("outside/file", "x");
  scratch.makeFolder("tree");
  ASSERT_EQ(::symlink((scratch / "outside").c_str(), (scratch / "tree/link").c_str()), 0);
  EXPECT_THAT(pathsIn(scratch / "tree"), ElementsAre("", "link"));
  EXPECT_THAT(pathsIn(scratch / "tree/link"), ElementsAre(""));
}

TEST(WalkTree, GoesPastWhatTheCallerPassesOver) {
  const Scratch scratch;
  scratch.write("tree/deep/two", "2");
  scratch.write("tree/other/three", "3");
  std::vector<std::string> paths;
  TreeWalk walk;
  walk.visit = [&](const WalkedItem& item) {
    paths.emplace_back(item.path);
    return item.path == "deep" ? WalkStep::passOver : WalkStep::goOn;
  };
  ASSERT_TRUE(walkTree(scratch / "tree", walk));
  EXPECT_THAT(paths, testing::UnorderedElementsAre("", "deep", "other", "other/three"));
}

TEST(WalkTree, EndsWhenTheCallerHasSeenEnough) {
  const Scratch scratch;
  for (const char* name : {"tree/a", "tree/b", "tree/c/d"}) scratch.write(name, "x");
  int met = 0;
  TreeWalk walk;
  walk.visit = [&](const WalkedItem&) { return ++met == 2 ? WalkStep::end : WalkStep::goOn; };
  ASSERT_TRUE(walkTree(scratch / "tree", walk));
  EXPECT_EQ(met, 2);
}

TEST(WalkTree, TellsAFolderThatCannotBeListedAndGoesOn) {
  const Scratch scratch;
  scratch.write("tree/closed/file", "x");
  scratch.write("tree/open/file", "x");
  ASSERT_EQ(::chmod((scratch / "tree/closed").c_str(), 0), 0);
  ASSERT_EQ(::chmod((scratch / "tree").c_str(), 0755), 0);
  ASSERT_EQ(::chmod((scratch / "tree/open").c_str(), 0755), 0);
  const auto look = [&] {
    if (::geteuid() == 0 && ::seteuid(1815) != 0) return 9;
    std::vector<std::string> failed;
    int met = 0;
    TreeWalk walk;
    walk.visit = [&](const WalkedItem&) {
      ++met;
      return WalkStep::goOn;
    };
    walk.failed = [&](std::string_view path, int error) {
      failed.push_back(std::string(path) + " " + std::to_string(error));
    };
    if (!walkTree(".", walk)) return 1;
    return met == 4 && failed == std::vector<std::string>{"closed " + std::to_string(EACCES)} ? 0
                                                                                              : 2;
  };
  EXPECT_EQ(
      test::exitStatusOf([&] { return ::chdir((scratch / "tree").c_str()) == 0 ? look() : 8; }), 0);
}

TEST(WalkTree, TellsARootThatIsNotThere) {
  const Scratch scratch;
  EXPECT_THAT(pathsIn(scratch / "none"), ElementsAre("failed"));
  EXPECT_THAT(pathsIn(""), ElementsAre("failed"));
}

TEST(WalkTree, SeesOfAMountTheFolderAlone) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounts are not allowed here";
  const Scratch scratch;
  scratch.write("tree/mounted/hidden", "x");
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts()) return 8;
              const std::string folder = scratch / "tree/mounted";
              if (::mount("none", folder.c_str(), "tmpfs", 0, nullptr) != 0) return 9;
              scratch.write("tree/mounted/inside", "x");
              const std::vector<std::string> outside = {"", "mounted"};
              const std::vector<std::string> all = {"", "mounted", "mounted/inside"};
              if (pathsIn(scratch / "tree") != outside) return 1;
              return pathsIn(scratch / "tree", true) == all ? 0 : 2;
            }),
            0);
}

TEST(WalkTree, ReachesTheBottomOfTenThousandLevelsWithFewDescriptors) {
  const Scratch scratch;
  const test::DeepTree tree(scratch, 10000);
  std::size_t met = 0;
  int highest = 0;
  TreeWalk walk;
  walk.visit = [&](const WalkedItem& item) {
    ++met;
    highest = std::max(highest, item.folder);
    return WalkStep::goOn;
  };
  walk.failed = [](std::string_view, int error) { ADD_FAILURE() << error; };
  EXPECT_TRUE(walkTree(scratch / "tree", walk));
  EXPECT_EQ(met, 10003U);  // The root, the folders, a file with two names.
  EXPECT_LT(highest, 100);
  EXPECT_TRUE(removeTree(scratch / "tree"));
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/tree/walk_tree.h"
#include "snapwheel/source_scout.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

using test::Scratch;
using testing::ElementsAre;

bool nothing(std::string_view) { return false; }

struct Asked {
  std::string folder;
  std::string name;
  ino_t inode;
};

/// Names of one file, which are made faster than files.
void putMany(const Scratch& scratch, const std::string& folder, int count) {
  const std::string first = scratch.write(folder + "/f0");
  for (int number = 1; number < count; ++number) {
    const std::string name = scratch / (folder + "/f" + std::to_string(number));
    ASSERT_EQ(::link(first.c_str(), name.c_str()), 0);
  }
}

/// All items of a kind, or that are no folders, in the order of the walk.
std::vector<Asked> itemsIn(const std::string& root, mode_t kind = 0) {
  std::vector<Asked> items;
  host::TreeWalk walk;
  walk.visit = [&](const host::WalkedItem& item) {
    const std::string path(item.path);
    const auto slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash);
    const mode_t found = item.status.st_mode & S_IFMT;
    const bool isWanted = kind == 0 ? found != S_IFDIR : found == kind && !path.empty();
    if (isWanted) items.push_back({folder, item.name, item.status.st_ino});
    return host::WalkStep::goOn;
  };
  EXPECT_TRUE(host::walkTree(root, walk));
  return items;
}

/// The names that the scout knows of these.
std::vector<std::string> known(SourceScout& scout, const std::vector<Asked>& items) {
  std::vector<std::string> names;
  for (const Asked& item : items) {
    const auto* seen = scout.find(item.folder, item.name.c_str(), item.inode);
    if (seen != nullptr && seen->status.st_ino == item.inode) names.push_back(item.name);
  }
  return names;
}

TEST(SourceScout, SeesEachItemOfAWideTreeBeforeTheWalk) {
  const Scratch scratch;
  putMany(scratch, "tree/a", 2500);
  putMany(scratch, "tree/b", 2500);
  scratch.write("tree/top");
  const auto items = itemsIn(scratch / "tree");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", nothing});
  EXPECT_EQ(known(scout, items).size(), 5001U);
}

TEST(SourceScout, ComparesWithTheReference) {
  const Scratch scratch;
  scratch.write("tree/d/same", "1234");
  scratch.write("tree/d/longer", "12345");
  scratch.write("tree/d/alone", "1");
  scratch.write("earlier/d/same", "abcd");
  scratch.write("earlier/d/longer", "1234");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, scratch / "earlier", nothing});
  std::vector<std::string> alike;
  for (const Asked& item : itemsIn(scratch / "tree")) {
    const auto* seen = scout.find(item.folder, item.name.c_str(), item.inode);
    ASSERT_NE(seen, nullptr);
    if (seen->isAlike) alike.push_back(item.name);
  }
  EXPECT_THAT(alike, ElementsAre("same"));
}

TEST(SourceScout, FollowsNoLinkInTheReference) {
  const Scratch scratch;
  scratch.write("tree/d/file", "1234");
  scratch.write("earlier/another/file", "1234");
  ASSERT_EQ(::symlink("another", (scratch / "earlier/d").c_str()), 0);
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, scratch / "earlier", nothing});
  const Asked file = itemsIn(scratch / "tree").front();
  const auto* seen = scout.find("d", "file", file.inode);
  ASSERT_NE(seen, nullptr);
  EXPECT_FALSE(seen->isAlike);
}

TEST(SourceScout, PassesOverWhatIsLeftOut) {
  const Scratch scratch;
  scratch.write("tree/a/file");
  scratch.write("tree/cache/file");
  const auto items = itemsIn(scratch / "tree");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", [](std::string_view path) { return path == "cache"; }});
  EXPECT_THAT(known(scout, items), ElementsAre("file"));
}

TEST(SourceScout, DoesNotKnowAnItemThatTookTheNameOfAnother) {
  const Scratch scratch;
  scratch.write("tree/file");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", nothing});
  const Asked file = itemsIn(scratch / "tree").front();
  EXPECT_EQ(scout.find("", "file", file.inode + 1), nullptr);
  EXPECT_EQ(scout.find("", "other", file.inode), nullptr);
  EXPECT_NE(scout.find("", "file", file.inode), nullptr);
}

TEST(SourceScout, IsFoundAgainAfterAFolderThatItDidNotSee) {
  const Scratch scratch;
  scratch.write("tree/a/file");
  scratch.write("tree/b/file");
  auto items = itemsIn(scratch / "tree");
  items.insert(items.begin() + 1, {"made since", "file", 7});
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", nothing});
  EXPECT_EQ(known(scout, items).size(), 2U);
}

TEST(SourceScout, IsFoundAgainAfterMoreThanItHoldsWasPassedOver) {
  const Scratch scratch;
  for (const char* folder : {"tree/b", "tree/c", "tree/d"}) scratch.makeFolder(folder);
  auto folders = itemsIn(scratch / "tree", S_IFDIR);
  putMany(scratch, "tree/" + folders[0].name, 5000);
  scratch.write("tree/" + folders[1].name + "/file");
  scratch.write("tree/" + folders[2].name + "/file");
  const auto root = host::locate(scratch / "tree");
  std::atomic<bool> isAtLast = false;
  SourceScout scout({*root, "", [&](std::string_view path) {
                       if (path == folders[2].name + "/file") isAtLast = true;
                       return false;
                     }});
  // Each folder that it has nothing of lets it go on when it holds all that it may.
  for (int folder = 0; folder < 10'000'000 && !isAtLast; ++folder) {
    EXPECT_EQ(scout.find("made since " + std::to_string(folder), "file", 1), nullptr);
    std::this_thread::yield();
  }
  ASSERT_TRUE(isAtLast);
  const auto items = itemsIn(scratch / ("tree/" + folders[1].name));
  EXPECT_NE(scout.find(folders[1].name, "file", items.front().inode), nullptr);
}

TEST(SourceScout, IsFoundAgainAfterItemsThatHaveGone) {
  const Scratch scratch;
  putMany(scratch, "tree", 2000);
  auto items = itemsIn(scratch / "tree");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", nothing});
  items.erase(items.begin() + 200, items.begin() + 900);
  EXPECT_EQ(known(scout, items).size(), 1300U);
}

TEST(SourceScout, IsFoundAgainAfterTheRestOfAFolderHasGone) {
  const Scratch scratch;
  putMany(scratch, "tree/a", 5000);
  for (int number = 0; number < 10; ++number) {
    scratch.write("tree/b" + std::to_string(number) + "/file");
  }
  auto items = itemsIn(scratch / "tree");
  const auto root = host::locate(scratch / "tree");
  SourceScout scout({*root, "", nothing});
  bool isFirst = true;
  std::erase_if(items, [&](const Asked& item) {
    return item.folder == "a" && !std::exchange(isFirst, false);
  });
  EXPECT_EQ(known(scout, items).size(), 11U);
}

TEST(SourceScout, IsLeftOutWhereNoThreadCanBeMade) {
  const Scratch scratch;
  scratch.write("tree/file");
  const auto items = itemsIn(scratch / "tree");
  const auto root = host::locate(scratch / "tree");
  pthread_attr_t former;
  ASSERT_EQ(::pthread_getattr_default_np(&former), 0);
  pthread_attr_t endless;
  ASSERT_EQ(::pthread_attr_init(&endless), 0);
  ASSERT_EQ(::pthread_attr_setstacksize(&endless, std::size_t{1} << 50), 0);
  ASSERT_EQ(::pthread_setattr_default_np(&endless), 0);
  SourceScout scout({*root, "", nothing});
  ASSERT_EQ(::pthread_setattr_default_np(&former), 0);
  EXPECT_TRUE(known(scout, items).empty());
}

TEST(SourceScout, EndsInTheMiddleOfTheTree) {
  const Scratch scratch;
  putMany(scratch, "tree", 5000);
  const auto root = host::locate(scratch / "tree");
  const Asked first = itemsIn(scratch / "tree").front();
  SourceScout scout({*root, "", nothing});
  EXPECT_NE(scout.find("", first.name.c_str(), first.inode), nullptr);
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "race.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "base/text.h"
#include "host/tree/remove_tree.h"
#include "support/environment_number.h"
#include "support/scratch.h"
#include "support/swapper.h"

namespace halyard::test {
namespace fs = std::filesystem;

namespace {

constexpr unsigned kFewAttempts = 64;
constexpr int kFolders = 56;
constexpr int kFiles =
    8;  // Few, since a snapshot waits for each file that is renamed while it reads.
constexpr const char* kLink = ".link";
constexpr const char* kOutsideWord = "outside";

std::vector<std::string> numbered(char letter, int count) {
  std::vector<std::string> names;
  for (int number = 10; number < 10 + count; ++number) {
    names.push_back(letter + std::to_string(number));
  }
  return names;
}

void makeFolder(const std::string& path, uid_t user, gid_t group) {
  EXPECT_EQ(::mkdir(path.c_str(), 0755), 0) << path;
  EXPECT_EQ(::chown(path.c_str(), user, group), 0) << path;
}

void makeFile(const std::string& path, const std::string& word, uid_t user, gid_t group) {
  std::ofstream(path) << word;
  EXPECT_EQ(::chown(path.c_str(), user, group), 0) << path;
}

void makeLink(const std::string& path, const std::string& target) {
  EXPECT_EQ(::symlink(target.c_str(), path.c_str()), 0) << path;
  EXPECT_EQ(::lchown(path.c_str(), kSwapperUser, kSwapperGroup), 0) << path;
}

/// A file, what a restore sets aside of it, and a folder with a file.
void makeItems(const std::string& folder, const std::string& word, uid_t user, gid_t group) {
  makeFolder(folder, user, group);
  makeFile(folder + "/file", word, user, group);
  makeFolder(folder + "/file.previous", user, group);
  makeFile(folder + "/file.previous/kept", word, user, group);
  makeFolder(folder + "/deep", user, group);
  makeFile(folder + "/deep/file", word, user, group);
}

}  // namespace

std::vector<std::string> Race::folders() { return numbered('d', kFolders); }
std::vector<std::string> Race::files() { return numbered('f', kFiles); }

std::vector<std::string> Race::both() {
  auto names = folders();
  for (std::string& name : files()) names.push_back(std::move(name));
  return names;
}

Race::Race(const std::string& base, std::string outside) : outside_(std::move(outside)) {
  const std::string folder = base + "/outside";
  makeItems(folder, kOutsideWord, 0, 0);
  watch_ = std::make_unique<OutsideWatch>(
      std::vector<std::string>{folder, folder + "/deep", folder + "/file.previous"});
}

void Race::fill(const std::string& folder, const std::string& word) const {
  (void)::mkdir(folder.c_str(), 0755);
  // The folder itself stays: the other account has it open.
  for (const auto& entry : fs::directory_iterator(folder)) {
    EXPECT_TRUE(host::removeTree(entry.path()));
  }
  EXPECT_EQ(::chown(folder.c_str(), kSwapperUser, kSwapperGroup), 0);
  for (const std::string& name : folders()) {
    const std::string path = appendPath(folder, name);
    makeItems(path, word, kSwapperUser, kSwapperGroup);
    makeLink(path + kLink, outside_);
  }
  for (const std::string& name : files()) {
    const std::string path = appendPath(folder, name);
    makeFile(path, word, kSwapperUser, kSwapperGroup);
    makeLink(path + kLink, outside_ + "/file");
  }
}

void Race::run(const Run& run) {
  const unsigned wanted = numberFrom("HALYARD_ATTEMPTS", kFewAttempts / run.cost);
  const unsigned seed = numberFrom("HALYARD_SEED", std::random_device()());
  SCOPED_TRACE("HALYARD_SEED=" + std::to_string(seed));
  std::vector<Swapper::Pair> pairs;
  for (const std::string& name : run.items) pairs.push_back({name, name + kLink});
  std::unique_ptr<Swapper> swapper;
  ino_t swapped = 0;
  std::uint64_t swaps = 0;
  unsigned attempts = 0;
  for (; attempts < wanted && !testing::Test::HasFailure();
       attempts += static_cast<unsigned>(pairs.size())) {
    const std::string folder = run.prepare();
    // A folder that stays the same keeps its swapper.
    struct stat status {};
    ASSERT_EQ(::lstat(folder.c_str(), &status), 0) << folder;
    if (!swapper || status.st_ino != swapped) {
      if (swapper) swaps += swapper->swaps();
      swapper = std::make_unique<Swapper>(folder, pairs, seed + attempts);
      swapped = status.st_ino;
    }
    swapper->start();
    run.act();
    swapper->pause();
    EXPECT_THAT(watch_->takeEvents(), testing::IsEmpty()) << "after " << attempts << " attempts";
    run.check();
  }
  if (swapper) swaps += swapper->swaps();
  const auto* info = testing::UnitTest::GetInstance()->current_test_info();
  std::printf("%s.%s: %u attempts, %llu swaps\n", info->test_suite_name(), info->name(), attempts,
              static_cast<unsigned long long>(swaps));
}

bool Race::holdsOutside(const std::string& path) {
  for (const auto& entry : fs::recursive_directory_iterator(path)) {
    if (fs::is_regular_file(entry.symlink_status()) &&
        Scratch::contents(entry.path()) == kOutsideWord) {
      return true;
    }
  }
  return false;
}

}  // namespace halyard::test

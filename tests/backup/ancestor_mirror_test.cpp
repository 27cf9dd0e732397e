// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "backup/service_backup.h"
#include "support/scratch.h"

namespace halyard {
namespace {

using test::Scratch;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

// Live folders <live>/a/b/c with different modes; the copy root is <scratch>/copy.
class MirrorTest : public testing::Test {
 protected:
  MirrorTest() : live_(scratch_.makeFolder("live")), copy_(scratch_.makeFolder("copy")) {
    scratch_.makeFolder("live/a/b/c");
    EXPECT_EQ(chmod((live_ + "/a").c_str(), 0711), 0);
    EXPECT_EQ(chmod((live_ + "/a/b").c_str(), 02750), 0);
    EXPECT_EQ(chmod((live_ + "/a/b/c").c_str(), 0700), 0);
  }

  Scratch scratch_;
  std::string live_;
  std::string copy_;
};

TEST_F(MirrorTest, TheLastTwoComponentsAreNotMade) {
  mirrorAncestorDirectories(live_ + "/a/b/c", copy_);
  EXPECT_TRUE(Scratch::stands(copy_ + live_ + "/a"));
  EXPECT_FALSE(Scratch::stands(copy_ + live_ + "/a/b"));
}

TEST_F(MirrorTest, EachFolderGetsTheAttributesOfTheLevelAbove) {
  mirrorAncestorDirectories(live_ + "/a/b/c/leaf", copy_);
  EXPECT_EQ(modeOf(copy_ + live_ + "/a"), modeOf(live_));
  EXPECT_EQ(modeOf(copy_ + live_ + "/a/b"), 0711U);
  EXPECT_FALSE(Scratch::stands(copy_ + live_ + "/a/b/c"));
}

TEST_F(MirrorTest, ModesAreExactWhateverTheUmask) {
  const mode_t old = umask(0777);
  mirrorAncestorDirectories(live_ + "/a/b/c/d/leaf", copy_);
  umask(old);
  EXPECT_EQ(modeOf(copy_ + live_ + "/a/b"), 0711U);
  EXPECT_EQ(modeOf(copy_ + live_ + "/a/b/c"), 02750U);
}

TEST_F(MirrorTest, OwnersAreCarried) {
  if (geteuid() != 0) GTEST_SKIP() << "owners can only be changed by root";
  ASSERT_EQ(chown((live_ + "/a").c_str(), 33, 80), 0);
  mirrorAncestorDirectories(live_ + "/a/b/c/leaf", copy_);
  struct stat status {};
  ASSERT_EQ(stat((copy_ + live_ + "/a/b").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 33U);
  EXPECT_EQ(status.st_gid, 80U);
}

TEST_F(MirrorTest, FoldersThatAreThereStayAsTheyAre) {
  scratch_.makeFolder("copy" + live_ + "/a");
  ASSERT_EQ(chmod((copy_ + live_ + "/a").c_str(), 0777), 0);
  mirrorAncestorDirectories(live_ + "/a/b/c/leaf", copy_);
  EXPECT_EQ(modeOf(copy_ + live_ + "/a"), 0777U);
  EXPECT_TRUE(Scratch::stands(copy_ + live_ + "/a/b"));
}

TEST_F(MirrorTest, ShortPathsMakeNothing) {
  for (const char* path : {"/x", "/", "", "x"}) {
    mirrorAncestorDirectories(path, scratch_ / "new");
    EXPECT_FALSE(Scratch::stands(scratch_ / "new")) << path;
  }
}

TEST_F(MirrorTest, AMissingCopyRootIsMadeWithDefaultAttributes) {
  const mode_t old = umask(027);
  mirrorAncestorDirectories("/x/y", scratch_ / "new");
  umask(old);
  EXPECT_EQ(modeOf(scratch_ / "new"), 0750U);
}

TEST_F(MirrorTest, ACopyRootWithoutAParentIsNotMade) {
  mirrorAncestorDirectories("/x/y/z", scratch_ / "no/such");
  EXPECT_FALSE(Scratch::stands(scratch_ / "no"));
}

TEST_F(MirrorTest, SourceLevelsThatDoNotExistAreMirroredWithDefaults) {
  const mode_t old = umask(027);
  mirrorAncestorDirectories(live_ + "/gone/deeper/still/leaf", copy_);
  umask(old);
  EXPECT_EQ(modeOf(copy_ + live_ + "/gone"), modeOf(live_));
  EXPECT_EQ(modeOf(copy_ + live_ + "/gone/deeper"), 0750U);
  EXPECT_FALSE(Scratch::stands(copy_ + live_ + "/gone/deeper/still"));
}

TEST_F(MirrorTest, DoubledAndTrailingSlashesDisappear) {
  mirrorAncestorDirectories("/" + live_ + "//a///b/c/", copy_ + "/");
  EXPECT_TRUE(Scratch::stands(copy_ + live_ + "/a"));
  EXPECT_FALSE(Scratch::stands(copy_ + live_ + "/a/b"));
}

TEST_F(MirrorTest, AFileOnTheWayIsNotReplaced) {
  scratch_.write("copy/" + live_.substr(1) + "/a", "plain");
  mirrorAncestorDirectories(live_ + "/a/b/c/leaf", copy_);
  EXPECT_EQ(Scratch::contents(copy_ + live_ + "/a"), "plain");
}

}  // namespace
}  // namespace halyard

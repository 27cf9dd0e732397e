// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Subvolumes on a btrfs of the test's own.
#include "host/volumes/subvolume.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "support/mounted_volume.h"
#include "support/mounts.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

class Subvolume : public testing::Test {
 protected:
  void SetUp() override {
    volume_.emplace(scratch_, "btrfs", 128);
    if (!volume_->reason().empty()) GTEST_SKIP() << volume_->reason();
    folder_ = Descriptor(::open(volume_->path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(folder_);
    ASSERT_TRUE(createSubvolume(folder(), "one"));
    ASSERT_TRUE(writeFile(at("one/file"), "kept"));
  }

  int folder() const { return folder_.get(); }
  std::string at(const std::string& name) const { return volume_->path() + "/" + name; }
  /// The folder opened, for subvolumes inside it.
  Descriptor inside(const std::string& name) const {
    return Descriptor(::open(at(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  void nest(const std::string& name, const std::string& inner) const {
    ASSERT_TRUE(createSubvolume(inside(name).get(), inner));
    ASSERT_TRUE(writeFile(at(name + "/" + inner + "/file"), "x"));
  }

  Scratch scratch_;
  std::optional<test::MountedVolume> volume_;

 private:
  Descriptor folder_;
};

TEST_F(Subvolume, IsToldFromAFolderAndAFile) {
  ASSERT_TRUE(createDirectory(at("plain")));
  ASSERT_TRUE(writeFile(at("file"), ""));
  EXPECT_TRUE(isOnBtrfs(folder()));
  EXPECT_TRUE(isSubvolume(folder(), "one"));
  for (const char* other : {"plain", "file", "missing", "one/file", ""}) {
    EXPECT_FALSE(isSubvolume(folder(), other)) << other;
  }
}

TEST_F(Subvolume, IsMadeOnceUnderAName) {
  EXPECT_EQ(createSubvolume(folder(), "one").error().code, EEXIST);
  EXPECT_EQ(createSubvolume(folder(), "one/two").error().code, EINVAL);
  EXPECT_EQ(createSubvolume(folder(), std::string(256, 'x')).error().code, ENAMETOOLONG);
  EXPECT_EQ(createSubvolume(folder(), std::string(5000, 'x')).error().code, ENAMETOOLONG);
}

TEST_F(Subvolume, ACopyCanBeWrittenAndLeavesTheSourceAlone) {
  ASSERT_TRUE(setSubvolumeReadOnly(folder(), "one", true));
  ASSERT_TRUE(copySubvolume(folder(), "one", "two"));
  EXPECT_TRUE(isSubvolume(folder(), "two"));
  EXPECT_EQ(Scratch::contents(at("two/file")), "kept");
  EXPECT_TRUE(writeFile(at("two/file"), "changed"));
  EXPECT_EQ(Scratch::contents(at("one/file")), "kept");
  EXPECT_EQ(copySubvolume(folder(), "missing", "three").error().code, ENOENT);
}

TEST_F(Subvolume, AFolderIsNotCopied) {
  ASSERT_TRUE(createDirectory(at("plain")));
  EXPECT_FALSE(copySubvolume(folder(), "plain", "two"));
  EXPECT_FALSE(Scratch::stands(at("two")));
}

TEST_F(Subvolume, AReadOnlyOneRefusesEveryChangeUntilItIsWritableAgain) {
  ASSERT_TRUE(setSubvolumeReadOnly(folder(), "one", true));
  ASSERT_TRUE(setSubvolumeReadOnly(folder(), "one", true));
  EXPECT_EQ(writeFile(at("one/file"), "changed").error().code, EROFS);
  ASSERT_TRUE(setSubvolumeReadOnly(folder(), "one", false));
  EXPECT_TRUE(writeFile(at("one/file"), "changed"));
}

TEST_F(Subvolume, NoneIsHadOnAnotherFileSystem) {
  const Descriptor other(::open(scratch_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_TRUE(createDirectory(scratch_ / "plain"));
  EXPECT_FALSE(isOnBtrfs(other.get()));
  EXPECT_FALSE(isSubvolume(other.get(), "plain"));
  EXPECT_FALSE(createSubvolume(other.get(), "two"));
  EXPECT_FALSE(setSubvolumeReadOnly(other.get(), "plain", true));
  EXPECT_TRUE(removeWithSubvolumes(other.get(), "plain"));
  EXPECT_FALSE(Scratch::stands(scratch_ / "plain"));
}

TEST_F(Subvolume, ALinkIsNotFollowed) {
  ASSERT_EQ(::symlink("one", at("link").c_str()), 0);
  EXPECT_FALSE(isSubvolume(folder(), "link"));
  EXPECT_EQ(setSubvolumeReadOnly(folder(), "link", true).error().code, ENOTDIR);
  EXPECT_EQ(copySubvolume(folder(), "link", "two").error().code, ENOTDIR);
  EXPECT_TRUE(writeFile(at("one/other"), "still writable"));

  EXPECT_TRUE(removeWithSubvolumes(folder(), "link"));

  EXPECT_FALSE(Scratch::stands(at("link")));
  EXPECT_EQ(Scratch::contents(at("one/file")), "kept");
}

TEST_F(Subvolume, ALinkInsideIsNotFollowed) {
  ASSERT_TRUE(createDirectory(at("plain")));
  ASSERT_EQ(::symlink("../one", at("plain/link").c_str()), 0);
  EXPECT_TRUE(removeWithSubvolumes(folder(), "plain"));
  EXPECT_EQ(Scratch::contents(at("one/file")), "kept");
}

TEST_F(Subvolume, AFolderThatIsALinkIsNotEntered) {
  const std::string link = scratch_ / "link";
  ASSERT_EQ(::symlink(volume_->path().c_str(), link.c_str()), 0);
  EXPECT_FALSE(removeWithSubvolumes(link, "one"));
  EXPECT_TRUE(isSubvolume(folder(), "one"));
  EXPECT_TRUE(removeWithSubvolumes(volume_->path(), "one"));
  EXPECT_FALSE(Scratch::stands(at("one")));
}

TEST_F(Subvolume, OneThatAMountCoversIsLeftAlone) {
  for (const char* kind : {"memory", "itself"}) {
    const auto cover = kind == std::string("memory")
                           ? test::TestMount::memory(at("one"), "size=64k")
                           : test::TestMount::bind(at("one"), at("one"));
    ASSERT_TRUE(cover.isMounted());
    EXPECT_FALSE(isSubvolume(folder(), "one")) << kind;
    EXPECT_EQ(setSubvolumeReadOnly(folder(), "one", true).error().code, EXDEV) << kind;
    EXPECT_EQ(removeWithSubvolumes(folder(), "one").error().code, EBUSY) << kind;
  }
  EXPECT_EQ(Scratch::contents(at("one/file")), "kept");
}

TEST_F(Subvolume, OneInsideThatAMountCoversKeepsWhatHoldsIt) {
  nest("one", "inner");
  const auto cover = test::TestMount::memory(at("one/inner"), "size=64k");
  ASSERT_TRUE(cover.isMounted());
  ASSERT_TRUE(writeFile(at("one/inner/mounted"), "kept"));
  EXPECT_EQ(removeWithSubvolumes(folder(), "one").error().code, EBUSY);
  EXPECT_EQ(Scratch::contents(at("one/inner/mounted")), "kept");
}

TEST_F(Subvolume, GoesWithThoseInIt) {
  nest("one", "inner");
  nest("one/inner", "innermost");
  ASSERT_TRUE(setSubvolumeReadOnly(inside("one").get(), "inner", true));
  ASSERT_TRUE(setSubvolumeReadOnly(folder(), "one", true));
  EXPECT_TRUE(removeWithSubvolumes(folder(), "one"));
  EXPECT_FALSE(Scratch::stands(at("one")));
}

}  // namespace
}  // namespace halyard::host

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "host/files/umask.h"
#include "host/tree/move_item.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

ino_t inodeOf(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::vector<std::string> unfinishedItems(const Scratch& scratch) {
  std::vector<std::string> found;
  for (const std::string& name : listDirectory(scratch.path())) {
    if (name.starts_with(".halyard-")) found.push_back(name);
  }
  return found;
}

TEST(IsDirectory, IsTrueOfFoldersAndLinksToThem) {
  const Scratch scratch;
  scratch.makeFolder("folder");
  scratch.write("file");
  ASSERT_EQ(::symlink("folder", (scratch / "link").c_str()), 0);
  EXPECT_TRUE(isDirectory(scratch / "folder"));
  EXPECT_TRUE(isDirectory(scratch / "link"));
  EXPECT_FALSE(isDirectory(scratch / "file"));
  EXPECT_FALSE(isDirectory(scratch / "missing"));
}

TEST(IsExecutableFile, IsTrueOfFilesThatMayRunAndNeverOfFolders) {
  const Scratch scratch;
  scratch.write("program");
  scratch.write("text");
  scratch.makeFolder("folder");
  ASSERT_EQ(::chmod((scratch / "program").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("program", (scratch / "link").c_str()), 0);
  EXPECT_TRUE(isExecutableFile(scratch / "program"));
  EXPECT_TRUE(isExecutableFile(scratch / "link"));
  EXPECT_FALSE(isExecutableFile(scratch / "text"));
  EXPECT_FALSE(isExecutableFile(scratch / "folder"));
  EXPECT_FALSE(isExecutableFile(scratch / "missing"));
}

TEST(ReadAttributes, GivesOwnerGroupAndAllPermissionBits) {
  const Scratch scratch;
  const std::string path = scratch.write("file");
  ASSERT_EQ(::chmod(path.c_str(), 04751), 0);
  const auto attributes = readAttributes(path);
  ASSERT_TRUE(attributes.has_value());
  EXPECT_EQ(attributes->owner, ::geteuid());
  EXPECT_EQ(attributes->permissions, 04751U);
}

TEST(CreateDirectory, WithoutAttributesObeysTheUmask) {
  const Scratch scratch;
  const ScopedUmask mask(027);
  EXPECT_TRUE(createDirectory(scratch / "new"));
  EXPECT_EQ(modeOf(scratch / "new"), 0750U);
}

TEST(CreateDirectory, WithAttributesIsExactWhateverTheUmask) {
  const Scratch scratch;
  const ScopedUmask mask(077);
  EXPECT_TRUE(createDirectory(scratch / "new", Attributes{::geteuid(), ::getegid(), 03775}));
  EXPECT_EQ(modeOf(scratch / "new"), 03775U);
}

TEST(CreateDirectory, GivesTheFolderItsOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const Scratch scratch;
  EXPECT_TRUE(createDirectory(scratch / "new", Attributes{1234, 2345, 0700}));
  const auto attributes = readAttributes(scratch / "new");
  ASSERT_TRUE(attributes.has_value());
  EXPECT_EQ(attributes->owner, 1234U);
  EXPECT_EQ(attributes->group, 2345U);
}

TEST(CreateDirectory, AnAccountThatTheHostLacksLeavesThatPart) {
  const Scratch scratch;
  const NamedAttributes attributes{"root", "no-such-group-here", 0775};
  EXPECT_TRUE(createDirectory(scratch / "new", attributes));
  const auto made = readAttributes(scratch / "new");
  ASSERT_TRUE(made.has_value());
  EXPECT_EQ(made->group, ::getegid());
  EXPECT_EQ(made->permissions, 0775U);
}

TEST(CreateDirectory, MakesNoIntermediateFolders) {
  const Scratch scratch;
  EXPECT_FALSE(createDirectory(scratch / "a/b"));
  EXPECT_FALSE(createDirectory(scratch / "a/b", Attributes{}));
  EXPECT_FALSE(Scratch::stands(scratch / "a"));
}

TEST(CreateDirectory, FailsWhereAnythingStands) {
  const Scratch scratch;
  scratch.write("file", "kept");
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  EXPECT_FALSE(createDirectory(scratch.path()));
  EXPECT_FALSE(createDirectory(scratch / "file", Attributes{}));
  EXPECT_FALSE(createDirectory(scratch / "dangling", Attributes{}));
  EXPECT_EQ(Scratch::contents(scratch / "file"), "kept");
}

TEST(ListDirectory, IsInByteOrderWithoutTheTwoDots) {
  const Scratch scratch;
  for (const char* name : {"b", "a", "B", ".hidden", "\xC3\xA9"}) scratch.write(name);
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre(".hidden", "B", "a", "b", "\xC3\xA9"));
}

TEST(ListDirectory, IsEmptyForWhatCannotBeListed) {
  const Scratch scratch;
  scratch.write("file");
  EXPECT_THAT(listDirectory(""), IsEmpty());
  EXPECT_THAT(listDirectory(scratch / "file"), IsEmpty());
  EXPECT_THAT(listDirectory(scratch / "missing"), IsEmpty());
}

TEST(ReadFile, GivesAllBytes) {
  const Scratch scratch;
  const std::string bytes = std::string(200000, 'x') + '\0' + "end";
  EXPECT_EQ(readFile(scratch.write("file", bytes), 1 << 20), bytes);
  EXPECT_EQ(readFile(scratch.write("empty"), 0), "");
}

TEST(ReadFile, ReadsFilesThatReportNoSize) {
  const auto bytes = readFile("/proc/self/status", 1 << 20);
  if (!exists("/proc/self/status")) GTEST_SKIP() << "no /proc here";
  ASSERT_TRUE(bytes.has_value());
  EXPECT_FALSE(bytes->empty());
}

TEST(ReadFile, RefusesAFileOverItsLimit) {
  const Scratch scratch;
  const std::string path = scratch.write("file", "12345");
  EXPECT_EQ(readFile(path, 5), "12345");
  EXPECT_EQ(readFile(path, 4), std::nullopt);
}

TEST(ReadFile, NeverWaitsForAFifo) {
  const Scratch scratch;
  ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(readFile(scratch / "fifo", 100), std::nullopt);
}

TEST(ReadFile, RefusesFoldersDevicesAndMissingFiles) {
  const Scratch scratch;
  EXPECT_EQ(readFile(scratch.path(), 100), std::nullopt);
  EXPECT_EQ(readFile("/dev/zero", 100), std::nullopt);
  EXPECT_EQ(readFile(scratch / "missing", 100), std::nullopt);
  EXPECT_EQ(readFile("", 100), std::nullopt);
}

TEST(WriteFile, ReplacesWhatIsThereAndLeavesNothingElse) {
  const Scratch scratch;
  EXPECT_TRUE(writeFile(scratch / "file", "first"));
  const ino_t first = inodeOf(scratch / "file");
  EXPECT_TRUE(writeFile(scratch / "file", "second", Durability::power));
  EXPECT_EQ(Scratch::contents(scratch / "file"), "second");
  EXPECT_NE(inodeOf(scratch / "file"), first);
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("file"));
}

TEST(WriteFile, ObeysTheUmask) {
  const Scratch scratch;
  const ScopedUmask mask(026);
  EXPECT_TRUE(writeFile(scratch / "file", ""));
  EXPECT_EQ(modeOf(scratch / "file"), 0640U);
}

TEST(WriteFile, ReplacesAPlantedLinkAndLeavesItsTarget) {
  const Scratch scratch;
  scratch.write("target", "kept");
  ASSERT_EQ(::symlink("target", (scratch / "file").c_str()), 0);
  EXPECT_TRUE(writeFile(scratch / "file", "new"));
  EXPECT_EQ(Scratch::contents(scratch / "target"), "kept");
  EXPECT_EQ(Scratch::contents(scratch / "file"), "new");
}

TEST(WriteFile, ReplacesAPlantedFifoWithoutWaiting) {
  const Scratch scratch;
  ASSERT_EQ(::mkfifo((scratch / "file").c_str(), 0600), 0);
  EXPECT_TRUE(writeFile(scratch / "file", "new"));
  EXPECT_EQ(Scratch::contents(scratch / "file"), "new");
}

TEST(WriteFile, FailsOverAFolderAndLeavesNothing) {
  const Scratch scratch;
  scratch.makeFolder("folder");
  EXPECT_FALSE(writeFile(scratch / "folder", "new"));
  EXPECT_FALSE(writeFile(scratch / "missing/file", "new"));
  EXPECT_FALSE(writeFile("", "new"));
  EXPECT_FALSE(writeFile("/", "new"));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("folder"));
}

TEST(WriteFile, AFileThatCannotBeWrittenInFullKeepsTheOldOne) {
  const Scratch scratch;
  scratch.write("file", "old");
  const auto writeUnderLimit = [&] {
    const struct rlimit limit = {4096, 4096};
    ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::_Exit(writeFile(scratch / "file", std::string(10000, 'x')) ? 1 : 0);
  };
  EXPECT_EXIT(writeUnderLimit(), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Scratch::contents(scratch / "file"), "old");
  EXPECT_THAT(unfinishedItems(scratch), IsEmpty());
}

/// What writeFileAndReadBack hands back of two pieces; absent when it answers false.
std::optional<std::string> writtenAndReadBack(const std::string& path, const std::string& first,
                                              const std::string& second) {
  std::string back;
  const auto produce = [&](const PieceSink& sink) {
    sink(first);
    sink(second);
  };
  const auto collect = [&](std::string_view piece) { back += piece; };
  if (!writeFileAndReadBack(path, produce, collect)) return std::nullopt;
  return back;
}

TEST(WriteFileAndReadBack, GivesTheBytesThatItWrote) {
  const Scratch scratch;
  EXPECT_EQ(writtenAndReadBack(scratch / "file", "some ", "bytes"), "some bytes");
  EXPECT_EQ(Scratch::contents(scratch / "file"), "some bytes");
  EXPECT_EQ(writtenAndReadBack(scratch / "empty", "", ""), "");
  const std::string large(200000, 'x');
  EXPECT_EQ(writtenAndReadBack(scratch / "large", large, "y"), large + "y");
}

TEST(WriteFileAndReadBack, IsAbsentWhereAFolderWasPlanted) {
  const Scratch scratch;
  scratch.makeFolder("file/inner");
  EXPECT_EQ(writtenAndReadBack(scratch / "file", "by", "tes"), std::nullopt);
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("file"));
}

TEST(CreateOrEmptyFile, GivesANewFileTheExactMode) {
  const Scratch scratch;
  const ScopedUmask mask(077);
  EXPECT_TRUE(createOrEmptyFile(scratch / "log", 0770));
  EXPECT_EQ(modeOf(scratch / "log"), 0770U);
}

TEST(CreateOrEmptyFile, EmptiesAFileInPlaceAndKeepsItsMode) {
  const Scratch scratch;
  const std::string path = scratch.write("log", "text");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  const ino_t before = inodeOf(path);
  EXPECT_TRUE(createOrEmptyFile(path, 0770));
  EXPECT_EQ(Scratch::contents(path), "");
  EXPECT_EQ(modeOf(path), 0640U);
  EXPECT_EQ(inodeOf(path), before);
}

TEST(CreateOrEmptyFile, FollowsALinkToAFileAndToOneThatIsToBe) {
  const Scratch scratch;
  scratch.write("real", "text");
  ASSERT_EQ(::symlink("real", (scratch / "link").c_str()), 0);
  ASSERT_EQ(::symlink("later", (scratch / "dangling").c_str()), 0);
  EXPECT_TRUE(createOrEmptyFile(scratch / "link", 0770));
  EXPECT_EQ(Scratch::contents(scratch / "real"), "");
  EXPECT_TRUE(createOrEmptyFile(scratch / "dangling", 0770));
  EXPECT_EQ(modeOf(scratch / "later"), 0770U);
}

TEST(CreateOrEmptyFile, NeverWaitsForAFifoAndLeavesOtherItemsAlone) {
  const Scratch scratch;
  ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
  scratch.write("folder/file", "kept");
  EXPECT_FALSE(createOrEmptyFile(scratch / "fifo", 0770));
  EXPECT_FALSE(createOrEmptyFile(scratch / "folder", 0770));
  EXPECT_FALSE(createOrEmptyFile("/dev/null", 0770));
  EXPECT_FALSE(createOrEmptyFile(scratch / "missing/log", 0770));
  EXPECT_FALSE(createOrEmptyFile("", 0770));
  EXPECT_EQ(Scratch::contents(scratch / "folder/file"), "kept");
}

TEST(AppendFile, WritesAtTheEndOfTheMoment) {
  const Scratch scratch;
  const std::string path = scratch.write("log", "one\n");
  const AppendFile log(path);
  log.append("two\n");
  scratch.write("log", "");  // Emptied by another.
  log.append("three\n");
  EXPECT_EQ(Scratch::contents(path), "three\n");
}

TEST(AppendFile, KeepsItsFileWhenTheNameGoesToAnother) {
  const Scratch scratch;
  const std::string path = scratch.write("log", "old\n");
  const AppendFile log(path);
  ASSERT_EQ(::rename(path.c_str(), (scratch / "old").c_str()), 0);
  scratch.write("log", "new\n");
  log.append("more\n");
  EXPECT_EQ(Scratch::contents(path), "new\n");
  EXPECT_EQ(Scratch::contents(scratch / "old"), "old\nmore\n");
}

TEST(AppendFile, WritesNothingWithoutARegularFile) {
  const Scratch scratch;
  ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
  AppendFile(scratch / "missing").append("text");
  AppendFile(scratch / "fifo").append("text");
  AppendFile().append("text");
  EXPECT_FALSE(Scratch::stands(scratch / "missing"));
}

TEST(MoveItem, RenamesFilesFoldersAndLinksThemselves) {
  const Scratch scratch;
  scratch.write("file", "text");
  scratch.write("folder/inner", "text");
  ASSERT_EQ(::symlink("nothing", (scratch / "link").c_str()), 0);
  EXPECT_TRUE(moveItem(scratch / "file", scratch / "file2"));
  EXPECT_TRUE(moveItem(scratch / "folder/", scratch / "folder2/"));
  EXPECT_TRUE(moveItem(scratch / "link", scratch / "link2"));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("file2", "folder2", "link2"));
}

TEST(MoveItem, NeverReplacesWhatIsThere) {
  const Scratch scratch;
  scratch.write("file", "kept");
  scratch.makeFolder("empty");
  scratch.makeFolder("other");
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  EXPECT_FALSE(moveItem(scratch / "other", scratch / "empty"));
  EXPECT_FALSE(moveItem(scratch / "file", scratch / "dangling"));
  EXPECT_FALSE(moveItem(scratch / "file", scratch / "file"));
  EXPECT_EQ(Scratch::contents(scratch / "file"), "kept");
  EXPECT_TRUE(Scratch::stands(scratch / "other"));
}

TEST(MoveItem, FailsWithoutASourceOrAFolderToMoveTo) {
  const Scratch scratch;
  scratch.makeFolder("folder");
  EXPECT_FALSE(moveItem(scratch / "missing", scratch / "new"));
  EXPECT_FALSE(moveItem(scratch / "folder", scratch / "missing/new"));
  EXPECT_FALSE(moveItem(scratch / "folder", scratch / "folder/inside"));
  EXPECT_FALSE(moveItem("", scratch / "new"));
  EXPECT_FALSE(moveItem(scratch / "folder", ""));
  EXPECT_TRUE(Scratch::stands(scratch / "folder"));
}

TEST(RealPathAsFarAsItLeads, EndsWithTheFirstNameThatIsNotThere) {
  const Scratch scratch;
  const std::string real = realPath(scratch.makeFolder("real")).value_or("");
  ASSERT_EQ(::symlink("real/missing/deeper", (scratch / "link").c_str()), 0);
  EXPECT_EQ(realPath(scratch / "link"), std::nullopt);
  EXPECT_EQ(realPathAsFarAsItLeads(scratch / "link/below"), real + "/missing");
  EXPECT_EQ(realPathAsFarAsItLeads(scratch / "real/."), real);
}

}  // namespace
}  // namespace halyard::host

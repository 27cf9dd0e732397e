// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The data and configuration files that a backup copies into a service's folder.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

std::string failed(const std::string& source, const std::string& destination) {
  return "Failed to copy " + source + " to " + destination + "; ret -> 0\n";
}

class BackupCopies : public PrivateRootTest {
 protected:
  // The plug-in makes the folders named in `made` inside the service folder, as real ones do.
  CommandResult backUp(const std::vector<std::string>& data,
                       const std::vector<std::string>& configuration = {},
                       const std::string& made = "") {
    std::string body = "[ \"$2\" = backup ] || exit 0\n";
    if (!made.empty()) body += "mkdir -p \"$4" + made + "\"";
    root.writePlugin("/opt/plugin", body);
    root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/plugin")
                                           .list("DataFiles", data)
                                           .list("ConfigurationFiles", configuration));
    CommandResult result = root.run(kBackup);
    EXPECT_EQ(result.status, 0);
    return result;
  }

  struct stat statusOf(const std::string& inside) {
    struct stat status {};
    EXPECT_EQ(lstat(root.path(inside).c_str(), &status), 0) << inside;
    return status;
  }
};

TEST_F(BackupCopies, AFileLandsUnderItsWholePath) {
  root.writeFile("/srv/web", "content");
  const auto result = backUp({"/srv/web"}, {}, "/srv");
  EXPECT_EQ(root.readFile("/.Halyards/x/srv/web"), "content");
  EXPECT_THAT(result.out, Not(HasSubstr("Failed to copy")));
}

TEST_F(BackupCopies, TheFolderThatHoldsAFileIsNotMade) {
  root.writeFile("/private/etc/x.conf", "c");
  const auto result = backUp({"/private/etc/x.conf"});
  EXPECT_THAT(result.out,
              HasSubstr(failed("/private/etc/x.conf", "/.Halyards/x/private/etc/x.conf")));
  EXPECT_TRUE(root.isFolder("/.Halyards/x/private"));
  EXPECT_FALSE(root.exists("/.Halyards/x/private/etc"));
}

TEST_F(BackupCopies, AFileAtTheTopNeedsNoFolder) {
  root.writeFile("/top", "content");
  backUp({"/top"});
  EXPECT_EQ(root.readFile("/.Halyards/x/top"), "content");
}

TEST_F(BackupCopies, MirroredFoldersGetTheAttributesOfTheLevelAbove) {
  root.makeFolder("/a", 0711);
  root.makeFolder("/a/b", 0750);
  root.writeFile("/a/b/c/d", "x");
  ASSERT_EQ(chown(root.path("/a").c_str(), 33, 80), 0);
  ASSERT_EQ(chmod(root.path("/").c_str(), 0701), 0);
  backUp({"/a/b/c/d"});
  EXPECT_EQ(root.modeOf("/.Halyards/x/a"), 0701U);    // Those of "/".
  EXPECT_EQ(root.modeOf("/.Halyards/x/a/b"), 0711U);  // Those of "/a".
  EXPECT_EQ(statusOf("/.Halyards/x/a/b").st_uid, 33U);
  EXPECT_EQ(statusOf("/.Halyards/x/a/b").st_gid, 80U);
  EXPECT_FALSE(root.exists("/.Halyards/x/a/b/c"));
}

TEST_F(BackupCopies, AMissingSourceIsTold) {
  EXPECT_THAT(backUp({"/gone"}).out, HasSubstr(failed("/gone", "/.Halyards/x/gone")));
}

TEST_F(BackupCopies, AFileListedTwiceIsCopiedOnce) {
  root.writeFile("/top", "content");
  const auto result = backUp({"/top"}, {"/top"});
  EXPECT_THAT(result.out, HasSubstr(failed("/top", "/.Halyards/x/top")));
  EXPECT_EQ(root.readFile("/.Halyards/x/top"), "content");
}

TEST_F(BackupCopies, AFailedCopyDoesNotStopTheNext) {
  root.writeFile("/top", "content");
  backUp({"/gone", "/top"});
  EXPECT_EQ(root.readFile("/.Halyards/x/top"), "content");
}

TEST_F(BackupCopies, AnEntryThatIsNotAbsoluteIsAFailedCopy) {
  root.writeFile("/top", "content");
  const auto result = backUp({"top"});
  EXPECT_THAT(result.out, HasSubstr(failed("top", "/.Halyards/x/top")));
  EXPECT_FALSE(root.exists("/.Halyards/x/top"));
}

TEST_F(BackupCopies, AnEmptyEntryIsAFailedCopy) {
  EXPECT_THAT(backUp({""}).out, HasSubstr(failed("", "/.Halyards/x/")));
}

TEST_F(BackupCopies, TheRootIsNeverCopiedIntoItself) {
  EXPECT_THAT(backUp({"/"}).out, HasSubstr(failed("/", "/.Halyards/x/")));
  EXPECT_THAT(root.list("/.Halyards/x"), IsEmpty());
}

TEST_F(BackupCopies, TheDestinationIsShownAsItIsJoined) {
  EXPECT_THAT(backUp({"//gone", "/a//gone"}).out,
              HasSubstr(failed("//gone", "/.Halyards/x//gone") +
                        failed("/a//gone", "/.Halyards/x/a//gone")));
  root.writeDescriptor("10-x.plist", descriptorOf("", "/opt/plugin").list("DataFiles", {"/gone"}));
  EXPECT_THAT(root.run(kBackup).out, HasSubstr(failed("/gone", "/.Halyards//gone")));
}

TEST_F(BackupCopies, TheMetadataFolderIsNeverCopiedIntoItself) {
  const auto result = backUp({"/.Halyards"});
  EXPECT_THAT(result.out, HasSubstr(failed("/.Halyards", "/.Halyards/x/.Halyards")));
  EXPECT_FALSE(root.exists("/.Halyards/x/.Halyards"));
}

TEST_F(BackupCopies, ConfigurationFilesFollowDataFilesAndAreLogged) {
  root.writeFile("/data", "d");
  root.writeFile("/conf", "c");
  const auto result = backUp({"/data"}, {"/conf", "/gone"});
  EXPECT_THAT(result.err, HasSubstr("] SRC := /conf\nDST := /.Halyards/x\n"));
  EXPECT_THAT(result.err, HasSubstr("] SRC := /gone\nDST := /.Halyards/x\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("SRC := /data")));
  EXPECT_THAT(result.out, HasSubstr(failed("/gone", "/.Halyards/x/gone")));
  EXPECT_THAT(root.list("/.Halyards/x"), ElementsAre("conf", "data"));
}

TEST_F(BackupCopies, AFolderIsCopiedWithEverythingInIt) {
  root.writeFile("/site/index.html", "page", 0640);
  root.writeFile("/site/run", "run", 04755);
  root.makeFolder("/site/empty", 0700);
  root.makeLink("/site/link", "index.html");
  root.makeLink("/site/dangling", "/nowhere");
  ASSERT_EQ(link(root.path("/site/index.html").c_str(), root.path("/site/same").c_str()), 0);
  root.runProgram("/usr/bin/mkfifo", {"/site/fifo"});
  ASSERT_EQ(chown(root.path("/site/index.html").c_str(), 33, 33), 0);
  backUp({"/site"});

  EXPECT_THAT(root.list("/.Halyards/x/site"),
              ElementsAre("dangling", "empty", "fifo", "index.html", "link", "run", "same"));
  EXPECT_EQ(root.readFile("/.Halyards/x/site/index.html"), "page");
  const auto page = statusOf("/.Halyards/x/site/index.html");
  EXPECT_EQ(page.st_uid, 33U);
  EXPECT_EQ(page.st_mode & 07777U, 0640U);
  EXPECT_EQ(page.st_ino, statusOf("/.Halyards/x/site/same").st_ino);
  EXPECT_EQ(page.st_mtim.tv_nsec, statusOf("/site/index.html").st_mtim.tv_nsec);
  EXPECT_EQ(root.modeOf("/.Halyards/x/site/run"), 04755U);
  EXPECT_EQ(root.modeOf("/.Halyards/x/site/empty"), 0700U);
  EXPECT_TRUE(S_ISLNK(statusOf("/.Halyards/x/site/dangling").st_mode));
  EXPECT_TRUE(S_ISFIFO(statusOf("/.Halyards/x/site/fifo").st_mode));
}

TEST_F(BackupCopies, ALinkItselfIsCopied) {
  root.writeFile("/real", "x");
  root.makeLink("/link", "/real");
  root.makeLink("/dangling", "/nowhere");
  backUp({"/link", "/dangling"});
  EXPECT_TRUE(S_ISLNK(statusOf("/.Halyards/x/link").st_mode));
  EXPECT_TRUE(S_ISLNK(statusOf("/.Halyards/x/dangling").st_mode));
}

TEST_F(BackupCopies, ExtendedAttributesAreKept) {
  root.writeFile("/top", "content");
  if (setxattr(root.path("/top").c_str(), "user.note", "kept", 4, 0) != 0)
    GTEST_SKIP() << "the file system has no extended attributes";
  backUp({"/top"});
  char value[16] = {};
  EXPECT_EQ(getxattr(root.path("/.Halyards/x/top").c_str(), "user.note", value, sizeof value), 4);
  EXPECT_STREQ(value, "kept");
}

TEST_F(BackupCopies, WhatThePluginLeftThereIsNotReplaced) {
  root.writeFile("/site/index.html", "live");
  const auto result = backUp({"/site"}, {}, "/site");
  EXPECT_THAT(result.out, HasSubstr(failed("/site", "/.Halyards/x/site")));
  EXPECT_THAT(root.list("/.Halyards/x/site"), IsEmpty());
}

TEST_F(BackupCopies, NamesWithBlanksAndOddLettersAreOnePath) {
  const std::string name = "/my file %s \xC3\xA9\n\xF0\x9F\x9A\xA2";
  root.writeFile(name, "odd");
  backUp({name});
  EXPECT_EQ(root.readFile("/.Halyards/x" + name), "odd");
}

TEST_F(BackupCopies, EntriesThatAreNoTextAreSkipped) {
  root.writeFile("/top", "content");
  root.writePlugin("/opt/plugin");
  root.writeDescriptor("10-x.plist",
                       descriptorOf("x", "/opt/plugin")
                           .raw("DataFiles",
                                "<array><integer>1</integer><string>/top</string><dict/><true/>"
                                "<array><string>/etc</string></array></array>"));
  EXPECT_THAT(root.run(kBackup).out, Not(HasSubstr("Failed to copy")));
  EXPECT_THAT(root.list("/.Halyards/x"), ElementsAre("top"));
}

}  // namespace
}  // namespace halyard::test

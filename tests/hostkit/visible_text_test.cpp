// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Names that would steer a terminal, and the folders that root does not own alone.
#include "common/visible_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/safe_folder.h"
#include "common/table.h"
#include "host/files/files.h"
#include "host_kit_root.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(VisibleText, KeepsWhatPeopleRead) {
  for (const char* text : {"", "plain", "Größe 東京 🚢", "a\tb", "back\\slash"}) {
    EXPECT_EQ(visibleText(text), text);
  }
}

TEST(VisibleText, EscapesWhatSteersATerminal) {
  EXPECT_EQ(visibleText("\x1b[2J"), "\\x1B[2J");
  EXPECT_EQ(visibleText("a\nb\rc\x7f"), "a\\x0Ab\\x0Dc\\x7F");
  EXPECT_EQ(visibleText(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(visibleText("\xC2\x9B"
                        "31m"),
            "\\xC2\\x9B31m")
      << "the control sequence in one character";
  EXPECT_EQ(visibleText("\xE2\x80\xAE"
                        "gpj.exe"),
            "\\xE2\\x80\\xAEgpj.exe")
      << "it turns the writing";
}

TEST(VisibleText, EscapesBytesThatAreNoText) {
  EXPECT_EQ(visibleText("\xFF"
                        "a"),
            "\\xFFa");
  EXPECT_EQ(visibleText("a\xC3"), "a\\xC3") << "it ends too early";
  EXPECT_EQ(visibleText("\xC0\x8A"), "\\xC0\\x8A") << "a line feed in a longer form";
  EXPECT_EQ(visibleText("\xED\xA0\x80"), "\\xED\\xA0\\x80") << "half of a pair";
  EXPECT_EQ(visibleText("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80") << "beyond the last character";
}

TEST(VisibleText, IsWhatTablesShow) {
  EXPECT_EQ(tableText({{"a\x1b", "b"}, {"c", "d"}}), "a\\x1B  b\nc      d\n");
}

TEST(SafeFolder, IsNotReachedThroughALink) {
  const test::Scratch scratch;
  scratch.makeFolder("real/inner");
  ASSERT_EQ(::symlink((scratch / "real").c_str(), (scratch / "link").c_str()), 0);
  EXPECT_TRUE(openFolderSafely(scratch / "real/inner"));
  EXPECT_FALSE(openFolderSafely(scratch / "link/inner"));
  EXPECT_FALSE(openFolderSafely(scratch / "link"));
  EXPECT_FALSE(openFolderSafely("real"));
}

TEST(SafeFolder, ReplacesALinkAndNotWhatItLeadsTo) {
  const test::Scratch scratch;
  const auto folder = openFolderSafely(scratch.makeFolder("folder"));
  ASSERT_TRUE(folder);
  scratch.write("secret", "kept");
  ASSERT_EQ(::chmod((scratch / "secret").c_str(), 0600), 0);
  ASSERT_EQ(::symlink((scratch / "secret").c_str(), (scratch / "folder/file").c_str()), 0);
  EXPECT_EQ(readFileSafely(*folder, "file", 64), std::nullopt);
  EXPECT_TRUE(host::writeFileAt(folder->get(), "file", "new", host::Durability::power, 0644));
  EXPECT_EQ(readFileSafely(*folder, "file", 64), "new");
  EXPECT_EQ(readFileSafely(*folder, "file", 2), std::nullopt) << "longer than the limit";
  struct stat status {};
  ASSERT_EQ(::stat((scratch / "secret").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_size, 4);
}

TEST(SafeFolder, WaitsForNoFifo) {
  const test::Scratch scratch;
  const auto folder = openFolderSafely(scratch.makeFolder("folder"));
  ASSERT_TRUE(folder);
  ASSERT_EQ(::mkfifo((scratch / "folder/pipe").c_str(), 0600), 0);
  EXPECT_EQ(readFileSafely(*folder, "pipe", 64), std::nullopt);
}

using HelmsmanOutput = test::HostKitTest;

TEST_F(HelmsmanOutput, ANameOfTheRepositoryDoesNotSteerTheTerminal) {
  root.makeFolder(
      "/Volumes/Backup/Archives.snapdb/files1/evil\x1b[2J\nhelmsman: all is well/System/.Halyards");
  const auto result = helmsman({"snapshots"});
  EXPECT_THAT(result.out, HasSubstr("evil\\x1B[2J\\x0Ahelmsman: all is well"));
  EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
  const auto refusal = helmsman({"purge", "evil"});
  EXPECT_THAT(refusal.err, HasSubstr("evil\\x1B[2J"));
  EXPECT_THAT(refusal.err, Not(HasSubstr("\x1b")));
}

using HelmsmanMetricsFile = test::HostKitTest;

TEST_F(HelmsmanMetricsFile, IsNotWrittenWhereAPlantedLinkLeads) {
  root.makeFolder("/var/lib/prometheus");
  root.makeFolder("/secret", 0700);
  root.makeLink("/var/lib/prometheus/node-exporter", "/secret");
  const auto result = helmsman({"metrics", "--write"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("a part of the path is a link"));
  EXPECT_TRUE(root.list("/secret").empty());
}

TEST_F(HelmsmanMetricsFile, IsReadByOthersAndNothingElseBecomesSo) {
  root.makeFolder("/var/lib/prometheus/node-exporter");
  root.writeFile("/etc/secret", "x", 0600);
  root.makeLink("/var/lib/prometheus/node-exporter/halyard.prom", "/etc/secret");
  EXPECT_EQ(helmsman({"metrics", "--write"}).status, 0);
  EXPECT_EQ(root.modeOf("/etc/secret"), 0600U);
  EXPECT_EQ(root.modeOf("/var/lib/prometheus/node-exporter/halyard.prom"), 0644U);
  EXPECT_EQ(root.list("/var/lib/prometheus/node-exporter").size(), 1U);
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include "common/exclusions.h"
#include "support/build_paths.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

using hostkit::Exclusions;
using hostkit::kDefaultExclusions;

TEST(Exclusions, LeaveOutNothingWhenEmpty) {
  EXPECT_FALSE(Exclusions::parse("").match("etc/passwd"));
}

TEST(Exclusions, KeepAFolderWhoseContentsAreLeftOut) {
  const Exclusions list = Exclusions::parse("/proc/*\n");
  EXPECT_FALSE(list.match("proc"));
  EXPECT_TRUE(list.match("proc/1"));
  EXPECT_FALSE(list.match("home/proc"));
  EXPECT_FALSE(list.match("home/proc/1"));
}

TEST(Exclusions, MatchAWholePathExactly) {
  const Exclusions list = Exclusions::parse("/var/spool/\nsrv/scratch");
  EXPECT_TRUE(list.match("var/spool"));
  EXPECT_TRUE(list.match("srv/scratch"));
  EXPECT_FALSE(list.match("var/spool2"));
  EXPECT_FALSE(list.match("mnt/srv/scratch"));
}

TEST(Exclusions, MatchANameAnywhere) {
  const Exclusions list = Exclusions::parse("node_modules\n*.iso");
  EXPECT_TRUE(list.match("node_modules"));
  EXPECT_TRUE(list.match("home/a/node_modules"));
  EXPECT_TRUE(list.match("srv/debian.iso"));
  EXPECT_TRUE(list.match("x.iso"));
  EXPECT_FALSE(list.match("x.iso.txt"));
}

TEST(Exclusions, WildCardsMatchNoSlash) {
  const Exclusions list = Exclusions::parse("/home/*/.cache/*\n/var/log/?.gz");
  EXPECT_TRUE(list.match("home/a/.cache/x"));
  EXPECT_FALSE(list.match("home/a/.cache"));
  EXPECT_FALSE(list.match("home/a/b/.cache/x"));
  EXPECT_TRUE(list.match("var/log/1.gz"));
  EXPECT_FALSE(list.match("var/log/12.gz"));
}

TEST(Exclusions, SkipCommentsBlanksAndEmptyLines) {
  const Exclusions list = Exclusions::parse("# /etc\n\n  /tmp/*  \r\n");
  EXPECT_FALSE(list.match("etc"));
  EXPECT_TRUE(list.match("tmp/x"));
}

TEST(Exclusions, TakeAPathAsItIsWrittenWhenToldSo) {
  Exclusions list;
  list.addPath("srv/[a]*");
  EXPECT_TRUE(list.match("srv/[a]*"));
  EXPECT_FALSE(list.match("srv/aa"));
}

TEST(Exclusions, NeverTouchTheHandOverFolder) {
  Exclusions list = Exclusions::parse("/.Halyards\n.*\n*\n*.plist");
  list.addPath(".Halyards/depotHost");
  EXPECT_FALSE(list.match(".Halyards"));
  EXPECT_FALSE(list.match(".Halyards/depotHost"));
  EXPECT_FALSE(list.match(".Halyards/depotHost/etc/a.plist"));
  EXPECT_TRUE(list.match(".Halyardsx"));
  EXPECT_TRUE(list.match("home/.Halyards"));
}

TEST(Exclusions, HaveAFingerprintOfTheirOwn) {
  const Exclusions one = Exclusions::parse("/a\n/b\n");
  const Exclusions same = Exclusions::parse("# comment\n/a\n/b/\n");
  Exclusions path = Exclusions::parse("/a\n");
  path.addPath("/b");
  EXPECT_EQ(one.fingerprint(), same.fingerprint());
  EXPECT_NE(one.fingerprint(), path.fingerprint());
}

TEST(Exclusions, DefaultsKeepTheHostAndLeaveOutWhatItMakesAnew) {
  const Exclusions list = Exclusions::defaults();
  for (const char* kept : {"proc", "sys", "dev", "run", "tmp", "etc/passwd", "var/tmp/x",
                           "home/a/.config/x", "var/cache/bind/zone", "var/lib/dpkg/status",
                           "var/cache/apt", "private/var/db/.VantorSetupDone"}) {
    EXPECT_FALSE(list.match(kept)) << kept;
  }
  for (const char* left : {"proc/1", "sys/kernel", "dev/sda", "run/lock", "tmp/x", "swapfile",
                           "var/cache/apt/archives/a.deb", "home/a/.cache/x", "root/.cache/x",
                           "private/var/run/HalyardRunning.pid", "lost+found"}) {
    EXPECT_TRUE(list.match(left)) << left;
  }
}

TEST(Exclusions, AMissingFileGivesTheDefaults) {
  const test::Scratch scratch;
  const auto list = Exclusions::read(scratch / "missing");
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(list->fingerprint(), Exclusions::defaults().fingerprint());
}

TEST(Exclusions, AFileReplacesTheDefaults) {
  const test::Scratch scratch;
  const auto list = Exclusions::read(scratch.write("exclude", "/only/*\n"));
  ASSERT_TRUE(list.has_value());
  EXPECT_TRUE(list->match("only/x"));
  EXPECT_FALSE(list->match("proc/1"));
}

TEST(Exclusions, AnUnreadableFileIsNoList) {
  const test::Scratch scratch;
  EXPECT_FALSE(Exclusions::read(scratch.makeFolder("folder")).has_value());
}

TEST(Exclusions, TheInstalledListIsTheDefaultOne) {
  const std::string installed =
      test::Scratch::contents(test::sourceFolder() + "/packaging/etc/snapwheel.exclude");
  EXPECT_EQ(installed, std::string(kDefaultExclusions));
}

}  // namespace
}  // namespace halyard::snapwheel

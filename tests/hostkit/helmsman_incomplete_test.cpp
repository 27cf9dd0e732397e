// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Services that a backup could not take whole: the mark, and what respects it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/incomplete_mark.h"
#include "helmsman/run/incomplete_services.h"
#include "host_kit_root.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using Texts = std::vector<std::string>;

constexpr char kPlugin[] = "/usr/libexec/plugin";
constexpr char kHostFolder[] = "/Volumes/Backup/Archives.snapdb/files1";

// ---- the mark itself

TEST(IncompleteMark, KeepsItsReasonsOneALine) {
  const test::Scratch scratch;
  const std::string folder = scratch.makeFolder("metadata");
  EXPECT_EQ(incompleteReasons(folder, "postHost"), std::nullopt);
  EXPECT_TRUE(markIncomplete(folder, "postHost", {"no room", "two\nlines \x1b[31m"}));
  EXPECT_THAT(incompleteReasons(folder, "postHost"),
              Optional(ElementsAre("no room", "two?lines ?[31m")));
  EXPECT_TRUE(markIncomplete(folder, "postHost", {"another"}));
  EXPECT_THAT(incompleteReasons(folder, "postHost"), Optional(ElementsAre("another")));
}

TEST(IncompleteMark, IsNotWrittenThroughAPlantedLink) {
  const test::Scratch scratch;
  const std::string folder = scratch.makeFolder("metadata");
  scratch.makeFolder("elsewhere");
  ASSERT_EQ(::symlink((scratch / "elsewhere").c_str(), (folder + "/postHost").c_str()), 0);
  EXPECT_FALSE(markIncomplete(folder, "postHost", {"no room"}));
  EXPECT_NE(::access((scratch / "elsewhere/incomplete").c_str(), F_OK), 0);
  for (const char* name : {"", ".", "..", "a/b"}) EXPECT_FALSE(markIncomplete(folder, name, {}));
}

TEST(IncompleteMark, CountsWhateverStandsUnderItsName) {
  const test::Scratch scratch;
  const std::string folder = scratch.makeFolder("metadata");
  for (const char* name : {"link", "pipe", "empty"}) {
    scratch.makeFolder(std::string("metadata/") + name);
  }
  ASSERT_EQ(::symlink("/etc/passwd", (folder + "/link/incomplete").c_str()), 0);
  ASSERT_EQ(::mkfifo((folder + "/pipe/incomplete").c_str(), 0600), 0);
  scratch.write("metadata/empty/incomplete", "\n");
  for (const char* name : {"link", "pipe"}) {
    EXPECT_THAT(incompleteReasons(folder, name), Optional(ElementsAre("its mark cannot be read")));
  }
  EXPECT_THAT(incompleteReasons(folder, "empty"),
              Optional(ElementsAre("no reason was written down")));
}

// ---- backup

class HelmsmanIncomplete : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin, "exit 0");
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", kPlugin));
    root.writeDescriptor("40-postHost.plist", descriptorOf("postHost", kPlugin));
    root.writeScript("/usr/sbin/snapwheel",
                     std::string("case $1 in snapshot)\nhost=") + kHostFolder +
                         "\nname=2026-11-20-020000\nmkdir -p $host/$name/System\n"
                         "cp -a /.Halyards $host/$name/System/\n"
                         "echo \"{\\\"path\\\": \\\"$host/$name\\\"}\"\n;; esac\nexit 0");
  }
  static std::string inSnapshot(const std::string& path) {
    return std::string(kHostFolder) + "/2026-11-20-020000/System/.Halyards/" + path;
  }
};

TEST_F(HelmsmanIncomplete, AServiceThatFailedIsMarkedInTheSnapshot) {
  root.writePlugin("/usr/libexec/broken", "[ \"$2\" = backup ] && exit 7; exit 0");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  EXPECT_NE(helmsman({"backup"}).status, 0);
  EXPECT_EQ(root.readFile(inSnapshot("depotHost/incomplete")),
            "its backup program ended with status 7\n");
  EXPECT_FALSE(root.exists(inSnapshot("postHost/incomplete")));
}

TEST_F(HelmsmanIncomplete, AServiceWithoutAFolderIsMarkedToo) {
  root.writePlugin("/usr/libexec/broken", "[ \"$2\" = backup ] && rm -r \"$4\" && exit 7; exit 0");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  EXPECT_NE(helmsman({"backup"}).status, 0);
  EXPECT_THAT(root.readFile(inSnapshot("depotHost/incomplete")), HasSubstr("status 7"));
}

TEST_F(HelmsmanIncomplete, AMarkThatThePluginLeftMakesTheServiceFail) {
  root.writePlugin(kPlugin,
                   "[ \"$2\" = backup ] && case $4 in */depotHost) echo 'one mailbox is locked' "
                   ">\"$4/incomplete\";; esac; exit 0");
  const auto result = helmsman({"backup"});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("depotHost: its backup is incomplete: one mailbox is locked"));
  EXPECT_THAT(root.readFile(inSnapshot("depotHost/incomplete")),
              HasSubstr("one mailbox is locked"));
}

TEST_F(HelmsmanIncomplete, WithoutItsMarkThereIsNoSnapshot) {
  root.writePlugin("/usr/libexec/broken",
                   "[ \"$2\" = backup ] && rm -r \"$4\" && ln -s /tmp \"$4\" && exit 7; exit 0");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  const auto result = helmsman({"backup"});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("no snapshot is taken: depotHost could not be marked as "
                                    "incomplete in /.Halyards"));
  EXPECT_THAT(root.list(kHostFolder), IsEmpty());
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

// ---- what respects the mark

// Two snapshots with depotHost: the older one whole, the newer one marked.
class HelmsmanPart : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin,
                     "case $2 in verify) echo 'Number of failures to match := 0' ;;\n"
                     "browse) echo \"browsing $4\" ;;\nesac" +
                         std::string(test::kSayDone));
    root.writePreferences({{"depotHost", 1}, {"postHost", 1}});
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", kPlugin).list("DataFiles", {"/srv/depot"}));
    for (const std::string name : {kWhole, kMarked}) {
      root.writeFile(saved(name, "/srv/depot"), "data of " + name);
      root.writeFile(metadata(name) + "/.halyardSignature", name + "\n");
    }
    root.writeFile(saved(kMarked, "/incomplete"), "its backup program ended with status 7\n");
    root.makeLink(std::string(kHostFolder) + "/Latest", kMarked);
    root.writeFile("/srv/depot", "live");
  }
  static constexpr char kWhole[] = "2026-11-20-020000";
  static constexpr char kMarked[] = "2026-11-21-020000";
  static std::string metadata(const std::string& name) {
    return std::string(kHostFolder) + "/" + name + "/System/.Halyards";
  }
  static std::string saved(const std::string& name, const std::string& path) {
    return metadata(name) + "/depotHost" + path;
  }
};

TEST_F(HelmsmanPart, SnapshotsListsAMarkedServiceApartFromThoseThatAreHeld) {
  const auto json = helmsmanJson({"snapshots", "--json"}).dump();
  EXPECT_THAT(json, HasSubstr(R"("incomplete":[{"name":"depotHost","reasons":["its backup program )"
                              R"(ended with status 7"]}],"latest":true)"));
  const auto lines = test::linesOf(helmsman({"snapshots"}).out);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], HasSubstr("INCOMPLETE"));
  EXPECT_THAT(lines[1], testing::EndsWith("depotHost  -"));
  EXPECT_THAT(lines[2], testing::EndsWith("  -          depotHost"));
}

TEST_F(HelmsmanPart, AnUnsignedBackupHoldsNoServiceWhole) {
  root.remove(metadata(kWhole) + "/.halyardSignature");
  const auto json = helmsmanJson({"snapshots", "--json"}).dump();
  EXPECT_THAT(json, HasSubstr("the backup carries no signature: it was interrupted"));
}

TEST_F(HelmsmanPart, RestoreRefusesAMarkedServiceAndNamesTheNewestWholeOne) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"restore", "depot", "--yes"},
        std::vector<std::string>{"restore", "depot", "--yes", "--from", kMarked}}) {
    const auto result = helmsman(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "helmsman: depotHost is incomplete in 2026-11-21-020000: its backup program ended "
              "with status 7. The newest that holds it whole is 2026-11-20-020000: helmsman "
              "restore depotHost --from 2026-11-20-020000 --yes\n");
  }
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_EQ(root.readFile("/srv/depot"), "live");
}

TEST_F(HelmsmanPart, RestoreOffersTheNewestWholeOneOnATerminal) {
  auto result = helmsmanAnswered({"restore", "depot"}, "n\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("Take 2026-11-20-020000 instead? [y/N] "));
  EXPECT_EQ(root.readFile("/srv/depot"), "live");
  result = helmsmanAnswered({"restore", "depot"}, "y\ny\n");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/depot"), "data of 2026-11-20-020000");
}

TEST_F(HelmsmanPart, ForceRestoresThePartAndSaysSo) {
  const auto result = helmsman({"restore", "depot", "--yes", "--force"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("restored the part of depotHost that 2026-11-21-020000 holds"));
  EXPECT_THAT(result.err, Not(HasSubstr("restored depotHost")));
  EXPECT_EQ(root.readFile("/srv/depot"), "data of 2026-11-21-020000");
}

TEST_F(HelmsmanPart, RestoreSaysWhenNoSnapshotHoldsTheServiceWhole) {
  root.writeFile(saved(kWhole, "/incomplete"), "no room\n");
  EXPECT_THAT(helmsman({"restore", "depot", "--yes"}).err,
              HasSubstr("No snapshot holds it whole; --force restores what there is"));
}

TEST_F(HelmsmanPart, TheLatestOfAServiceIsTheNewestThatHoldsIt) {
  root.remove(metadata(kMarked) + "/depotHost");
  const auto result = helmsman({"restore", "depot", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("restored depotHost from 2026-11-20-020000"));
  EXPECT_EQ(root.readFile("/srv/depot"), "data of 2026-11-20-020000");
}

TEST_F(HelmsmanPart, VerifyComparesWithTheWholeOneAndWarnsOfAMark) {
  const auto latest = helmsman({"verify", "depot"});
  EXPECT_EQ(latest.status, 0) << latest.err;
  EXPECT_THAT(latest.out, HasSubstr("depotHost  0           2026-11-20-020000"));
  const auto named = helmsman({"verify", "depot", "--from", kMarked});
  EXPECT_EQ(named.status, 4);
  EXPECT_THAT(named.err, HasSubstr("warning: depotHost is incomplete in 2026-11-21-020000"));
}

TEST_F(HelmsmanPart, BrowseWarnsOfAMark) {
  EXPECT_THAT(helmsman({"browse", "depot"}).out,
              HasSubstr("browsing " + metadata(kWhole) + "/depotHost"));
  const auto named = helmsman({"browse", "depot", "--from", kMarked});
  EXPECT_EQ(named.status, 0);
  EXPECT_THAT(named.err, HasSubstr("warning: depotHost is incomplete in 2026-11-21-020000"));
}

}  // namespace
}  // namespace halyard::hostkit

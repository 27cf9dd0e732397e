// Services that a backup could not take whole: the mark, and what respects it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "helmsman/run/incomplete_services.h"
#include "helmsman/snapshots/incomplete_mark.h"
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

}  // namespace
}  // namespace halyard::hostkit

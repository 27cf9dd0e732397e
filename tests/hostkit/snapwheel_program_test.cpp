// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The built program at its fixed path in a private root: its commands, outputs and exit statuses,
// and what Halyard makes of its snapshots.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "host/files/descriptor.h"
#include "host_kit_root.h"
#include "support/forked.h"
#include "support/mounts.h"

namespace halyard::snapwheel {
namespace {

using test::CommandResult;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* kHostFolder = "/backup/Archives.snapdb/files1";

class SnapwheelProgram : public test::HostKitTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    installEngine();
    root.writeFile("/Library/Preferences/HostConfig/preferences.plist",
                   test::plistDocument(
                       "<dict><key>System</key><dict><key>System</key><dict><key>ComputerName</key>"
                       "<string>files1</string></dict></dict></dict>"));
    root.writeFile("/.Halyards/.halyardSignature", "signature");
    root.writeFile("/etc/halyard-host/snapwheel.exclude",
                   "/usr/*\n/lib*\n/bin/*\n/sbin/*\n/proc/*\n");
    root.writeFile("/srv/data", "data");
  }

  nlohmann::json listed() const {
    return nlohmann::json::parse(snapwheel({"list", "--json"}).out, nullptr, false)["snapshots"];
  }

  /// Takes one and gives its name.
  std::string take(const std::vector<std::string>& words = {"snapshot"}) const {
    const CommandResult result = snapwheel(words);
    EXPECT_EQ(result.status, 0) << result.err;
    const nlohmann::json snapshots = listed();
    return snapshots.empty() ? "" : snapshots.back()["name"].get<std::string>();
  }
};

TEST_F(SnapwheelProgram, TakesTheVolumesOfItsConfigurationAndOfItsWords) {
  root.writeFile("/etc/halyard-host/snapwheel.conf", "further-volume=[\"/one\", \"/two\"]\n");
  const CommandResult result =
      snapwheel({"snapshot", "--json", "--add-volume", "/three", "--add-volume", "/two"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(nlohmann::json::parse(result.out)["absentVolumes"],
              ElementsAre("/one", "/three", "/two"));
  EXPECT_THAT(result.err, HasSubstr("the volume at /one is not in the snapshot: "));
  EXPECT_EQ(snapwheel({"snapshot", "--add-volume", "../etc"}).status, 2);
}

TEST_F(SnapwheelProgram, LeavesOutWhatItsConfigurationAndItsWordsSay) {
  for (const char* name : {"one", "two", "three", "four"})
    root.writeFile(std::string("/srv/") + name, "");
  root.writeFile("/etc/halyard-host/snapwheel.conf", "exclude=[\"/srv/one\", \"/srv/two\"]\n");
  const auto holds = [&](const std::string& name, const char* file) {
    return root.exists(std::string(kHostFolder) + "/" + name + "/System/srv/" + file);
  };
  const std::string bare = take();
  EXPECT_FALSE(holds(bare, "one") || holds(bare, "two"));
  EXPECT_TRUE(holds(bare, "three"));
  const std::string name = take({"snapshot", "--exclude", "/srv/three"});
  EXPECT_FALSE(holds(name, "one") || holds(name, "two") || holds(name, "three"));
  EXPECT_TRUE(holds(name, "four") && holds(name, "data"));
  const std::string quoted = take({"snapshot", "--exclude", "/srv/*", "--exclude", "/nowhere"});
  EXPECT_FALSE(holds(quoted, "data"));
}

TEST_F(SnapwheelProgram, TakesASnapshotOfTheHostAsItsPreferencesSay) {
  const CommandResult result = snapwheel({"snapshot"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, AllOf(StartsWith(kHostFolder), HasSubstr(" shared with none")));
  const nlohmann::json snapshots = listed();
  ASSERT_THAT(snapshots, SizeIs(1));
  const std::string volume = snapshots[0]["path"].get<std::string>() + "/System";
  EXPECT_EQ(root.readFile(volume + "/srv/data"), "data");
  EXPECT_EQ(root.readFile(volume + "/.Halyards/.halyardSignature"), "signature");
  EXPECT_TRUE(root.isFolder(volume + "/backup"));
  EXPECT_FALSE(root.exists(volume + "/backup/Archives.snapdb"));
  EXPECT_FALSE(root.exists(volume + "/usr/sbin"));
}

TEST_F(SnapwheelProgram, HalyardListsAndPurgesItsSnapshots) {
  const std::string name = take();
  EXPECT_THAT(root.run({"-cmd", "list"}).out, HasSubstr(name));
  const std::string path = std::string(kHostFolder) + "/" + name;
  (void)root.run({"-cmd", "purgeSnapShot", "-path", path});  // Its status says nothing of success.
  EXPECT_FALSE(root.exists(path));
  // The link that is left behind is told, and the next snapshot moves it.
  EXPECT_EQ(snapwheel({"check"}).status, 1);
  take();
  EXPECT_EQ(snapwheel({"check"}).status, 0);
}

TEST_F(SnapwheelProgram, LatestLeadsToTheNewestWhateverWasRemovedByOthers) {
  const std::string folder = std::string(kHostFolder) + "/";
  const std::string first = take();
  const std::string second = take();
  const std::string third = take();
  root.remove(folder + third);
  EXPECT_EQ(snapwheel({"latest"}).out, folder + second + "\n");
  EXPECT_EQ(snapwheel({"check"}).status, 0);
  root.remove(folder + second);
  EXPECT_EQ(snapwheel({"latest"}).out, folder + first + "\n");
  EXPECT_TRUE(root.exists(folder + "Latest/System"));
  const std::string fourth = take();
  root.remove(folder + fourth);
  EXPECT_EQ(snapwheel({"delete", first}).status, 0);
  EXPECT_FALSE(std::filesystem::is_symlink(root.path(folder + "Latest")))
      << "the removal of another one settles it, too";
  const CommandResult none = snapwheel({"latest"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.out, "");
  EXPECT_THAT(none.err, HasSubstr("there is no snapshot in"));
}

TEST_F(SnapwheelProgram, ListsWhatThereIs) {
  const std::string first = take();
  const std::string second = take();
  const auto lines = test::linesOf(snapwheel({"list"}).out);
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], StartsWith("SNAPSHOT"));
  EXPECT_THAT(lines[1], StartsWith(first));
  EXPECT_THAT(lines[2], AllOf(StartsWith(second), HasSubstr("latest")));
  EXPECT_EQ(listed()[1]["reference"], first);
}

TEST_F(SnapwheelProgram, ListsNothingWithoutAFailure) {
  const CommandResult result = snapwheel({"list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "snapwheel: there is no snapshot in /backup/Archives.snapdb/files1\n");
}

TEST_F(SnapwheelProgram, ListsEveryComputerOnRequest) {
  take();
  take({"snapshot", "--computer", "web1"});
  const auto lines = test::linesOf(snapwheel({"list", "--all"}).out);
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[1], StartsWith("files1/"));
  EXPECT_THAT(lines[2], StartsWith("web1/"));
}

TEST_F(SnapwheelProgram, RestoresOntoAnEmptyFolder) {
  take();
  const CommandResult result = snapwheel({"restore", "latest", "--to", "/restored"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("/restored: "));
  EXPECT_EQ(root.readFile("/restored/srv/data"), "data");
  const CommandResult again = snapwheel({"restore", "latest", "--to", "/restored"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("/restored is not empty"));
}

TEST_F(SnapwheelProgram, RestoresByPathWithoutAnyPreferences) {
  const std::string path = std::string(kHostFolder) + "/" + take();
  root.remove("/Library/Preferences/com.vantor.Snapwheel.plist");
  EXPECT_EQ(snapwheel({"restore", path, "--to", "/restored"}).status, 0);
  EXPECT_EQ(root.readFile("/restored/srv/data"), "data");
}

TEST_F(SnapwheelProgram, NeverRestoresOntoTheRunningSystemUnasked) {
  take();
  const CommandResult result = snapwheel({"restore", "latest", "--to", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("root of the running system"));
}

TEST_F(SnapwheelProgram, DeletesByNameAndAnswersForWhatIsNotThere) {
  const std::string name = take();
  EXPECT_EQ(snapwheel({"delete", name}).status, 0);
  EXPECT_THAT(root.list(kHostFolder), ElementsAre(".lock"));
  const CommandResult again = snapwheel({"delete", name});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("there is no snapshot \"" + name + "\""));
}

TEST_F(SnapwheelProgram, DeletesNothingWhenOneOfTheNamesIsWrong) {
  const std::string name = take();
  EXPECT_EQ(snapwheel({"delete", name, "2001-01-01-000000"}).status, 1);
  EXPECT_THAT(listed(), SizeIs(1));
}

TEST_F(SnapwheelProgram, PrunesByTheConfigurationFile) {
  const std::string first = take();
  const std::string second = take();
  root.writeFile("/etc/halyard-host/snapwheel.conf", "keep-last=1\n");
  const CommandResult shown = snapwheel({"prune", "--dry-run"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out, "remove " + first + "\nkeep   " + second + "  latest, last\n");
  EXPECT_THAT(listed(), SizeIs(2));
  EXPECT_EQ(snapwheel({"prune"}).status, 0);
  EXPECT_THAT(listed(), SizeIs(1));
}

TEST_F(SnapwheelProgram, PrunesAfterASnapshotOnRequest) {
  take();
  const std::string second = take({"snapshot", "--prune", "--keep-last", "1"});
  ASSERT_THAT(listed(), SizeIs(1));
  EXPECT_EQ(listed()[0]["name"], second);
}

TEST_F(SnapwheelProgram, PrunesNothingWithoutARule) {
  take();
  take();
  const CommandResult result = snapwheel({"prune"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("no retention rule is set"));
  EXPECT_THAT(listed(), SizeIs(2));
}

TEST_F(SnapwheelProgram, TellsThatNoDestinationIsSet) {
  root.remove("/Library/Preferences/com.vantor.Snapwheel.plist");
  const CommandResult result = snapwheel({"snapshot"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("no destination is set"));
}

TEST_F(SnapwheelProgram, TellsThatTheDestinationIsGone) {
  root.remove("/backup");
  for (const char* command : {"snapshot", "list", "check", "prune"}) {
    const CommandResult result = snapwheel({command});
    EXPECT_EQ(result.status, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("is not there")) << command;
  }
}

TEST_F(SnapwheelProgram, WaitsForNobodyWhoHoldsTheLock) {
  root.writeFile("/run/snapwheel.lock", "process 1 on elsewhere\n");
  const host::Descriptor lock(::open(root.path("/run/snapwheel.lock").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const CommandResult result = snapwheel({"snapshot"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("process 1 on elsewhere"));
}

TEST_F(SnapwheelProgram, ComparesASnapshotWithTheHostAndWithAnother) {
  const std::string first = take();
  EXPECT_EQ(snapwheel({"diff", first, "--now", "/srv"}).out, "");
  root.writeFile("/srv/data", "DATA");
  root.writeFile("/srv/\x1b[2J", "");
  const CommandResult now = snapwheel({"diff", "latest", "--now", "/srv"});
  EXPECT_EQ(now.status, 0) << now.err;
  EXPECT_EQ(now.out, "added    /srv/\\x1B[2J\nchanged  /srv/data  (contents, attributes)\n");
  const std::string second = take();
  EXPECT_EQ(snapwheel({"diff", first, second, "/srv"}).out, now.out);
  EXPECT_EQ(snapwheel({"diff", first}).status, 2);
  EXPECT_EQ(snapwheel({"diff", first, "2001"}).status, 1);
}

TEST_F(SnapwheelProgram, WhatIsMountedUponAFolderIsNotComparedWithTheHost) {
  root.writeFile("/mnt/below", "hidden");
  take();
  const auto mount = test::TestMount::memory(root.path("/mnt"), "size=64k");
  if (!mount.isMounted()) GTEST_SKIP() << "nothing can be mounted";
  root.writeFile("/mnt/above", "of another file system");
  const CommandResult now = snapwheel({"diff", "latest", "--now", "/mnt"});
  EXPECT_EQ(now.status, 0) << now.err;
  EXPECT_EQ(now.out, "");
}

/// A target that holds no extended attributes, in a mount namespace of its own.
TEST_F(SnapwheelProgram, WhatTheTargetCannotHoldIsALackUnlessThatIsAccepted) {
  if (::setxattr(root.path("/srv/data").c_str(), "user.note", "x", 1, 0) != 0) {
    GTEST_SKIP() << "no extended attributes here";
  }
  take();
  root.makeFolder("/target");
  const auto statusWith = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"restore", "latest", "--to", "/target", "--path", "/srv/data"});
    return test::exitStatusOf([&] {
      if (!test::enterPrivateMounts()) return 8;
      if (::mount("none", root.path("/target").c_str(), "ramfs", 0, nullptr) != 0) return 9;
      const CommandResult result = snapwheel(words);
      return root.readFile("/target/srv/data") == "data" ? result.status : 10;
    });
  };
  EXPECT_EQ(statusWith({}), 4);
  EXPECT_EQ(statusWith({"--without-attributes"}), 0);
}

TEST_F(SnapwheelProgram, FindsAFileInItsSnapshots) {
  const std::string first = take();
  const std::string second = take();
  const CommandResult found = snapwheel({"find", "data"});
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_THAT(found.out, HasSubstr("/srv/data"));
  EXPECT_THAT(found.out, HasSubstr(first + " to " + second + " (2)"));
  EXPECT_EQ(snapwheel({"find", ""}).status, 2);
  const CommandResult none = snapwheel({"find", "no such file"});
  EXPECT_EQ(none.status, 0);
  EXPECT_THAT(none.err, HasSubstr("no snapshot holds it"));
}

TEST_F(SnapwheelProgram, RefusesWhatItDoesNotUnderstand) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"shapshot"},
                                             {"restore", "latest"},
                                             {"delete"},
                                             {"snapshot", "--keep-last", "x"},
                                             {"list", "--computer", "../x"}}) {
    const CommandResult result = refused("snapwheel", words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

TEST_F(SnapwheelProgram, HelpGoesToStandardOutput) {
  const CommandResult result = refused("snapwheel", {"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("Exit status:"));
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace halyard::snapwheel

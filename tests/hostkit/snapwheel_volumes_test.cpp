// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <unistd.h>

#include "snapwheel/manifest.h"
#include "snapwheel/snapshot_volumes.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

using test::Scratch;
using testing::ElementsAre;
using testing::IsEmpty;

/// A snapshot that is made by hand.
class SnapshotVolumes : public testing::Test {
 protected:
  /// "folder mountPoint", and " (gone)".
  std::vector<std::string> found() const {
    std::vector<std::string> texts;
    for (const SnapshotVolume& volume : volumesOf(path_)) {
      texts.push_back(volume.folder + " " + volume.mountPoint + (volume.isThere ? "" : " (gone)"));
    }
    return texts;
  }
  void writeText(const std::string& text) const {
    scratch_.write("s/.snapwheel/manifest.json", text);
  }
  /// A manifest of the newest format with these volumes.
  void writeVolumes(const std::string& volumes) const {
    writeText(R"({"format":3,"volume":"System","volumes":[)" + volumes + "]}");
  }
  static std::string entry(const std::string& folder, const std::string& mountPoint) {
    return R"({"folder":")" + folder + R"(","mountPoint":")" + mountPoint + R"("})";
  }
  void makeFolders(const std::vector<std::string>& names) const {
    for (const std::string& name : names) scratch_.makeFolder("s/" + name);
  }

  Scratch scratch_;
  std::string path_ = scratch_.makeFolder("s");
};

TEST_F(SnapshotVolumes, AreThoseOfTheManifest) {
  makeFolders({"System", "srv", "var-lib-mysql"});
  writeVolumes(entry("System", "/") + "," + entry("var-lib-mysql", "/var/lib/mysql") + "," +
               entry("srv", "/srv"));
  EXPECT_THAT(found(), ElementsAre("System /", "srv /srv", "var-lib-mysql /var/lib/mysql"));
}

TEST_F(SnapshotVolumes, AreReadBackByTheManifestThatWasWritten) {
  makeFolders({"System", "srv", R"(a\xff)"});
  scratch_.makeFolder("s/.snapwheel");
  Manifest manifest;
  manifest.volume = "System";
  manifest.volumes = {{{1, 2, 3, 4, 5}, "System", "/", "u0", "ext4", "", false},
                      {{6, 7, 8, 9, 10}, "srv", "/srv", "u1", "btrfs", "2026-01-01-000000", true},
                      {{}, R"(a\xff)", "/a\xff", "", "", "", false}};
  manifest.absentVolumes = {"/home"};
  ASSERT_TRUE(writeManifest(path_, manifest));
  const auto read = readManifest(path_);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(toJson(*read).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
            toJson(manifest).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  EXPECT_EQ(read->volumes.back().mountPoint, "/a\xff");
  EXPECT_THAT(found(), ElementsAre("System /", "a\\xff /a\xff", "srv /srv"));
}

TEST_F(SnapshotVolumes, OfAnOlderFormatThereIsOne) {
  makeFolders({"Data", "srv"});
  for (const char* format : {"1", "2"}) {
    writeText(std::string(R"({"format":)") + format + R"(,"volume":"Data","items":7})");
    EXPECT_THAT(found(), ElementsAre("Data /")) << format;
    EXPECT_EQ(readManifest(path_)->volumes.front().items, 7U);
  }
}

TEST_F(SnapshotVolumes, OneThatIsGoneOrALinkIsNotThere) {
  makeFolders({"System"});
  ASSERT_EQ(::symlink("/etc", (path_ + "/srv").c_str()), 0);
  writeVolumes(entry("System", "/") + "," + entry("home", "/home") + "," + entry("srv", "/srv"));
  EXPECT_THAT(found(), ElementsAre("System /", "home /home (gone)", "srv /srv (gone)"));
}

TEST_F(SnapshotVolumes, AManifestThatCouldLeadElsewhereIsNoManifest) {
  makeFolders({"System"});
  const std::string root = entry("System", "/");
  for (const std::string& volumes : {std::string(),
                                     entry("srv", "/srv"),
                                     entry("srv", "/srv") + "," + root,
                                     root + "," + root,
                                     root + "," + entry("Other", "/"),
                                     root + "," + entry("srv", "/srv") + "," + entry("srv", "/srv"),
                                     root + "," + entry("srv", "/etc"),
                                     root + "," + entry("..", "/.."),
                                     root + "," + entry("..-etc", "/../etc"),
                                     root + "," + entry("a/b", "/a/b"),
                                     root + "," + entry("../../etc", "/etc"),
                                     root + "," + entry(".snapwheel", "/.snapwheel"),
                                     root + "," + entry("srv", "srv"),
                                     root + "," + entry("srv", "/srv/"),
                                     root + "," + entry("srv", "//srv"),
                                     root + "," + entry("", "/srv"),
                                     root + "," + entry("a--b", "/a//b"),
                                     root + ",7",
                                     root + ",{}",
                                     root + R"(,{"folder":"srv"})",
                                     root + R"(,{"folder":7,"mountPoint":["/srv"]})",
                                     entry("Other", "/")}) {
    writeVolumes(volumes);
    EXPECT_FALSE(readManifest(path_).has_value()) << volumes;
    EXPECT_THAT(found(), ElementsAre("System /")) << volumes;
  }
  std::string many = root;
  for (int at = 0; at < 1001; ++at) {
    const std::string name = "v" + std::to_string(at);
    many += "," + entry(name, "/" + name);
  }
  writeVolumes(many);
  EXPECT_FALSE(readManifest(path_).has_value());
}

TEST_F(SnapshotVolumes, WithoutAManifestAreItsFolders) {
  makeFolders({"srv", "System", "not a volume", ".snapwheel", "var-lib"});
  scratch_.write("s/file");
  ASSERT_EQ(::symlink("/etc", (path_ + "/home").c_str()), 0);
  EXPECT_THAT(found(), ElementsAre("System /", "srv /srv", "var-lib /var/lib"));
}

TEST_F(SnapshotVolumes, ASingleFolderIsTheRootWhateverItsName) {
  makeFolders({"srv"});
  EXPECT_THAT(found(), ElementsAre("srv /"));
  writeText(R"({"format":1,"volume":"System"})");
  EXPECT_THAT(found(), ElementsAre("srv /"));
}

TEST_F(SnapshotVolumes, ARootThatIsGoneIsNoOtherVolume) {
  makeFolders({"srv"});
  writeVolumes(entry("System", "/") + "," + entry("srv", "/srv"));
  EXPECT_THAT(found(), ElementsAre("System / (gone)", "srv /srv"));
  makeFolders({"home"});
  writeVolumes(entry("System", "/") + "," + entry("srv", "/srv") + "," + entry("home", "/home"));
  EXPECT_THAT(found(), ElementsAre("System / (gone)", "home /home", "srv /srv"));
}

TEST_F(SnapshotVolumes, WithoutAManifestTheirRecordsTellWhichAreGone) {
  makeFolders({"Data", "srv", ".snapwheel/volumes/srv", ".snapwheel/volumes/var-lib",
               ".snapwheel/volumes/not a volume", ".snapwheel/volumes/System"});
  EXPECT_THAT(found(), ElementsAre("Data /", "srv /srv", "var-lib /var/lib (gone)"));
  ASSERT_EQ(::rmdir((path_ + "/Data").c_str()), 0);
  EXPECT_THAT(found(), ElementsAre("System / (gone)", "srv /srv", "var-lib /var/lib (gone)"));
}

TEST_F(SnapshotVolumes, RecordsBehindALinkTellOfNone) {
  makeFolders({"System"});
  scratch_.makeFolder("elsewhere/volumes/srv");
  ASSERT_EQ(::symlink((scratch_ / "elsewhere").c_str(), (path_ + "/.snapwheel").c_str()), 0);
  EXPECT_THAT(found(), ElementsAre("System /"));
}

TEST_F(SnapshotVolumes, SeveralFoldersWithoutARootAreNone) {
  EXPECT_THAT(found(), IsEmpty());
  makeFolders({"srv", "home"});
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(SnapshotVolumes, KnowWhereTheirRecordsAndItemsAre) {
  const SnapshotVolume root{"System", "/", true};
  const SnapshotVolume deep{"var-lib", "/var/lib", true};
  EXPECT_EQ(root.path("/r/s"), "/r/s/System");
  EXPECT_EQ(root.records("/r/s").path(), "/r/s/.snapwheel");
  EXPECT_EQ(root.hostPath("etc/hosts"), "etc/hosts");
  EXPECT_EQ(deep.path("/r/s"), "/r/s/var-lib");
  EXPECT_EQ(deep.records("/r/s").path(), "/r/s/.snapwheel/volumes/var-lib");
  EXPECT_EQ(deep.hostPath("a/b"), "var/lib/a/b");
  EXPECT_EQ(deep.hostPath(""), "var/lib");
}

}  // namespace
}  // namespace halyard::snapwheel

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A disk image that is copied without being unmounted is what a power cut leaves: what ended with 0
// has to be on it.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <cstdlib>

#include "host_kit_root.h"
#include "support/mounts.h"

namespace halyard::hostkit {
namespace {

using test::TestMount;

class PowerCut : public test::HostKitTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    install("snapwheel", root);
    root.makeFolder("/run");
    root.makeFolder("/after");
    root.writeFile("/etc/halyard-host/snapwheel.exclude", "");
    root.writeFile("/data/file", "data");
    disk_.emplace(TestMount::image(root.path("/disk"), "ext4", 64));
    if (!disk_->isMounted()) GTEST_SKIP() << "no disk images can be mounted here";
    root.makeFolder("/disk/repository");
    root.makeFolder("/disk/target");
    root.makeFolder("/repository");
    root.writeEnginePreferences(1, "/repository");
    ::sync();
  }

  void TearDown() override {
    if (isCut_) ::umount2(root.path("/after").c_str(), MNT_DETACH);
  }

  void snapwheel(std::vector<std::string> words) const {
    words.insert(words.end(), {"--computer", "files1", "--days-to-retain", "0"});
    const auto result = HostKitTest::snapwheel(words);
    ASSERT_EQ(result.status, 0) << result.err;
  }

  // The disk as it is found afterwards stands at /after.
  void cut() {
    const std::string image = root.path("/disk.img");
    const std::string command = "cp --sparse=always '" + image + "' '" + image +
                                ".cut' && mount -o loop '" + image + ".cut' '" +
                                root.path("/after") + "'";
    isCut_ = std::system(command.c_str()) == 0;
    ASSERT_TRUE(isCut_);
  }

  std::vector<std::string> snapshots(const std::string& repository) const {
    auto names = root.list(repository + "/Archives.snapdb/files1");
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("2"); });
    return names;
  }

 private:
  std::optional<TestMount> disk_;
  bool isCut_ = false;
};

TEST_F(PowerCut, LosesWhatWasNotSynced) {
  root.writeFile("/disk/target/file", "data");
  cut();
  EXPECT_NE(root.readFile("/after/target/file"), "data");
}

TEST_F(PowerCut, LosesNothingOfARestore) {
  snapwheel({"snapshot", "--source", "/data"});
  snapwheel({"restore", "latest", "--to", "/disk/target"});
  cut();
  EXPECT_EQ(root.readFile("/after/target/file"), "data");
}

TEST_F(PowerCut, LosesNothingOfAnUndo) {
  install("helmsman", root);
  root.writePlugin("/opt/depot",
                   "echo 'Number of failures to match := 0'" + std::string(test::kSayDone));
  root.writePreferences({{"depotHost", 1}});
  root.writeDescriptor(
      "30-depotHost.plist",
      test::descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/disk/target/file"}));
  const std::string saved = "/repository/Archives.snapdb/files1/2026-11-20-020000/System/.Halyards";
  root.writeFile(saved + "/depotHost/disk/target/file", "old");
  root.writeFile(saved + "/.halyardSignature", "x");
  root.writeFile("/disk/target/file", "new");
  const auto restored = helmsman({"restore", "depotHost", "--yes"});
  ASSERT_EQ(restored.status, 0) << restored.err;
  ASSERT_EQ(root.readFile("/disk/target/file"), "old");
  const auto undone = helmsman({"undo", "depotHost", "--yes"});
  ASSERT_EQ(undone.status, 0) << undone.err;
  cut();
  EXPECT_EQ(root.readFile("/after/target/file"), "new");
  EXPECT_EQ(root.readFile("/after/target/file.previous"), "old");
}

TEST_F(PowerCut, LosesNothingOfASnapshotAndBringsNoPrunedOneBack) {
  root.writeEnginePreferences(1, "/disk/repository");
  snapwheel({"snapshot", "--source", "/data"});
  snapwheel({"snapshot", "--source", "/data"});
  snapwheel({"prune", "--keep-last", "1"});
  cut();
  const auto names = snapshots("/after/repository");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_EQ(root.readFile("/after/repository/Archives.snapdb/files1/" + names[0] + "/System/file"),
            "data");
  EXPECT_EQ(names, snapshots("/disk/repository"));
}

}  // namespace
}  // namespace halyard::hostkit

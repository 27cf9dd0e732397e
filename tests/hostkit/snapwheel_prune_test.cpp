// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Nothing is pruned after a snapshot whose backup of the services is not whole.
#include <gmock/gmock.h>
#include <linux/fs.h>

#include "host/files/files.h"
#include "host_kit_root.h"
#include "support/inode_flags.h"

namespace halyard::snapwheel {
namespace {

using test::CommandResult;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr const char* kHostFolder = "/backup/Archives.snapdb/files1";

class SnapshotPrune : public test::HostKitTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (IsSkipped()) return;
    installEngine();
    root.writeFile("/data/.Halyards/.halyardSignature", "signature");
    root.writeFile("/data/.Halyards/depotHost/srv/file", "data");
    ASSERT_EQ(snapshot().status, 0);
  }

  CommandResult snapwheel(std::vector<std::string> words, const std::string& last = "1") const {
    words.insert(words.end(),
                 {"--computer", "files1", "--days-to-retain", "0", "--keep-last", last});
    return HostKitTest::snapwheel(words);
  }
  CommandResult snapshot() const { return snapwheel({"snapshot", "--source", "/data", "--prune"}); }
  std::vector<std::string> snapshots() const {
    std::vector<std::string> names = root.list(kHostFolder);
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("2"); });
    return names;
  }
};

TEST_F(SnapshotPrune, GoesAheadWhenTheBackupIsWhole) {
  const CommandResult result = snapshot();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(snapshots(), SizeIs(1));
}

TEST_F(SnapshotPrune, KeepsWhatHoldsTheServicesWhenTheNewestHoldsNone) {
  root.remove("/data/.Halyards");
  root.writeFile("/data/file", "data");
  const CommandResult result = snapshot();
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("nothing was pruned"));
  EXPECT_THAT(snapshots(), SizeIs(2));
}

TEST_F(SnapshotPrune, GoesAheadWhereNoSnapshotHoldsServices) {
  root.remove("/data/.Halyards");
  root.writeFile("/data/file", "data");
  ASSERT_EQ(snapwheel({"delete", "latest"}).status, 0);
  EXPECT_EQ(snapshot().status, 0);
  EXPECT_EQ(snapshot().status, 0);
  EXPECT_THAT(snapshots(), SizeIs(1));
}

TEST_F(SnapshotPrune, IsLeftOutWhenAServiceIsMarkedIncomplete) {
  root.writeFile("/data/.Halyards/depotHost/incomplete", "the plug-in failed\n");
  const CommandResult result = snapshot();
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("depotHost is not whole"));
  EXPECT_THAT(result.err, HasSubstr("nothing was pruned"));
  EXPECT_THAT(snapshots(), SizeIs(2));
}

TEST_F(SnapshotPrune, IsLeftOutWhenTheBackupIsNotSigned) {
  root.remove("/data/.Halyards/.halyardSignature");
  const CommandResult result = snapshot();
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the backup of the services is not signed"));
  EXPECT_THAT(snapshots(), SizeIs(2));
}

TEST_F(SnapshotPrune, OnItsOwnKeepsEverythingWhileTheNewestIsNotWhole) {
  root.makeLink("/data/.Halyards/depotHost/incomplete", "/nowhere");
  ASSERT_EQ(snapshot().status, 4);
  const CommandResult shown = snapwheel({"prune", "--dry-run"});
  EXPECT_THAT(shown.out, HasSubstr("newest is not good"));
  EXPECT_EQ(snapwheel({"prune"}).status, 4);
  EXPECT_THAT(snapshots(), SizeIs(2));
}

TEST_F(SnapshotPrune, ASnapshotThatIsNotWholeTakesNoPlaceOfOneThatIs) {
  const std::string first = snapshots().front();
  root.writeFile("/data/.Halyards/depotHost/incomplete", "the plug-in failed\n");
  ASSERT_EQ(snapshot().status, 4);
  root.remove("/data/.Halyards/depotHost/incomplete");
  ASSERT_EQ(snapwheel({"snapshot", "--source", "/data"}).status, 0);
  EXPECT_EQ(snapwheel({"prune"}, "2").status, 0);
  EXPECT_THAT(snapshots(), SizeIs(3));
  EXPECT_THAT(snapshots(), testing::Contains(first));
  EXPECT_EQ(snapwheel({"prune"}).status, 0);
  EXPECT_THAT(snapshots(), SizeIs(1));
}

TEST_F(SnapshotPrune, TellsEachThatIsGoneOnce) {
  for (int more = 0; more < 2; ++more) {
    ASSERT_EQ(snapwheel({"snapshot", "--source", "/data"}).status, 0);
  }
  const std::vector<std::string> all = snapshots();
  const CommandResult pruned = snapwheel({"prune"});
  EXPECT_EQ(pruned.status, 0);
  EXPECT_EQ(pruned.out, "removed " + all[0] + "\nremoved " + all[1] + "\n");
  const CommandResult deleted = snapwheel({"delete", all[2], "latest"});
  EXPECT_EQ(deleted.status, 0) << deleted.err;
  EXPECT_EQ(deleted.out, "removed " + std::string(kHostFolder) + "/" + all[2] + "\n");
  EXPECT_THAT(snapshots(), testing::IsEmpty());
}

TEST_F(SnapshotPrune, TellsNoneGoneThatIsThereInPart) {
  ASSERT_EQ(snapwheel({"snapshot", "--source", "/data"}).status, 0);
  const std::vector<std::string> all = snapshots();
  const std::string kept = root.path(std::string(kHostFolder) + "/" + all[1] + "/System/kept");
  const test::UnlockedAtTheEnd unlocked(root.path("/backup"));
  ASSERT_TRUE(host::writeFile(kept, "x"));
  if (!test::setFlags(kept, FS_IMMUTABLE_FL)) GTEST_SKIP() << "no flag keeps a file here";
  const CommandResult deleted = snapwheel({"delete", all[0], all[1]});
  EXPECT_EQ(deleted.status, 1);
  EXPECT_EQ(deleted.out, "removed " + std::string(kHostFolder) + "/" + all[0] + "\n");
}

}  // namespace
}  // namespace halyard::snapwheel

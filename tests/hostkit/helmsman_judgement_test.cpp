// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What helmsman may take for a good snapshot, for room enough, and for undone.
#include <gmock/gmock.h>
#include <sys/statvfs.h>

#include "backup_test.h"
#include "helmsman/restore/restore_plan.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(FindSnapshot, TheNewestIsNeverOneInProgress) {
  Snapshot whole;
  whole.name = "2026-11-20-020000";
  Snapshot unfinished;
  unfinished.name = "2026-11-21-020000.inProgress";
  unfinished.inProgress = true;
  std::string problem;
  for (const char* word : {"", "latest"}) {
    const auto found = findSnapshot({whole, unfinished}, word, problem);
    ASSERT_TRUE(found) << problem;
    EXPECT_EQ(found->name, whole.name);
  }
  EXPECT_FALSE(findSnapshot({unfinished}, "", problem));
}

using RunSignature = test::BackupTest;

TEST_F(RunSignature, OfAnotherRunIsNotAcceptedInASnapshot) {
  installEngine(std::string(kCopyMetadata) +
                "\necho other >$host/$name/System/.Halyards/.halyardSignature");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("does not carry this backup"));
  EXPECT_TRUE(record()["snapshot"].is_null());
  EXPECT_TRUE(root.exists("/.Halyards")) << "the only copy of this backup";
}

TEST_F(RunSignature, HasToBeInTheSnapshot) {
  installEngine(std::string(kCopyMetadata) + "\nrm $host/$name/System/.Halyards/.halyardSignature");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("does not carry this backup"));
}

TEST(RoomProblems, AddUpTheItemsOfAVolume) {
  struct statvfs volume {};
  ASSERT_EQ(::statvfs("/tmp", &volume), 0);
  PlannedItem item;
  item.path = "/tmp/one";
  item.inSnapshot = true;
  item.bytes = volume.f_bfree * volume.f_frsize / 10 * 6;
  PlannedItem other = item;
  other.path = "/tmp/two";
  EXPECT_THAT(roomProblems({item}), IsEmpty());
  EXPECT_THAT(roomProblems({item, other}), SizeIs(1));
}

class NestedItems : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    const std::string saved =
        "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System/.Halyards";
    root.writePlugin("/opt/depot",
                     "echo 'Number of failures to match := 0'" + std::string(test::kSayDone));
    root.writePreferences({{"depotHost", 1}});
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", "/opt/depot")
                             .list("DataFiles", {"/srv/outer", "/srv/outer/inner"}));
    root.writeFile(saved + "/depotHost/srv/outer/inner", "old");
    root.writeFile(saved + "/.halyardSignature", "x");
    root.makeLink("/Volumes/Backup/Archives.snapdb/files1/Latest", "2026-11-20-020000");
    root.writeFile("/srv/outer/inner", "new");
  }
};

TEST_F(NestedItems, AreTakenBackInTheOppositeOrder) {
  ASSERT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  EXPECT_EQ(root.readFile("/srv/outer/inner"), "old");
  const auto result = helmsman({"undo", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(root.readFile("/srv/outer/inner"), "new");
}

}  // namespace
}  // namespace halyard::hostkit

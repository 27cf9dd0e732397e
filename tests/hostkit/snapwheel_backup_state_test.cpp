// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a snapshot lacks of the services' backup that its source holds, and what respects the mark.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "backup_test.h"
#include "common/incomplete_mark.h"
#include "common/tree_size.h"
#include "snapshot_test.h"
#include "snapwheel/backup_state.h"
#include "snapwheel/check_repository.h"

namespace halyard::snapwheel {
namespace {

using hostkit::incompleteReasons;
using test::listTree;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;

TEST(LackOfService, CountsItemsThatHoldNothing) {
  const test::Scratch scratch;
  scratch.write("live/.Halyards/a/full", "text");
  scratch.write("live/.Halyards/a/empty");
  scratch.write("saved/.Halyards/a/full", "text");
  EXPECT_EQ(hostkit::treeCount(scratch / "live/.Halyards/a"), (hostkit::TreeCount{3, 4}));
  EXPECT_EQ(lackOfService(scratch / "live", scratch / "saved", "a"),
            "the snapshot holds 2 of its 3 items, 4 B of 4 B");
  scratch.write("saved/.Halyards/a/empty");
  EXPECT_EQ(lackOfService(scratch / "live", scratch / "saved", "a"), std::nullopt);
}

/// While it lives, no longer file can be written: its copy fails and is left out.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : action_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit = {bytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    (void)::setrlimit(RLIMIT_FSIZE, &before_);
    (void)std::signal(SIGXFSZ, action_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  sighandler_t action_;
};

class LackingSnapshot : public SnapshotTest {
 protected:
  SnapshotOutcome takeLacking() const {
    const FileSizeLimit limit(kLimit);
    return take();
  }
  static constexpr std::size_t kLimit = 200'000;
  static std::string tooLong() { return std::string(kLimit + 1, 'x'); }
};
INSTANTIATE_TEST_SUITE_P(On, LackingSnapshot, fileSystems(), fileSystemName);

TEST_P(LackingSnapshot, IsMarked) {
  put(".Halyards/depotHost/long", tooLong());
  const SnapshotOutcome outcome = takeLacking();
  const std::string folder = volumeOf(outcome) + "/.Halyards";
  EXPECT_THAT(incompleteReasons(folder, "depotHost"),
              Optional(ElementsAre("the snapshot holds 3 of its 4 items, 1 B of 195.3 KiB")));
  EXPECT_THAT(backupProblems(volumeOf(outcome)), ElementsAre("depotHost is not whole"));
  for (const Finding& finding : checkRepository(*repository_, CheckDepth::metadata).findings) {
    EXPECT_THAT(finding.text, Not(HasSubstr("manifest counts"))) << "the mark is an item too";
  }
}

TEST_P(LackingSnapshot, KeepsTheReasonsThatItWasMarkedWith) {
  put(".Halyards/depotHost/incomplete", "no room\n");
  put(".Halyards/depotHost/long", tooLong());
  EXPECT_THAT(
      incompleteReasons(volumeOf(takeLacking()) + "/.Halyards", "depotHost"),
      Optional(ElementsAre("no room", "the snapshot holds 4 of its 5 items, 9 B of 195.3 KiB")));
}

TEST_P(LackingSnapshot, DoesNotPassItsMarkOnToTheNext) {
  put(".Halyards/depotHost/long", tooLong());
  const SnapshotOutcome lacking = takeLacking();
  const SnapshotOutcome whole = take();
  EXPECT_EQ(listTree(volumeOf(whole)), expected());
  EXPECT_NE(incompleteReasons(volumeOf(lacking) + "/.Halyards", "depotHost"), std::nullopt);
}

// The whole cycle with the engine itself, which cannot write one file of the services' backup.
class LackingBackup : public test::BackupTest {
 protected:
  void SetUp() override {
    BackupTest::SetUp();
    if (IsSkipped()) return;
    install("snapwheel", root);
    root.makeFolder("/run");
    root.writeFile("/etc/halyard-host/snapwheel.exclude",
                   "/proc/*\n/dev/*\n/Volumes/*\n/lib*/*\n/usr/*\n/bin/*\n");
    const auto first = helmsman({"backup"});
    ASSERT_EQ(first.status, 0) << first.err;
    // Twice as long as the blocks of 512 bytes that the shell lets pass.
    root.writeFile("/srv/post", std::string(1 << 20, 'x'));
    root.writeScript("/limited", "ulimit -f 1024; trap '' XFSZ; exec /usr/sbin/engine \"$@\"");
    std::filesystem::rename(root.path("/usr/sbin/snapwheel"), root.path("/usr/sbin/engine"));
    std::filesystem::rename(root.path("/limited"), root.path("/usr/sbin/snapwheel"));
    ASSERT_EQ(helmsman({"backup"}).status, 4);
  }
  nlohmann::json snapshots() const { return helmsmanJson({"snapshots", "--json"})["snapshots"]; }
};

TEST_F(LackingBackup, IsRecordedAndListedAsIncomplete) {
  const std::string reason = "the snapshot holds 2 of its 3 items, 0 B of 1.0 MiB";
  EXPECT_THAT(record()["services"].dump(), HasSubstr(reason));
  auto listed = snapshots();
  ASSERT_EQ(listed.size(), 2U);
  EXPECT_EQ(listed[0]["incomplete"].size(), 0U);
  EXPECT_EQ(listed[1]["latest"], true);
  EXPECT_EQ(listed[1]["incomplete"][0]["name"], "postHost");
  EXPECT_EQ(listed[1]["incomplete"][0]["reasons"], nlohmann::json::array({reason}));
}

TEST_F(LackingBackup, IsRefusedByRestoreAndReplacesNothing) {
  const std::string whole = snapshots()[0]["name"];
  const auto restored = helmsman({"restore", "postHost", "--yes"});
  EXPECT_EQ(restored.status, 1);
  EXPECT_THAT(restored.err, HasSubstr("The newest that holds it whole is " + whole));
  test::RunOptions options;
  options.argv0 = "snapwheel";
  const auto pruned = root.runProgram(
      "/usr/sbin/engine", {"prune", "--keep-last", "1", "--days-to-retain", "0"}, {}, options);
  EXPECT_EQ(pruned.status, 4);
  EXPECT_THAT(pruned.err, HasSubstr("nothing was pruned"));
  EXPECT_EQ(snapshots().size(), 2U);
}

}  // namespace
}  // namespace halyard::snapwheel

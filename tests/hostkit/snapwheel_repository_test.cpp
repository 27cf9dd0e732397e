// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "host/tree/remove_tree.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/repository.h"
#include "snapwheel/settings.h"
#include "support/deep_tree.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kOne = "2026-01-01-000000";
constexpr const char* kTwo = "2026-01-02-000000";

/// A repository with hand-made snapshots.
class RepositoryTest : public testing::Test {
 protected:
  void SetUp() override { repository_.create(); }

  void makeSnapshot(const std::string& name, bool complete = true, std::uint64_t items = 3) {
    scratch_.write("Archives.snapdb/files1/" + name + "/System/etc/hosts", name);
    scratch_.makeFolder("Archives.snapdb/files1/" + name + "/.snapwheel");
    Manifest manifest;
    manifest.volume = "System";
    manifest.finished = name;
    manifest.complete = complete;
    manifest.missingCount = complete ? 0 : 2;
    manifest.items = items;
    ASSERT_TRUE(writeManifest(repository_.path(name), manifest));
  }

  std::vector<std::string> findings(CheckDepth depth = CheckDepth::metadata) const {
    std::vector<std::string> texts;
    for (const Finding& finding : checkRepository(repository_, depth).findings) {
      texts.push_back((finding.severity == Severity::problem ? "problem " : "note ") +
                      finding.path.substr(repository_.hostFolder().size() + 1) + " " +
                      finding.text);
    }
    return texts;
  }

  Scratch scratch_;
  Repository repository_{scratch_.path(), "files1"};
};

TEST_F(RepositoryTest, IsMadeWithTheModesOfTheBackupProgram) {
  struct stat status {};
  ASSERT_EQ(::stat(repository_.folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0775U);
  ASSERT_EQ(::stat(repository_.hostFolder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0750U);
}

TEST_F(RepositoryTest, RefusesNamesThatAreNoFolder) {
  for (const char* name : {"", ".", "..", ".hidden", "a/b"}) {
    EXPECT_THROW(Repository(scratch_.path(), name), Failure) << name;
  }
}

TEST_F(RepositoryTest, TellsWhatItsNamesMean) {
  const HostFolderListing listing =
      sortNames({".lock", "2026-01-01-000000", "2026-01-02-000000.inProgress", "Latest", "notes",
                 "removed-2026-01-01-000000.inProgress"});
  EXPECT_THAT(listing.snapshots, ElementsAre("2026-01-01-000000"));
  EXPECT_THAT(listing.inProgress,
              ElementsAre("2026-01-02-000000.inProgress", "removed-2026-01-01-000000.inProgress"));
  EXPECT_THAT(listing.foreign, ElementsAre("notes"));
}

TEST_F(RepositoryTest, AFileWithASnapshotsNameIsForeign) {
  scratch_.write(std::string("Archives.snapdb/files1/") + kOne);
  EXPECT_THAT(repository_.list().snapshots, IsEmpty());
  EXPECT_THAT(repository_.list().foreign, ElementsAre(kOne));
}

TEST_F(RepositoryTest, FindsASnapshotByNameByPathAndAsTheLatest) {
  makeSnapshot(kOne);
  makeSnapshot(kTwo);
  EXPECT_EQ(repository_.find(kOne), kOne);
  EXPECT_EQ(repository_.find("latest"), kTwo);
  EXPECT_EQ(repository_.find(repository_.path(kOne)), kOne);
  EXPECT_EQ(repository_.find(repository_.path(kOne) + "/"), kOne);
  EXPECT_EQ(repository_.find("2026-01-01"), kOne);
  for (const char* word : {"2026-01-03-000000", "notes", "", "/etc", "2026-01-0", "2026-01-01x"}) {
    EXPECT_THROW((void)repository_.find(word), Failure) << word;
  }
}

TEST_F(RepositoryTest, MovesTheLatestLink) {
  EXPECT_EQ(repository_.latest(), std::nullopt);
  EXPECT_TRUE(repository_.setLatest(kOne));
  EXPECT_TRUE(repository_.setLatest(kTwo));
  EXPECT_EQ(repository_.latest(), kTwo);
  EXPECT_THAT(host::listDirectory(repository_.hostFolder()), ElementsAre("Latest"));
  EXPECT_TRUE(repository_.setLatest(""));
  EXPECT_EQ(repository_.latest(), std::nullopt);
}

TEST_F(RepositoryTest, NamesItsComputers) {
  scratch_.makeFolder("Archives.snapdb/other");
  scratch_.write("Archives.snapdb/file");
  EXPECT_THAT(repository_.computers(), ElementsAre("files1", "other"));
}

TEST_F(RepositoryTest, PruneKeepsEverythingWhileTheNewestLacksItems) {
  makeSnapshot(kOne);
  makeSnapshot(kTwo, false);
  const auto plan = planPrune(repository_, {.last = 1});
  ASSERT_EQ(plan.size(), 2U);
  EXPECT_EQ(plan[0].verdict.reason, "newest is not good");
  EXPECT_TRUE(plan[0].verdict.keep);
}

TEST_F(RepositoryTest, PruneGoesOnAfterTornFilesAndKeepsTheNewestWithoutThem) {
  constexpr const char* kThree = "2026-01-03-000000";
  constexpr const char* kFour = "2026-01-04-000000";
  makeSnapshot(kOne);
  makeSnapshot(kTwo);
  for (const char* name : {kThree, kFour}) {
    makeSnapshot(name);
    auto manifest = readManifest(repository_.path(name));
    manifest->complete = false;
    manifest->tornCount = 1;
    ASSERT_TRUE(writeManifest(repository_.path(name), *manifest));
  }
  RetentionRules rules;
  rules.last = 1;
  const auto plan = planPrune(repository_, rules);
  ASSERT_EQ(plan.size(), 4U);
  EXPECT_FALSE(plan[0].verdict.keep);
  EXPECT_TRUE(plan[1].verdict.keep);
  EXPECT_EQ(plan[1].verdict.reason, kNewestGood);
  EXPECT_FALSE(plan[2].verdict.keep);
  EXPECT_TRUE(plan[3].verdict.keep);
}

TEST_F(RepositoryTest, PruneKeepsEverythingWhileTheNewestCarriesAnUnfinishedBackup) {
  makeSnapshot(kOne);
  makeSnapshot(kTwo);
  auto manifest = readManifest(repository_.path(kTwo));
  manifest->unfinishedBackup = true;
  ASSERT_TRUE(writeManifest(repository_.path(kTwo), *manifest));
  RetentionRules rules;
  rules.last = 1;
  EXPECT_EQ(planPrune(repository_, rules)[0].verdict.reason, kNewestIsNotGood);
}

TEST_F(RepositoryTest, PruneLetsGoWhatNoRuleKeeps) {
  makeSnapshot(kOne);
  makeSnapshot(kTwo);
  const auto plan = planPrune(repository_, {.last = 1});
  ASSERT_EQ(plan.size(), 2U);
  EXPECT_FALSE(plan[0].verdict.keep);
  EXPECT_TRUE(plan[1].verdict.keep);
}

TEST_F(RepositoryTest, CheckFindsNothingWhereNothingIsWrong) {
  makeSnapshot(kOne);
  ASSERT_TRUE(repository_.setLatest(kOne));
  EXPECT_THAT(findings(CheckDepth::metadata), IsEmpty());
  EXPECT_THAT(findings(CheckDepth::contents), ElementsAre(HasSubstr("holds no digests")));
}

TEST_F(RepositoryTest, CheckCountsWhatItReads) {
  makeSnapshot(kOne);
  const CheckReport report = checkRepository(repository_, CheckDepth::contents);
  EXPECT_EQ(report.snapshots, 1U);
  EXPECT_EQ(report.items, 3U);
  EXPECT_EQ(report.bytesRead, 17U);
}

TEST_F(RepositoryTest, CheckTellsWhatIsForeignUnfinishedOrIncomplete) {
  makeSnapshot(kOne, false);
  scratch_.write("Archives.snapdb/files1/notes");
  scratch_.makeFolder("Archives.snapdb/files1/2026-01-03-000000.inProgress");
  scratch_.makeFolder(std::string("Archives.snapdb/files1/") + kTwo);
  ASSERT_TRUE(repository_.setLatest(kTwo));
  EXPECT_THAT(
      findings(),
      ElementsAre(
          "problem notes was not made by the engine; move it elsewhere",
          "note 2026-01-03-000000.inProgress is being made or was interrupted; the next snapshot "
          "takes it over or removes it",
          "note 2026-01-01-000000 lacks 2 items that could not be read when it was made",
          "problem 2026-01-02-000000 has no readable manifest; it can still be restored, and be "
          "deleted",
          "problem 2026-01-02-000000 holds no volume; delete it"));
}

TEST_F(RepositoryTest, CheckTellsAWrongLatestLink) {
  makeSnapshot(kOne);
  EXPECT_THAT(findings(), ElementsAre("problem Latest is missing; snapwheel latest makes it"));
  makeSnapshot(kTwo);
  ASSERT_TRUE(repository_.setLatest(kOne));
  EXPECT_THAT(findings(), ElementsAre(HasSubstr("but the newest snapshot is 2026-01-02-000000")));
}

TEST_F(RepositoryTest, CheckMissesAnItemThatWentAway) {
  makeSnapshot(kOne);
  ASSERT_TRUE(repository_.setLatest(kOne));
  ASSERT_TRUE(host::removeItem(repository_.path(kOne) + "/System/etc/hosts"));
  EXPECT_THAT(findings(), ElementsAre("problem 2026-01-01-000000/System holds 2 items, but its "
                                      "manifest counts 3"));
  EXPECT_THAT(findings(CheckDepth::structure), IsEmpty());
}

TEST_F(RepositoryTest, CheckFindsASnapshotSoundThatNoPathReachesTheBottomOf) {
  constexpr int kLevels = 10000;
  makeSnapshot(kOne, true, 3 + kLevels + 3);
  ASSERT_TRUE(repository_.setLatest(kOne));
  const test::DeepTree deep(scratch_, kLevels,
                            std::string("Archives.snapdb/files1/") + kOne + "/System/tree");
  EXPECT_THAT(findings(CheckDepth::metadata), IsEmpty());
  const CheckReport report = checkRepository(repository_, CheckDepth::contents);
  EXPECT_EQ(report.bytesRead, 17U + 2 * 4U) << "a file with two names";
  ASSERT_TRUE(host::removeTree(repository_.path(kOne)));
}

TEST_F(RepositoryTest, RemovalTakesUnfinishedNamesToo) {
  scratch_.write("Archives.snapdb/files1/2026-01-03-000000.inProgress/System/x");
  removeSnapshots(repository_, {"2026-01-03-000000.inProgress"});
  EXPECT_THAT(host::listDirectory(repository_.hostFolder()), IsEmpty());
}

TEST(Manifest, IsReadBack) {
  const Scratch scratch;
  scratch.makeFolder("s/.snapwheel");
  Manifest manifest;
  manifest.computer = "files1";
  manifest.volume = "System";
  manifest.items = 1ULL << 40;
  manifest.complete = true;
  ASSERT_TRUE(writeManifest(scratch / "s", manifest));
  const auto read = readManifest(scratch / "s");
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(toJson(*read), toJson(manifest));
}

TEST(Manifest, IsAbsentWhenItCannotBeUnderstood) {
  const Scratch scratch;
  EXPECT_FALSE(readManifest(scratch / "missing").has_value());
  for (const char* text :
       {"", "{", "[]", "{}", R"({"format":4,"volume":"System"})", R"({"format":1})",
        R"({"format":1,"volume":"../../etc"})", R"({"format":1,"volume":".."})",
        R"({"format":"1","volume":"System"})"}) {
    scratch.write("s/.snapwheel/manifest.json", text);
    EXPECT_FALSE(readManifest(scratch / "s").has_value()) << text;
  }
}

TEST(Manifest, AValueOfTheWrongTypeIsAbsent) {
  const Scratch scratch;
  scratch.write("s/.snapwheel/manifest.json",
                R"({"format":1,"volume":"System","items":"many","complete":7,"computer":null})");
  const auto manifest = readManifest(scratch / "s");
  ASSERT_TRUE(manifest.has_value());
  EXPECT_EQ(manifest->items, 0U);
  EXPECT_FALSE(manifest->complete);
  EXPECT_EQ(manifest->computer, "");
}

TEST(PreferredDays, AreZeroUnlessSet) {
  EXPECT_EQ(preferredDays(std::nullopt), 0U);
  const auto days = [](const std::string& value) {
    return preferredDays(
        parseDictionary("<plist><dict><key>DaysToRetain</key>" + value + "</dict></plist>"));
  };
  EXPECT_EQ(days("<integer>30</integer>"), 30U);
  EXPECT_EQ(days("<string>14</string>"), 14U);
  EXPECT_EQ(days("<integer>-1</integer>"), 0U);
}

}  // namespace
}  // namespace halyard::snapwheel

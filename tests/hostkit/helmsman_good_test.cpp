// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// When a backup may be called good, and what a run that was not may do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backup_test.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using test::kPlugin;
using testing::ElementsAre;
using testing::HasSubstr;

using GoodBackup = test::BackupTest;

TEST_F(GoodBackup, NothingIsPrunedAfterOneServiceFailed) {
  root.writePlugin("/usr/libexec/broken", "exit 7");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/libexec/broken"));
  EXPECT_EQ(helmsman({"backup"}).status, 4);
  EXPECT_EQ(record()["result"], "partial");
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
}

TEST_F(GoodBackup, NeedsADescriptorOfEveryServiceThatIsOn) {
  root.writePreferences({{"depotHost", 1}, {"postHost", 1}, {"siteHost", 1}});
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("siteHost: it is switched on and has no descriptor (see: "
                                    "helmsman disable siteHost)\n"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
  EXPECT_EQ(root.readFile("/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System/"
                          ".Halyards/siteHost/incomplete"),
            "it is switched on and has no descriptor (see: helmsman disable siteHost)\n");
  EXPECT_THAT(helmsmanJson({"snapshots", "--json"})["snapshots"][0]["incomplete"].dump(),
              HasSubstr("siteHost"));
}

TEST_F(GoodBackup, NeedsEveryDescriptorToBeReadable) {
  root.writeFile("/private/etc/halyard/50-siteHost.plist", "<plist><dict>");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("/private/etc/halyard/50-siteHost.plist is no descriptor that "
                                    "can be read; mend it or move it away\n"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
}

TEST_F(GoodBackup, NeedsEveryServiceToBeWholeInTheSnapshot) {
  installEngine(std::string(kCopyMetadata) +
                "\necho 'an item is missing' >$host/$name/System/.Halyards/postHost/incomplete");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("postHost: an item is missing\n"));
  auto kept = record();
  EXPECT_EQ(kept["services"][0]["result"], "good");
  EXPECT_EQ(kept["services"][1]["result"], "failed");
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
}

TEST_F(GoodBackup, AnIncompleteSnapshotPrunesNothing) {
  installEngine(std::string(kCopyMetadata) + "\necho 'snapwheel: 1 item is missing' >&2; exit 4");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the snapshot is not complete: snapwheel: 1 item is missing"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall));
}

TEST_F(GoodBackup, EverythingThatTheEngineSaysIsToldAndRecorded) {
  installEngine(
      std::string(kCopyMetadata) +
      "\nfor item in $(seq 40); do echo \"snapwheel: warning: /srv/$item: left out\" >&2; done"
      "\necho 'snapwheel: warning: 40 items were left out in all' >&2; exit 4");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("the engine said 16 lines more"));
  EXPECT_THAT(result.err, HasSubstr("/srv/40: left out"));
  EXPECT_THAT(result.err, HasSubstr("not complete: snapwheel: warning: 40 items were left out"));
  EXPECT_EQ(record()["problems"].size(), 26U);
}

TEST_F(GoodBackup, WhatTheEngineSaysOfAGoodSnapshotIsToldAndNoProblem) {
  installEngine(std::string(kCopyMetadata) +
                "\necho 'snapwheel: warning: the clock is behind' >&2");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("snapwheel: warning: the clock is behind"));
  EXPECT_TRUE(record()["problems"].empty());
}

TEST_F(GoodBackup, FilesThatChangedWhileTheyWereReadHoldNoPruningBack) {
  const std::string torn =
      "\necho 'snapwheel: warning: /srv/busy: changed whenever it was read' >&2; exit 4";
  std::string body = kCopyMetadata;
  body.replace(body.rfind("\\\"}\""), 4, "\\\", \\\"missingCount\\\": 0, \\\"tornCount\\\": 1}\"");
  installEngine(body + torn);
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("/srv/busy: changed whenever it was read"));
  EXPECT_THAT(engineCalls(), ElementsAre(test::kSnapshotCall, "prune"));
}

TEST_F(GoodBackup, OldSnapshotsThatCannotBeRemovedAreAPartOfTheRun) {
  installEngine(std::string(kCopyMetadata) +
                "\n;; prune) echo 'snapwheel: busy disk' >&2; exit 1\n");
  const auto result = helmsman({"backup"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("old snapshots could not be removed: snapwheel: busy disk"));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The purge of one snapshot: what is accepted, what is refused, and that nothing else goes.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <cerrno>

#include "support/forked.h"
#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;

class PurgeSnapShot : public SnapshotHost {
 protected:
  static constexpr const char* kHostFolder = "/Volumes/Backup/Archives.snapdb/files1";

  CommandResult purge(const std::string& path = kSnapshot,
                      const Environment& environment = {}) const {
    return root.run({"-cmd", "purgeSnapShot", "-path", path}, environment);
  }

  // Makes a folder that carries the signature as a snapshot does.
  void makeSnapshot(const std::string& path) const {
    root.writeFile(path + "/HD/.Halyards/.halyardSignature", "4711\n");
  }

  // The folder looks like a snapshot to the program but is none to the engine.
  void expectNoSnapshot(const std::string& path) const {
    const auto result = purge(path);
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_EQ(result.out, "That is not a snapshot.\n") << path;
    EXPECT_TRUE(root.exists(path)) << path;
  }

  void expectLeftAlone(const std::string& path) const {
    const auto result = purge(path);
    EXPECT_EQ(result.status, 74) << path;
    EXPECT_EQ(result.out, "") << path;
  }
};

TEST_F(PurgeSnapShot, RemovesTheSnapshotAndEndsWithStatus74) {
  root.writeFile(std::string(kSnapshot) + "/Server HD/etc/x", "x");
  makeSnapshot(std::string(kHostFolder) + "/2026-11-15");
  const auto result = purge();
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(root.list(kHostFolder), ElementsAre("2026-11-15"));
}

TEST_F(PurgeSnapShot, AlwaysLogsTheExtension) {
  EXPECT_THAT(logMessages(purge()), ElementsAre("SS_PATH:pathExtension =: "));
  EXPECT_THAT(logMessages(purge("/a.b/c.img")), ElementsAre("SS_PATH:pathExtension =: img"));
  EXPECT_THAT(logMessages(purge("/a.b/c.img/")), ElementsAre("SS_PATH:pathExtension =: img"));
  EXPECT_THAT(logMessages(purge("/a.b/c")), ElementsAre("SS_PATH:pathExtension =: "));
}

TEST_F(PurgeSnapShot, WithoutAPathTheExtensionShowsAsNull) {
  const auto result = root.run({"-cmd", "purgeSnapShot", "-source", kSnapshot});
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(logMessages(result), ElementsAre("SS_PATH:pathExtension =: (null)"));
  EXPECT_TRUE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, ASnapshotInProgressIsRefusedAndRecorded) {
  const std::string path = std::string(kHostFolder) + "/2026-11-16.inProgress";
  makeSnapshot(path);
  root.writeFile(kProgressLog, "");
  const auto result = purge(path);
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(root.exists(path + "/HD/.Halyards/.halyardSignature"));
  EXPECT_THAT(
      root.readFile(kProgressLog),
      MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} [+]0000\n## ERROR :: "
                   "Halyard :: an attempt was made to purge a snapshot in progress, it was "
                   "aborted.\n"));
}

TEST_F(PurgeSnapShot, ATrailingSlashDoesNotHideThatItIsInProgress) {
  const std::string path = std::string(kHostFolder) + "/2026-11-16.inProgress";
  makeSnapshot(path);
  expectLeftAlone(path + "/");
  EXPECT_TRUE(root.exists(path));
}

TEST_F(PurgeSnapShot, ARoundaboutPathDoesNotReachASnapshotInProgress) {
  const std::string path = std::string(kHostFolder) + "/2026-11-16.inProgress";
  makeSnapshot(path);
  for (const char* detour : {"/.", "/./", "/HD/.."}) {
    const auto result = purge(path + detour);
    EXPECT_EQ(result.status, 1) << detour;
    EXPECT_EQ(result.out, "That is not a snapshot.\n") << detour;
  }
  EXPECT_TRUE(root.exists(path + "/HD/.Halyards/.halyardSignature"));
}

TEST_F(PurgeSnapShot, TheExtensionAloneIsInProgressToo) {
  const std::string path = std::string(kHostFolder) + "/.inProgress";
  makeSnapshot(path);
  const auto result = purge(path);
  EXPECT_EQ(result.status, 74);
  EXPECT_THAT(logMessages(result), ElementsAre("SS_PATH:pathExtension =: inProgress"));
  EXPECT_TRUE(root.exists(path));
}

TEST_F(PurgeSnapShot, TheRefusalIsRecordedEvenForAPathThatIsMissing) {
  root.writeFile(kProgressLog, "");
  purge("/nowhere.inProgress");
  EXPECT_EQ(root.progressMessages().size(), 1U);
}

TEST_F(PurgeSnapShot, TheRefusalNeverMakesTheProgressLog) {
  purge("/nowhere.inProgress");
  EXPECT_FALSE(root.exists(kProgressLog));
}

TEST_F(PurgeSnapShot, InProgressInAnotherCaseIsNoRefusal) {
  const std::string path = std::string(kHostFolder) + "/x.InProgress";
  makeSnapshot(path);
  EXPECT_EQ(purge(path).status, 74);
  EXPECT_FALSE(root.exists(path));
}

TEST_F(PurgeSnapShot, AMissingPathOrAFileEndsSilently) {
  expectLeftAlone("/nowhere");
  root.writeFile("/file", "");
  expectLeftAlone("/file");
  EXPECT_TRUE(root.exists("/file"));
  expectLeftAlone("");
}

TEST_F(PurgeSnapShot, WithoutTheSignatureNothingGoes) {
  root.remove(inSnapshot("/.halyardSignature"));
  expectLeftAlone(kSnapshot);
  EXPECT_TRUE(root.exists(kMetadata));
}

TEST_F(PurgeSnapShot, WithoutAMetadataFolderNothingGoes) {
  root.remove(kMetadata);
  root.writeFile(std::string(kSnapshot) + "/.Halyards/.halyardSignature", "4711\n");
  root.writeFile(std::string(kSnapshot) + "/file", "");
  expectLeftAlone(kSnapshot);
  EXPECT_TRUE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, ASignatureInTheSecondVolumeIsEnough) {
  root.makeFolder(std::string(kSnapshot) + "/Alpha");
  EXPECT_EQ(purge().status, 74);
  EXPECT_FALSE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, TwoVolumesWithSignaturesAreDeletedOnce) {
  root.writeFile(std::string(kSnapshot) + "/Zulu/.Halyards/.halyardSignature", "4711\n");
  const auto result = purge();
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, WhatLiesTooShallowOrTooDeepIsNoSnapshot) {
  for (const char* path :
       {"/Volumes/Backup/Archives.snapdb/files1", "/Volumes/Backup/Archives.snapdb",
        "/Volumes/Backup", "/Volumes/Backup/Archives.snapdb/files1/2026-11-14/deeper",
        "/Volumes/Backup/other/files1/2026-11-14", "/elsewhere"}) {
    makeSnapshot(path);
    expectNoSnapshot(path);
  }
}

TEST_F(PurgeSnapShot, TheRootFolderIsNoSnapshot) {
  makeSnapshot("/");
  expectNoSnapshot("/");
}

TEST_F(PurgeSnapShot, ALinkToASnapshotIsNoSnapshot) {
  root.makeLink(std::string(kHostFolder) + "/Latest", "2026-11-14");
  expectNoSnapshot(std::string(kHostFolder) + "/Latest");
  EXPECT_TRUE(root.exists(inSnapshot("/.halyardSignature")));
  root.makeLink("/link", kSnapshot);
  expectNoSnapshot("/link");
}

TEST_F(PurgeSnapShot, APathWithDotsIsTakenForTheFolderItNames) {
  const auto result = purge(std::string(kHostFolder) + "/../files1/2026-11-14");
  EXPECT_EQ(result.status, 74);
  EXPECT_FALSE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, LinksInASnapshotGoAndWhatTheyLeadToStays) {
  root.writeFile("/outside/file", "kept");
  root.writeFile("/Volumes/Backup/other", "kept");
  root.makeLink(std::string(kSnapshot) + "/Server HD/outside", "/outside");
  root.makeLink(std::string(kSnapshot) + "/Server HD/up", "../../../../other");
  root.makeLink(std::string(kSnapshot) + "/Volume", "/outside");
  EXPECT_EQ(purge().status, 74);
  EXPECT_FALSE(root.exists(kSnapshot));
  EXPECT_EQ(root.readFile("/outside/file"), "kept");
  EXPECT_EQ(root.readFile("/Volumes/Backup/other"), "kept");
}

TEST_F(PurgeSnapShot, AVolumeFolderThatIsALinkCountsButOnlyTheLinkGoes) {
  root.remove(std::string(kSnapshot) + "/Server HD");
  makeSnapshot("/outside");
  root.makeLink(std::string(kSnapshot) + "/HD", "/outside/HD");
  EXPECT_EQ(purge().status, 74);
  EXPECT_FALSE(root.exists(kSnapshot));
  EXPECT_TRUE(root.exists("/outside/HD/.Halyards/.halyardSignature"));
}

TEST_F(PurgeSnapShot, ReadOnlyAndClosedFoldersGoToo) {
  root.makeFolder(std::string(kSnapshot) + "/Server HD/closed", 0000);
  root.writeFile(std::string(kSnapshot) + "/Server HD/locked/file", "", 0000);
  root.makeFolder(std::string(kSnapshot) + "/Server HD/locked", 0500);
  EXPECT_EQ(purge().status, 74);
  EXPECT_FALSE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, AFailedDeletionShowsItsErrorAndNeverEntersAnotherFileSystem) {
  if (!canMountPrivately()) GTEST_SKIP() << "no mounts here";
  root.makeFolder(std::string(kSnapshot) + "/Server HD/mounted");
  root.writeFile("/other/file", "kept");
  const std::string other = root.path("/other");
  const std::string mounted = root.path(std::string(kSnapshot) + "/Server HD/mounted");
  const std::string expected = "Failed with error:" + std::to_string(EBUSY) + ".\n";
  const int status = exitStatusOf([&] {
    if (!enterPrivateMounts()) return 2;
    if (mount(other.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr) != 0) return 3;
    const auto purged = purge();
    if (purged.out != expected) return 4;
    return purged.status;
  });
  EXPECT_EQ(status, 1);
  EXPECT_EQ(root.readFile("/other/file"), "kept");
  EXPECT_TRUE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, WithoutABackupVolumeThereIsNoSessionAndNothingGoes) {
  root.writeEnginePreferences(1, "/Volumes/Gone");
  expectLeftAlone(kSnapshot);
  EXPECT_TRUE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, WithoutEnginePreferencesThereIsNoSession) {
  root.remove("/Library/Preferences/com.vantor.Snapwheel.plist");
  const auto result = purge();
  EXPECT_EQ(result.status, 74);
  EXPECT_TRUE(root.exists(kSnapshot));
}

TEST_F(PurgeSnapShot, TheSnapshotOfAnotherHostIsASnapshotToo) {
  makeSnapshot("/Volumes/Backup/Archives.snapdb/other host/one two");
  EXPECT_EQ(purge("/Volumes/Backup/Archives.snapdb/other host/one two").status, 74);
  EXPECT_FALSE(root.exists("/Volumes/Backup/Archives.snapdb/other host/one two"));
}

TEST_F(PurgeSnapShot, DebugLogsThePathAndEveryVolumeFolder) {
  root.makeFolder(std::string(kSnapshot) + "/Alpha");
  root.writeFile(std::string(kSnapshot) + "/file", "");
  root.remove(inSnapshot("/.halyardSignature"));
  EXPECT_THAT(
      logMessages(purge(kSnapshot, {{"DEBUG", ""}})),
      ElementsAre("SS_PATH:nextPath =: " + std::string(kSnapshot), "SS_PATH:pathExtension =: ",
                  "PurgeSnapShot:nextPath =: " + std::string(kSnapshot) + "/Alpha",
                  "PurgeSnapShot:nextPath =: " + std::string(kSnapshot) + "/Server HD"));
}

TEST_F(PurgeSnapShot, TheFunctionLogShowsTheOperationAndTheStatusStays74) {
  const auto result = purge(kSnapshot, {{"FUNCLOG", ""}});
  EXPECT_EQ(result.status, 74);
  EXPECT_THAT(
      functionLines(result),
      ElementsAreArray(wholeFunctionLog({started("PurgeSnapShot"), started("get_Helmsman_Prefs"),
                                         ended("get_Helmsman_Prefs"), ended("PurgeSnapShot")})));
}

TEST_F(PurgeSnapShot, ARefusalShowsNoEndOfTheOperation) {
  for (const char* path : {"/Volumes/Backup/Archives.snapdb/files1/x.inProgress", "/elsewhere"}) {
    makeSnapshot("/elsewhere");
    const auto lines = functionLines(purge(path, {{"FUNCLOG", ""}}));
    EXPECT_THAT(lines, testing::Contains(started("PurgeSnapShot")));
    EXPECT_THAT(lines, testing::Contains("End main()" + std::string(55, '-') + "+"));
    EXPECT_THAT(lines, testing::Not(testing::Contains(ended("PurgeSnapShot")))) << path;
  }
}

TEST_F(PurgeSnapShot, SevenWordsAreTooMany) {
  const auto result = root.run({"-cmd", "PURGESNAPSHOT", "-path", kSnapshot, "-opt", "x"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("Wrong number of parameters for PURGESNAPSHOT.\nUsage:\n"));
  EXPECT_TRUE(root.exists(kSnapshot));
}

}  // namespace
}  // namespace halyard::test

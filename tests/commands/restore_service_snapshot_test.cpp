// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which folder of a snapshot a service is restored from, and what debug mode tells about it.
#include <gmock/gmock.h>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class RestoreServiceSnapshot : public SnapshotHost {
 protected:
  void SetUp() override {
    SnapshotHost::SetUp();
    if (IsSkipped()) return;
    root.writePlugin("/opt/depot", "echo restored");
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot")
                                                   .list("ConfigurationFiles", {"/etc/depot.conf"})
                                                   .list("DataFiles", {"/srv/data"}));
  }

  CommandResult restoreFrom(const std::string& path, const Environment& environment = {}) const {
    return root.run(
        {"-cmd", "restoreService", "-path", path, "-target", "/", "-service", "depotHost"},
        environment);
  }

  // The folder handed to the plug-in when the snapshot is at the path.
  std::string folderFrom(const std::string& path) const {
    root.remove("/plugin-calls");
    EXPECT_EQ(restoreFrom(path).status, 0);
    const std::vector<std::string> calls = root.calls();
    const std::string start = "/opt/depot|-cmd|restore|-opt|all|-path|";
    if (calls.size() != 1 || !calls[0].starts_with(start)) return "<not called once>";
    const std::string rest = calls[0].substr(start.size());
    return rest.substr(0, rest.find('|'));
  }
};

TEST_F(RestoreServiceSnapshot, OfTwoMetadataFoldersTheLastInOrderIsUsed) {
  root.makeFolder(std::string(kSnapshot) + "/Zulu/.Halyards");
  root.makeFolder(std::string(kSnapshot) + "/Alpha/.Halyards");
  EXPECT_EQ(folderFrom(kSnapshot), std::string(kSnapshot) + "/Zulu/.Halyards/depotHost");
}

TEST_F(RestoreServiceSnapshot, HiddenVolumeFoldersCount) {
  root.remove(kMetadata);
  root.makeFolder(std::string(kSnapshot) + "/.hidden/.Halyards");
  EXPECT_EQ(folderFrom(kSnapshot), std::string(kSnapshot) + "/.hidden/.Halyards/depotHost");
}

TEST_F(RestoreServiceSnapshot, AMetadataItemThatIsAFileDoesNotCount) {
  root.writeFile(std::string(kSnapshot) + "/Zulu/.Halyards", "");
  EXPECT_EQ(folderFrom(kSnapshot), inSnapshot("/depotHost"));
}

TEST_F(RestoreServiceSnapshot, AMetadataFolderDeeperDownDoesNotCount) {
  root.remove(kMetadata);
  root.makeFolder(std::string(kSnapshot) + "/Server HD/sub/.Halyards");
  root.makeFolder(std::string(kSnapshot) + "/.Halyards");
  EXPECT_EQ(folderFrom(kSnapshot), "/depotHost");
}

TEST_F(RestoreServiceSnapshot, ASnapshotWithoutAMetadataFolderGivesAFolderAtTheRoot) {
  root.makeFolder("/empty");
  EXPECT_EQ(folderFrom("/empty"), "/depotHost");
}

TEST_F(RestoreServiceSnapshot, ASnapshotPathThatIsAFileHasNoEntries) {
  root.writeFile("/file", "");
  EXPECT_EQ(folderFrom("/file"), "/depotHost");
}

TEST_F(RestoreServiceSnapshot, ASnapshotPathThatIsALinkIsFollowed) {
  root.makeLink("/latest", kSnapshot);
  EXPECT_EQ(folderFrom("/latest"), "/latest/Server HD/.Halyards/depotHost");
}

TEST_F(RestoreServiceSnapshot, ATrailingSlashShowsDoubled) {
  EXPECT_EQ(folderFrom(std::string(kSnapshot) + "/"),
            std::string(kSnapshot) + "//Server HD/.Halyards/depotHost");
}

TEST_F(RestoreServiceSnapshot, ASnapshotInProgressIsNotRefused) {
  root.makeFolder("/Volumes/Backup/Archives.snapdb/files1/x.inProgress/HD/.Halyards");
  EXPECT_EQ(folderFrom("/Volumes/Backup/Archives.snapdb/files1/x.inProgress"),
            "/Volumes/Backup/Archives.snapdb/files1/x.inProgress/HD/.Halyards/depotHost");
}

TEST_F(RestoreServiceSnapshot, TheSignatureIsNotRequired) {
  root.remove(inSnapshot("/.halyardSignature"));
  EXPECT_EQ(folderFrom(kSnapshot), inSnapshot("/depotHost"));
}

TEST_F(RestoreServiceSnapshot, ARelativePathIsTakenFromTheWorkingFolder) {
  RunOptions options;
  options.workingFolder = "/Volumes/Backup";
  const auto result =
      root.run({"-cmd", "restoreService", "-path", "Archives.snapdb/files1/2026-11-14", "-target",
                "/", "-service", "depotHost"},
               {}, options);
  EXPECT_EQ(result.status, 0);
  ASSERT_EQ(root.calls().size(), 1U);
  EXPECT_THAT(root.calls()[0],
              HasSubstr("|-path|Archives.snapdb/files1/2026-11-14/Server HD/.Halyards/depotHost|"));
}

TEST_F(RestoreServiceSnapshot, DebugShowsEveryLineInOrder) {
  root.writeFile("/srv/data", "live");
  root.writeFile(inSnapshot("/depotHost/srv/data"), "saved");
  root.writeFile("/private/etc/halyard/90-other.plist", "");
  const auto result = restoreFrom(kSnapshot, {{"DEBUG", ""}});
  EXPECT_THAT(
      outputFrom(result, "agendaHost"),
      ElementsAre(
          "agendaHost", "parleyHost", "rosterHost", "depotHost", "FOUND",
          "IMG_PATH := /Volumes/Backup/Archives.snapdb/files1/2026-11-14", "DEST_VOL := /",
          "sourceVolumePath := ", "sanitizedLocalVersion := 1070", "MINVER := 1060", "result := 1",
          "tStr := /private/etc/halyard/30-depotHost.plist", "tServiceName := depotHost",
          "tRestoreLog := /private/var/log/halyard/depotHost.log",
          "tRestoreBinaryPath := /opt/depot", "tDefaultRestoreAction := (null)",
          "tConfigurationFiles 0, := /etc/depot.conf",
          "\t" + inSnapshot("/depotHost//etc/depot.conf"), "tDataFiles 0, := /srv/data",
          "\t" + inSnapshot("/depotHost//srv/data"), "dest file := /srv/data",
          "Move source := /srv/data, asside to := /srv/data.previous",
          "from := " + inSnapshot("/depotHost//srv/data"), "to   := /srv", "tStr := ", "tStr := "));
}

TEST_F(RestoreServiceSnapshot, DebugLogsWhatItLookedAt) {
  root.makeFolder(std::string(kSnapshot) + "/Alpha");
  EXPECT_THAT(logMessages(restoreFrom(kSnapshot, {{"DEBUG", ""}})),
              ElementsAre("mountedImagePath := " + std::string(kSnapshot), "nextPath := Alpha",
                          "nextPath := Server HD", "serverMetaDataPath := " + inSnapshot("")));
}

TEST_F(RestoreServiceSnapshot, DebugLogsAnEmptyPathForAnotherTarget) {
  root.makeFolder("/Volumes/X");
  const auto result = root.run({"-cmd", "restoreService", "-path", kSnapshot, "-target",
                                "/Volumes/X", "-service", "depotHost"},
                               {{"DEBUG", ""}});
  EXPECT_THAT(logMessages(result), ElementsAre("mountedImagePath := ", "serverMetaDataPath := "));
}

TEST_F(RestoreServiceSnapshot, DebugDumpsListsArgumentsAndOutput) {
  const auto result = restoreFrom(kSnapshot, {{"DEBUG", ""}});
  for (const char* part : {"/etc/depot.conf", "/srv/data", "-cmd", "restored"}) {
    EXPECT_THAT(result.err, HasSubstr(part));
  }
}

TEST_F(RestoreServiceSnapshot, DebugSaysNotFoundForAnUnknownService) {
  const auto result = root.run(
      {"-cmd", "restoreService", "-path", kSnapshot, "-target", "/", "-service", "printHost"},
      {{"DEBUG", ""}});
  EXPECT_THAT(outputFrom(result, "siteHost"),
              ElementsAre("siteHost", "NOT FOUND",
                          "Service supplied for restore (printHost) is not recognized."));
}

}  // namespace
}  // namespace halyard::test

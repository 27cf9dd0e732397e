// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The backup command as a whole: gates, the metadata folder, its two closing files.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr const char* kSignature = "/.Halyards/.halyardSignature";
constexpr const char* kDiskInfo = "/.Halyards/ServerSourceDiskInfo.plist";
constexpr const char* kNotEnabled =
    "Backups are not enabled or no services are enabled for backup!\n";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};
const Environment kDebug{{"DEBUG", "1"}};

class Backup : public PrivateRootTest {
 protected:
  // Preferences that allow a backup when the dispatcher asks and hold no service when the run
  // itself loads them: the disk-usage tool runs in between.
  void withdrawServicesBeforeTheRun() {
    root.writeFile("/empty", plistDocument("<dict><key>services</key><dict/></dict>"));
    root.remove("/bin/df");
    root.writeScript("/bin/df", "cp /empty /private/etc/halyard/com.vantor.Halyard.plist");
  }
};

TEST_F(Backup, FillsTheMetadataFolder) {
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(
      root.list("/.Halyards"),
      ElementsAre(".halyardSignature", "ServerSourceDiskInfo.plist", "master.browse.plist"));
  EXPECT_EQ(root.modeOf("/.Halyards"), 0755U);
}

TEST_F(Backup, TheSignatureIsANewIdentifierEachTime) {
  root.run(kBackup);
  const std::string first = root.readFile(kSignature);
  EXPECT_THAT(first, MatchesRegex("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\n"));
  root.run(kBackup);
  EXPECT_NE(root.readFile(kSignature), first);
}

TEST_F(Backup, TheDiskReportIsKeptByteForByte) {
  root.writePlugin("/usr/sbin/drivectl", "printf 'a\\000b\\r\\n\\377'; echo noise >&2; exit 3");
  const auto result = root.run(kBackup);
  EXPECT_EQ(root.readFile(kDiskInfo), std::string("a\0b\r\n\xFF", 6));
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/drivectl|info|-plist|/"));
}

TEST_F(Backup, TheSignatureIsKeptByteForByte) {
  root.writePlugin("/usr/bin/uuidgen", "printf 'x'; exit 1");
  root.run(kBackup);
  EXPECT_EQ(root.readFile(kSignature), "x");
  EXPECT_THAT(root.calls(), ElementsAre("/usr/bin/uuidgen"));
}

TEST_F(Backup, MissingHostToolsLeaveEmptyFiles) {
  root.remove("/usr/sbin/drivectl");
  root.remove("/usr/bin/uuidgen");
  EXPECT_EQ(root.run(kBackup).status, 0);
  EXPECT_EQ(root.readFile(kDiskInfo), "");
  EXPECT_EQ(root.readFile(kSignature), "");
}

TEST_F(Backup, ASilentIdentifierToolDoesNotLeaveTheDiskReport) {
  root.remove("/usr/bin/uuidgen");
  root.writeScript("/usr/bin/uuidgen", "");
  root.run(kBackup);
  EXPECT_EQ(root.readFile(kSignature), "");
}

TEST_F(Backup, AnOlderMetadataFolderIsWiped) {
  root.writeFile("/.Halyards/old/deep/file", "x");
  root.writeFile("/.Halyards/restoreWasAttempted", "x");
  root.run(kBackup);
  EXPECT_THAT(
      root.list("/.Halyards"),
      ElementsAre(".halyardSignature", "ServerSourceDiskInfo.plist", "master.browse.plist"));
}

TEST_F(Backup, AFileInThePlaceOfTheFolderIsReplaced) {
  root.writeFile("/.Halyards", "plain");
  root.run(kBackup);
  EXPECT_TRUE(root.exists(kSignature));
}

TEST_F(Backup, ALinkInThePlaceOfTheFolderIsRemovedAndNotWhatItLeadsTo) {
  root.writeFile("/precious/file", "x");
  root.makeLink("/.Halyards", "/precious");
  root.run(kBackup);
  EXPECT_TRUE(root.isFolder("/.Halyards"));
  EXPECT_THAT(root.list("/precious"), ElementsAre("file"));
}

TEST_F(Backup, UnderDebugTheResetIsLogged) {
  root.makeFolder("/.Halyards");
  EXPECT_THAT(root.run(kBackup, kDebug).err,
              HasSubstr(" Removed ServerMetaDataBackupFolder at path := /.Halyards!\n"));
  EXPECT_THAT(root.run(kBackup).err, IsEmpty());
}

TEST_F(Backup, UnderDebugTheClosingFilesAreLogged) {
  const std::string log = root.run(kBackup, kDebug).err;
  EXPECT_THAT(log, HasSubstr(" Server boot disk info file writing done to path := "
                             "/.Halyards/ServerSourceDiskInfo.plist\n"));
  EXPECT_THAT(log, HasSubstr(" Backup signature writing done to path := "
                             "/.Halyards/.halyardSignature\n"));
}

TEST_F(Backup, PlatformLogLinesNameProgramAndProcess) {
  const auto lines = linesOf(root.run(kBackup, kDebug).err);
  bool found = false;
  for (const std::string& line : lines) {
    if (line.find("Backup signature") == std::string::npos) continue;
    found = true;
    EXPECT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}.* "
                                   "Halyard\\[[0-9]+\\] Backup signature writing done to path := "
                                   "/.Halyards/.halyardSignature"));
  }
  EXPECT_TRUE(found);
}

TEST_F(Backup, UnderDebugTheGatesAreShown) {
  const std::string out = root.run(kBackup, kDebug).out;
  EXPECT_THAT(out, HasSubstr("Backups are enabled!\nsourceVolume := /\nsourceVolumePath := \n"));
}

TEST_F(Backup, WithoutDebugOnlyNamesAndTheCatalogueArePrinted) {
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.out, "*** nextPath := com.vantor.Halyard.plist\n" +
                            root.readFile("/.Halyards/master.browse.plist"));
}

TEST_F(Backup, OfAnotherSourceOnlyRebuildsTheCatalogue) {
  root.writeFile("/.Halyards/old", "x");
  const auto result = root.run({"-cmd", "backup", "-source", "/Volumes/Backup"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(root.list("/.Halyards"), ElementsAre("master.browse.plist", "old"));
  EXPECT_EQ(result.out, root.readFile("/.Halyards/master.browse.plist"));
}

TEST_F(Backup, FlagsOfZeroPassTheGateAndWriteTheClosingFiles) {
  root.writePreferences({{"agendaHost", 0},
                         {"parleyHost", 0},
                         {"rosterHost", 0},
                         {"depotHost", 0},
                         {"postHost", 0},
                         {"hostProfile", 0},
                         {"siteHost", 0}});
  root.writePlugin("/opt/plugin");
  root.writeDescriptor("10-siteHost.plist", descriptorOf("siteHost", "/opt/plugin"));
  root.run(kBackup);
  EXPECT_THAT(root.calls(), IsEmpty());
  EXPECT_THAT(
      root.list("/.Halyards"),
      ElementsAre(".halyardSignature", "ServerSourceDiskInfo.plist", "master.browse.plist"));
}

TEST_F(Backup, WithoutAnyServiceEntryTheRunOnlyRebuildsTheCatalogue) {
  withdrawServicesBeforeTheRun();
  root.writeFile("/.Halyards/old", "x");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr(kNotEnabled)));
  EXPECT_EQ(result.out, root.readFile("/.Halyards/master.browse.plist"));
  EXPECT_THAT(root.list("/.Halyards"), ElementsAre("master.browse.plist", "old"));
  EXPECT_THAT(root.progressMessages(), IsEmpty());  // "Done." too: the log was never opened.
}

TEST_F(Backup, WithoutAnyServiceEntryDebugSaysSoAndReturns) {
  withdrawServicesBeforeTheRun();
  root.writeFile("/.Halyards/old", "x");
  const auto result = root.run(kBackup, {{"DEBUG", ""}, {"FUNCLOG", ""}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr(std::string(kNotEnabled) + "End   Backup---"));
  EXPECT_THAT(result.out, Not(HasSubstr("CreateMasterBrowse")));
  EXPECT_THAT(root.list("/.Halyards"), ElementsAre("old"));
}

TEST_F(Backup, APidFileIsThereDuringTheRunOnly) {
  root.writeScript("/usr/bin/uuidgen", "cat /private/var/run/HalyardRunning.pid");
  root.run(kBackup);
  EXPECT_THAT(root.readFile(kSignature), MatchesRegex("[0-9]+ :: backup\n"));
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(Backup, ASecondOneIsRefusedWhileOneRuns) {
  root.writeScript("/usr/bin/uuidgen", "/usr/sbin/Halyard -cmd services; echo $?");
  root.run(kBackup);
  EXPECT_EQ(root.readFile(kSignature), "Backup process is already running.\n37\n");
}

TEST_F(Backup, PluginsSeeTheEnvironmentUnchangedAndHostToolsAPlainLocale) {
  root.writeScript("/opt/plugin", "echo \"$LC_ALL $LANG $EXTRA\" >/seen");
  root.writeDescriptor("10-siteHost.plist", descriptorOf("siteHost", "/opt/plugin"));
  root.writeScript("/usr/sbin/drivectl", "echo \"$LC_ALL $EXTRA\"");
  root.run(kBackup, {{"LC_ALL", "de_DE.UTF-8"}, {"LANG", "fr_FR"}, {"EXTRA", "x"}});
  EXPECT_EQ(root.readFile("/seen"), "de_DE.UTF-8 fr_FR x\n");
  EXPECT_EQ(root.readFile(kDiskInfo), "C x\n");
}

}  // namespace
}  // namespace halyard::test

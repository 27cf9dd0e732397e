// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// check, and small texts.
#include <filesystem>

#include "common/sizes.h"
#include "common/table.h"
#include "helmsman/lint/descriptor_lint.h"
#include "report_test.h"
#include "support/build_paths.h"

namespace halyard::hostkit {
namespace {

using testing::ElementsAre;

TEST_F(HelmsmanCheck, FindsNothingOnASoundHost) {
  const auto result = helmsman({"check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("1 descriptors, 0 errors, 0 warnings"));
}

TEST_F(HelmsmanCheck, FindsUnknownKeysAndWrongTypes) {
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .text("BackupPath", "/x")
                 .text("DataFiles", "/x")
                 .raw("ConfigurationFiles", "<array><integer>1</integer></array>")
                 .raw("BackupLog", "<integer>1</integer>"));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("warning BackupPath: is no key that is read"));
  EXPECT_THAT(lines, Contains("error DataFiles: is a string and reads as absent"));
  EXPECT_THAT(lines, Contains(HasSubstr("error ConfigurationFiles: has entries that are no")));
  EXPECT_THAT(lines, Contains("error BackupLog: is an integer and reads as absent"));
  EXPECT_EQ(helmsman({"check"}).status, 1);
}

TEST_F(HelmsmanCheck, FindsProgramsThatCannotBeRun) {
  root.writeFile("/usr/libexec/plain", "x");
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .text("BackupBinaryPath", "/usr/libexec/none")
                 .text("RestoreBinaryPath", "/usr/libexec/plain")
                 .text("VerifyBinaryPath", "verify"));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("error BackupBinaryPath: /usr/libexec/none is missing"));
  EXPECT_THAT(lines, Contains("error RestoreBinaryPath: /usr/libexec/plain is no executable file"));
  EXPECT_THAT(lines, Contains(HasSubstr("error VerifyBinaryPath: 'verify' is not absolute")));
}

TEST_F(HelmsmanCheck, FindsWhatAMissingKeyMeans) {
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .without("RestoreBinaryPath")
                 .without("BackupLog")
                 .list("ConfigurationFiles", {"/conf"}));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains(HasSubstr("warning RestoreBinaryPath: is missing")));
  EXPECT_THAT(lines, Contains(HasSubstr("warning BackupLog: is missing: the arguments")));
  EXPECT_THAT(lines, Contains(HasSubstr("error ConfigurationFiles: a restore only moves them")));
}

TEST_F(HelmsmanCheck, FindsCommandLinesThatAreSplitAtBlanks) {
  root.writeScript("/opt/My Tools/stop", "exit 0");
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .list("PreBackupServiceCommands",
                       {"/opt/My Tools/stop now", "/usr/bin/echo  twice", "echo x",
                        "/usr/bin/echo 'a b'", "/usr/bin/echo a > /x", " /usr/bin/echo"}));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains(HasSubstr("is split at every blank: /opt/My is run, not /opt/My "
                                        "Tools/stop")));
  EXPECT_THAT(lines, Contains(HasSubstr("two blanks in a row make an empty argument")));
  EXPECT_THAT(lines, Contains(HasSubstr("'echo x': echo is not absolute")));
  EXPECT_THAT(lines, Contains(HasSubstr("quotes and backslashes are passed on")));
  EXPECT_THAT(lines, Contains(HasSubstr("no shell reads it")));
  EXPECT_THAT(lines, Contains(HasSubstr("begins with a blank, so no program is run")));
}

TEST_F(HelmsmanCheck, WarnsOfPreBackupCommandsWhoseFailureNobodyTells) {
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .list("PreBackupServiceCommands", {"/usr/bin/false x"})
                 .list("PostBackupServiceCommands", {"/usr/bin/false y"}));
  EXPECT_THAT(findings(), ElementsAre("warning PreBackupServiceCommands: '/usr/bin/false x': a "
                                      "failure of it is not told; the backup is called good"));
  EXPECT_THAT(helmsman({"check"}).out,
              HasSubstr("/30-depotHost.plist: PreBackupServiceCommands: "));
}

TEST_F(HelmsmanCheck, NoShippedServiceHasACommandWhoseFailureNobodyTells) {
  std::size_t count = 0;
  for (const auto& file :
       std::filesystem::directory_iterator(test::sourceFolder() + "/services/descriptors")) {
    std::filesystem::copy_file(file.path(),
                               root.path("/private/etc/halyard/" + file.path().filename().string()),
                               std::filesystem::copy_options::overwrite_existing);
    ++count;
  }
  EXPECT_EQ(count, 7U);
  EXPECT_THAT(findings(), Not(Contains(HasSubstr("PreBackupServiceCommands"))));
}

TEST_F(HelmsmanCheck, FindsFilesWhoseFolderNobodyMakes) {
  root.writeFile("/srv/depot", "data");
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .list("DataFiles", {"/srv/depot", "relative", "/top"})
                 .list("ConfigurationFiles", {"/srv/depot"}));
  auto lines = findings();
  EXPECT_THAT(lines, Contains(HasSubstr("warning DataFiles: /srv/depot: its folder /srv is not")));
  EXPECT_THAT(lines, Contains(HasSubstr("error DataFiles: 'relative' is not absolute")));
  EXPECT_THAT(lines, Contains(HasSubstr("warning ConfigurationFiles: /srv/depot is listed twice")));
  EXPECT_THAT(lines, Not(Contains(HasSubstr("/top:"))));

  root.writeFile("/.Halyards/depotHost/srv/depot", "a backup has shown that it can be copied");
  EXPECT_THAT(findings(), Not(Contains(HasSubstr("is not made in the backup"))));

  root.remove("/.Halyards");
  writeDepot(descriptorOf("depotHost", kPlugin)
                 .without("BackupBinaryPath")
                 .list("DataFiles", {"/srv/depot"}));
  EXPECT_THAT(findings(), Contains(HasSubstr("error DataFiles: /srv/depot: its folder")));
}

TEST_F(HelmsmanCheck, FindsSizeAnswersThatAreCutOff) {
  root.writePlugin(kPlugin, "echo 'total := 3000000000'");
  EXPECT_THAT(findings(), Contains(HasSubstr("error BackupBinaryPath: its size answer 3000000000 "
                                             "is read as 2147483647")));
  EXPECT_EQ(helmsman({"check", "--no-size"}).status, 0);
  root.writePlugin(kPlugin, "echo 'Total: 5'");
  EXPECT_THAT(findings(), IsEmpty()) << "a service without files may be silent";
  root.writeFile("/data", "x");
  writeDepot(descriptorOf("depotHost", kPlugin).list("DataFiles", {"/data"}));
  EXPECT_THAT(findings(), Contains(HasSubstr("has no line that begins with \"total := \"")));
}

TEST_F(HelmsmanCheck, FindsNamesThatSelectTooMuch) {
  root.writeDescriptor("31-depotHost-copy.plist", descriptorOf("depotHost", kPlugin));
  root.writeDescriptor("50-olddepotHostX.plist", descriptorOf("elsewhere", kPlugin));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("error ServiceName: 'depotHost' is the name in "
                              "31-depotHost-copy.plist too"));
  EXPECT_THAT(lines, Contains(HasSubstr("'depotHost' is part of the file name "
                                        "50-olddepotHostX.plist: a restore")));
  EXPECT_THAT(lines, Contains(HasSubstr("'elsewhere' is not part of the file name")));
}

TEST_F(HelmsmanCheck, FindsFilesThatAreTakenForDescriptors) {
  root.writeFile("/private/etc/halyard/README", "hello");
  root.makeFolder("/private/etc/halyard/saved");
  const auto lines = findings();
  EXPECT_THAT(lines, Contains(HasSubstr("error : is no property list with a dictionary")));
  EXPECT_THAT(lines, Contains(HasSubstr("error : is a folder, and is taken for a descriptor")));
}

TEST_F(HelmsmanCheck, FindsFaultsInThePreferences) {
  root.writeFile(kServices,
                 test::plistDocument("<dict><key>service</key><dict/><key>services</key><dict>"
                                     "<key>depotHost</key><integer>2</integer>"
                                     "<key>postHost</key><true/>"
                                     "<key>chessHost</key><integer>1</integer></dict></dict>"));
  root.writeFile(kEngine, test::plistDocument("<dict><key>AutoBackup</key><integer>1</integer>"
                                              "<key>BackupAlias</key><string>/Volumes/Away</string>"
                                              "<key>Day</key><string>Someday</string>"
                                              "<key>Colour</key><string>red</string></dict>"));
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("error service: is no key that is read"));
  EXPECT_THAT(lines, Contains(HasSubstr("warning depotHost: is 2: backed up, and left out")));
  EXPECT_THAT(lines, Contains(HasSubstr("warning postHost: is on, and no descriptor")));
  EXPECT_THAT(lines, Contains(HasSubstr("warning chessHost: is no service that is known")));
  EXPECT_THAT(lines, Contains("error BackupAlias: '/Volumes/Away' leads to no volume"));
  EXPECT_THAT(lines, Contains(HasSubstr("warning Day: ")));
  EXPECT_THAT(lines, Contains(HasSubstr("warning Time: is missing")));
  EXPECT_THAT(lines, Contains("error Colour: is no key that is read"));
}

TEST_F(HelmsmanCheck, SaysOnAHostThatIsNotSetUpNothingButThat) {
  forgetSetup();
  EXPECT_THAT(findings(), ElementsAre("error : this host is not set up yet"));
  EXPECT_EQ(helmsman({"check"}).status, 1);
}

TEST_F(HelmsmanCheck, IsContentWithAServiceOfOnesOwnOnceItIsEnabled) {
  root.writeDescriptor("70-chessHost.plist", descriptorOf("chessHost", kPlugin));
  EXPECT_THAT(findings(), ElementsAre("warning chessHost: has a descriptor and is no key: it "
                                      "cannot be restored, browsed or verified"));
  for (const char* command : {"browse", "restore"}) {
    const auto refused = helmsman({command, "chessHost"});
    EXPECT_NE(refused.status, 0) << command;
    EXPECT_THAT(refused.err, HasSubstr("(see: helmsman enable chessHost)")) << command;
  }
  EXPECT_EQ(helmsman({"enable", "chessHost"}).status, 0);
  EXPECT_THAT(findings(), ElementsAre());
  EXPECT_THAT(helmsman({"browse", "chessHost"}).err, Not(HasSubstr("helmsman enable")));
  EXPECT_EQ(helmsman({"disable", "chessHost"}).status, 1);
}

TEST_F(HelmsmanCheck, DoesNotDoubtWhatIsShipped) {
  root.makeFolder("/etc/ldap/schema");
  const auto text =
      descriptorOf("depotHost", kPlugin).list("ConfigurationFiles", {"/etc/ldap/schema"});
  writeDepot(text);
  EXPECT_THAT(findings(), ElementsAre(HasSubstr("its folder /etc/ldap is not made")));
  root.remove("/private/etc/halyard/30-depotHost.plist");
  root.writeFile("/usr/share/halyard/services/30-depotHost.plist", text.plist());
  ASSERT_EQ(helmsman({"enable", "depotHost"}).status, 0);
  EXPECT_THAT(findings(), ElementsAre());
}

TEST_F(HelmsmanCheck, TellsAHostThatWasRenamed) {
  root.writeFile(
      "/Library/Preferences/HostConfig/preferences.plist",
      test::plistDocument("<dict><key>System</key><dict><key>System</key><dict><key>"
                          "ComputerName</key><string>ledger</string></dict></dict></dict>"));
  EXPECT_THAT(findings(), ElementsAre("warning : this host is called files1, and its snapshots "
                                      "stand under ledger"));
}

TEST_F(HelmsmanCheck, FindsPreferencesThatCannotBeRead) {
  root.writeFile(kServices, "nonsense");
  root.remove(kEngine);
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("error : is no property list with a dictionary"));
  EXPECT_THAT(lines, Contains("error : is missing"));
}

TEST(FolderIsMade, FollowsTheMirrorRule) {
  EXPECT_TRUE(folderIsMade("/top", {}));
  EXPECT_FALSE(folderIsMade("/etc/x", {"/etc/x"}));
  // A deeper file makes the folders above its own.
  EXPECT_TRUE(folderIsMade("/etc/x", {"/etc/samba/y", "/etc/x"}));
  EXPECT_FALSE(folderIsMade("/etc/samba/x", {"/etc/samba/y", "/etc/samba/x"}));
  // A copied folder brings its contents.
  EXPECT_TRUE(folderIsMade("/top/x", {"/top"}));
}

// ---- small texts

TEST(Sizes, AreShownInBinaryUnits) {
  EXPECT_EQ(sizeText(0), "0 B");
  EXPECT_EQ(sizeText(1023), "1023 B");
  EXPECT_EQ(sizeText(1536), "1.5 KiB");
  EXPECT_EQ(sizeText((1 << 20) - 1), "1.0 MiB");
}

TEST(Times, RoundTripAndRefuseNonsense) {
  EXPECT_EQ(timeText(1795140060), "2026-11-20T02:01:00Z");
  EXPECT_EQ(parseTime("2026-11-20T02:01:00Z"), 1795140060);
  for (const char* text : {"", "2026-11-20", "2026-02-31T02:01:00Z", "2026-11-20T25:00:00Z"}) {
    EXPECT_EQ(parseTime(text), std::nullopt) << text;
  }
  EXPECT_EQ(ageText(-60), "in the future");
  EXPECT_EQ(ageText(-59), "just now");
  EXPECT_EQ(ageText(59), "just now");
  EXPECT_EQ(ageText(60), "1 minute ago");
  EXPECT_EQ(ageText(47 * 3600), "47 hours ago");
  EXPECT_EQ(ageText(48 * 3600), "2 days ago");
}

TEST(Table, PadsColumnsByCharacters) {
  EXPECT_EQ(tableText({{"A", "B"}, {"\xC3\xA4\xC3\xB6", "x"}, {"long"}}),
            "A     B\n\xC3\xA4\xC3\xB6    x\nlong\n");
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The checks of host version, source volume and repository folder, as a backup makes them.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kVersionFile = "/System/Library/BaseKit/SystemVersion.plist";
constexpr const char* kRepository = "/Volumes/Backup/Archives.snapdb";
constexpr const char* kWrongVersion =
    "The target drive for backup is not the correct Server version.\n";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

class SystemValidation : public PrivateRootTest {
 protected:
  void writeVersion(const std::string& version) {
    root.writeFile(kVersionFile, plistDocument("<dict><key>ProductVersion</key><string>" + version +
                                               "</string></dict>"));
  }

  // The lines of isValidSystem under debug.
  std::string answer(const std::string& sanitized, int result) {
    return "sourceVolumePath := \nsanitizedLocalVersion := " + sanitized +
           "\nMINVER := 1060\nresult := " + std::to_string(result) + "\n";
  }

  void expectAnswer(const std::string& version, const std::string& sanitized, int result) {
    writeVersion(version);
    const auto run = root.run(kBackup, {{"DEBUG", ""}});
    EXPECT_THAT(run.out, HasSubstr(answer(sanitized, result))) << version;
    EXPECT_EQ(run.out.find(kWrongVersion) == std::string::npos, result == 1) << version;
    EXPECT_EQ(root.exists("/.Halyards/.halyardSignature"), result == 1) << version;
    root.remove("/.Halyards");
  }
};

TEST_F(SystemValidation, VersionsFromTenSixOnPass) {
  expectAnswer("10.6", "1060", 1);
  expectAnswer("10.6.0", "1060", 1);
  expectAnswer("10.6.8", "1068", 1);
  expectAnswer("10.7", "1070", 1);
}

TEST_F(SystemValidation, EarlierVersionsFail) {
  expectAnswer("10.5.8", "1058", 0);
  expectAnswer("10.5", "1050", 0);
}

TEST_F(SystemValidation, VersionsCompareAsDigitStrings) {
  expectAnswer("10.5.10", "10510", 1);
  expectAnswer("11", "11", 0);
  expectAnswer("10.10", "10100", 1);
}

TEST_F(SystemValidation, OddVersionTextsReadUpToTheFirstNonDigit) {
  expectAnswer("", "", 0);
  expectAnswer("1070 beta", "1070 beta", 1);
  expectAnswer("x1070", "x1070", 0);
  expectAnswer("99999999999999999999", "99999999999999999999", 1);
  expectAnswer(".1070", "10700", 1);
}

TEST_F(SystemValidation, AMissingVersionFileFails) {
  root.remove(kVersionFile);
  EXPECT_THAT(root.run(kBackup, {{"DEBUG", ""}}).out, HasSubstr(answer("", 0) + kWrongVersion));
}

TEST_F(SystemValidation, AVersionOfAnotherTypeFails) {
  root.writeFile(kVersionFile,
                 plistDocument("<dict><key>ProductVersion</key><real>10.7</real></dict>"));
  EXPECT_THAT(root.run(kBackup, {{"DEBUG", ""}}).out, HasSubstr(answer("", 0) + kWrongVersion));
}

TEST_F(SystemValidation, WithoutDebugAWrongVersionIsSilent) {
  writeVersion("10.5");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr("Server version")));
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(SystemValidation, ASourceThatIsAFileFailsWithoutReadingTheVersion) {
  root.writeFile("/plain", "");
  EXPECT_THAT(root.run({"-cmd", "backup", "-source", "/plain"}, {{"DEBUG", ""}}).out,
              HasSubstr("sourceVolume := /plain\nsourceVolumePath := \nresult := 0\n" +
                        std::string(kWrongVersion)));
}

TEST_F(SystemValidation, AnotherVolumeIsAValidSystemButNoSource) {
  EXPECT_THAT(root.run({"-cmd", "backup", "-source", "/Volumes/Backup"}, {{"DEBUG", ""}}).out,
              HasSubstr(answer("1070", 1) + kWrongVersion));
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(SystemValidation, TheSourceMustBeExactlyTheSlash) {
  for (const char* source : {"//", "/.", "/./", "/../"}) {
    EXPECT_THAT(root.run({"-cmd", "backup", "-source", source}, {{"DEBUG", ""}}).out,
                HasSubstr(kWrongVersion))
        << source;
  }
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(SystemValidation, AMissingRepositoryIsMadeForRootAndAdmin) {
  RunOptions options;
  options.umask = 077;
  const auto result = root.run(kBackup, {{"VERBOSE", ""}}, options);
  EXPECT_THAT(result.out,
              HasSubstr("Created backup folder at path := /Volumes/Backup/Archives.snapdb\n"));
  EXPECT_EQ(root.modeOf(kRepository), 0775U);
  struct stat status {};
  ASSERT_EQ(stat(root.path(kRepository).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 80U);
}

TEST_F(SystemValidation, WithoutVerboseTheNewRepositoryIsNotTold) {
  EXPECT_THAT(root.run(kBackup, {{"DEBUG", ""}}).out, Not(HasSubstr("Created backup folder")));
  EXPECT_TRUE(root.isFolder(kRepository));
}

TEST_F(SystemValidation, WithoutAnAdminGroupTheGroupStays) {
  root.writeFile("/etc/group", "root:x:0:\n");
  root.run(kBackup);
  EXPECT_EQ(root.modeOf(kRepository), 0775U);
  struct stat status {};
  ASSERT_EQ(stat(root.path(kRepository).c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, 0U);
}

TEST_F(SystemValidation, AGroupOfThousandsOfMembersIsFoundToo) {
  std::string admin = "admin:x:80:root";
  for (int member = 0; member < 5000; ++member) admin += ",user" + std::to_string(member);
  root.writeFile("/etc/group", "root:x:0:\n" + admin + "\n");
  root.run(kBackup);
  struct stat status {};
  ASSERT_EQ(stat(root.path(kRepository).c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, 80U);
}

TEST_F(SystemValidation, AnExistingRepositoryIsOnlyPassedToMkdir) {
  root.makeFolder(kRepository, 0700);
  root.remove("/bin/mkdir");
  root.writePlugin("/bin/mkdir");
  const auto result = root.run(kBackup, {{"VERBOSE", ""}});
  EXPECT_THAT(root.calls(), ElementsAre("/bin/mkdir|-p|-m|0770|/Volumes/Backup/Archives.snapdb"));
  EXPECT_EQ(root.modeOf(kRepository), 0700U);
  EXPECT_THAT(result.out, Not(HasSubstr("Created backup folder")));
}

TEST_F(SystemValidation, TheRealMkdirLeavesAnExistingRepositoryAlone) {
  root.makeFolder(kRepository, 0700);
  root.run(kBackup);
  EXPECT_EQ(root.modeOf(kRepository), 0700U);
}

TEST_F(SystemValidation, APlainFileInThePlaceOfTheRepositoryStays) {
  root.writeFile(kRepository, "plain");
  const auto result = root.run(kBackup, {{"VERBOSE", ""}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              HasSubstr("Created backup folder at path := /Volumes/Backup/Archives.snapdb\n"));
  EXPECT_EQ(root.readFile(kRepository), "plain");
}

TEST_F(SystemValidation, AnAbsentDestinationShowsNullAndFailsSilently) {
  root.writeEnginePreferences(1, "/Volumes/Gone");
  RunOptions options;
  options.workingFolder = "/tmp";
  root.makeFolder("/tmp/(null)");
  const auto result = root.run(kBackup, {{"VERBOSE", ""}}, options);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("Created backup folder at path := (null)/Archives.snapdb\n"));
  EXPECT_FALSE(root.exists("/Volumes/Gone"));
  EXPECT_FALSE(root.exists("/(null)"));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(SystemValidation, SourceIsTestedBeforeTarget) {
  // The version gate looks at "-source", an existing file, and so fails; "-target" would pass.
  root.writeFile("/plain", "");
  root.makeFolder("/snapshot");
  const std::vector<std::string> words{"-cmd", "restoreService", "-path",    "/snapshot", "-target",
                                       "/",    "-service",       "siteHost", "-source",   "/plain"};
  EXPECT_THAT(root.run(words, {{"DEBUG", ""}}).out,
              HasSubstr("sourceVolumePath := \nresult := 0\n"));
}

TEST_F(SystemValidation, WithoutASourceTheTargetIsTested) {
  root.makeFolder("/snapshot");
  root.writeFile("/plain", "");
  std::vector<std::string> words{"-cmd", "restoreService", "-path",   "/snapshot", "-target",
                                 "/",    "-service",       "siteHost"};
  EXPECT_THAT(root.run(words, {{"DEBUG", ""}}).out, HasSubstr(answer("1070", 1)));
  words[5] = "/plain";
  EXPECT_THAT(root.run(words, {{"DEBUG", ""}}).out,
              HasSubstr("sourceVolumePath := \nresult := 0\n"));
}

}  // namespace
}  // namespace halyard::test

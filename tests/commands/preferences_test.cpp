// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The prefs command, and what the two preference files may hold.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kPreferenceFile = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr const char* kEngineFile = "/Library/Preferences/com.vantor.Snapwheel.plist";
constexpr const char* kRepair = "Fixing up default prefs by calling plugin...done.\n";
constexpr const char* kNotEnabled =
    "Backups are not enabled or no services are enabled for backup!\n";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};
const Environment kDebug{{"DEBUG", "1"}};

// The debug lines of one call of Prefs; main() makes one, the command another.
std::string engineLines(const std::string& alias, const std::string& autoBackup) {
  return "snapwheel_BackupAlias := " + alias + "\nsnapwheel_AutoBackup := " + autoBackup +
         "\nsnapwheel_Day := (null)\nsnapwheel_Period := (null)\nsnapwheel_DaysToRetain := 0\n"
         "snapwheel_Time := 0\nsnapwheel_Week := 0\n";
}

std::string serviceLines(const std::string& seven) {
  return "serverprefs_servicesDict_agendaData := " + seven.substr(0, 1) +
         "\nserverprefs_servicesDict_parleyHost := " + seven.substr(1, 1) +
         "\nserverprefs_servicesDict_rosterHost := " + seven.substr(2, 1) +
         "\nserverprefs_servicesDict_depotHost := " + seven.substr(3, 1) +
         "\nserverprefs_servicesDict_postData := " + seven.substr(4, 1) +
         "\nserverprefs_servicesDict_hostProfile := " + seven.substr(5, 1) +
         "\nserverprefs_servicesDict_siteData := " + seven.substr(6, 1) + "\n";
}

std::string twice(const std::string& text) { return text + text; }

class Prefs : public PrivateRootTest {
 protected:
  void writeServices(const std::string& xml) {
    root.writeFile(kPreferenceFile, plistDocument("<dict><key>services</key>" + xml + "</dict>"));
  }
  void writeEngine(const std::string& entries) {
    root.writeFile(kEngineFile, plistDocument("<dict>" + entries + "</dict>"));
  }
  std::string debugOutput() {
    const auto result = root.run({"-cmd", "prefs"}, kDebug);
    EXPECT_EQ(result.status, 0);
    return result.out;
  }
};

TEST_F(Prefs, PrintsNothingWhenTheFilesAreThere) {
  root.writePlugin("/usr/sbin/helmsman");
  const auto result = root.run({"-cmd", "prefs"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(root.calls(), IsEmpty());
}

TEST_F(Prefs, ShowsEveryValueUnderDebug) {
  EXPECT_EQ(debugOutput(), twice("snapwheel_BackupAlias := /Volumes/Backup\n"
                                 "snapwheel_AutoBackup := 1\n"
                                 "snapwheel_Day := Sunday\n"
                                 "snapwheel_Period := Daily\n"
                                 "snapwheel_DaysToRetain := 30\n"
                                 "snapwheel_Time := 120\n"
                                 "snapwheel_Week := 1\n"
                                 "serverprefs_servicesDict_agendaData := 1\n"
                                 "serverprefs_servicesDict_parleyHost := 1\n"
                                 "serverprefs_servicesDict_rosterHost := 1\n"
                                 "serverprefs_servicesDict_depotHost := 1\n"
                                 "serverprefs_servicesDict_postData := 1\n"
                                 "serverprefs_servicesDict_hostProfile := 1\n"
                                 "serverprefs_servicesDict_siteData := 1\n"));
}

TEST_F(Prefs, EachServiceHasItsOwnLine) {
  root.writePreferences({{"siteHost", 7},
                         {"hostProfile", 6},
                         {"postHost", 5},
                         {"depotHost", 4},
                         {"rosterHost", 3},
                         {"parleyHost", 2},
                         {"agendaHost", 1}});
  EXPECT_THAT(debugOutput(), HasSubstr(serviceLines("1234567")));
}

TEST_F(Prefs, AnEmptyEngineFileClearsItsValues) {
  writeEngine("");
  EXPECT_EQ(debugOutput(), twice(engineLines("(null)", "0") + serviceLines("1111111")));
}

TEST_F(Prefs, AutoBackupOfTwoCountsAsOne) {
  root.writeEnginePreferences(2, "/Volumes/Backup");
  EXPECT_THAT(debugOutput(), HasSubstr("snapwheel_AutoBackup := 1\n"));
  EXPECT_THAT(root.run(kBackup).out, Not(HasSubstr(kNotEnabled)));
}

TEST_F(Prefs, AutoBackupReadsAsAnInteger) {
  for (const auto& [xml, shown] :
       std::map<std::string, std::string>{{"<true/>", "1"},
                                          {"<false/>", "0"},
                                          {"<integer>-3</integer>", "1"},
                                          {"<real>1.9</real>", "1"},
                                          {"<real>0.9</real>", "0"},
                                          {"<string> 12x</string>", "1"},
                                          {"<string>yes</string>", "0"},
                                          {"<array><true/></array>", "0"},
                                          {"<dict/>", "0"},
                                          {"<data>AQ==</data>", "0"},
                                          {"<date>2026-01-01T00:00:00Z</date>", "0"}}) {
    writeEngine("<key>AutoBackup</key>" + xml);
    EXPECT_THAT(debugOutput(), HasSubstr("snapwheel_AutoBackup := " + shown + "\n")) << xml;
  }
}

TEST_F(Prefs, ServiceValuesReadAsIntegers) {
  writeServices(
      "<dict><key>agendaHost</key><true/><key>parleyHost</key><false/><key>rosterHost</key>"
      "<string>3</string><key>depotHost</key><real>4.7</real><key>postHost</key><array/>"
      "<key>hostProfile</key><dict/><key>siteHost</key><integer>8</integer></dict>");
  EXPECT_THAT(debugOutput(), HasSubstr(serviceLines("1034008")));
}

TEST_F(Prefs, AFileWithoutServicesClearsAllSeven) {
  for (const char* content : {"<dict/>", "<dict><key>services</key><array/></dict>",
                              "<dict><key>Services</key><dict/></dict>"}) {
    root.writeFile(kPreferenceFile, plistDocument(content));
    EXPECT_THAT(debugOutput(), HasSubstr(serviceLines("0000000"))) << content;
    EXPECT_EQ(root.run(kBackup).out, kNotEnabled) << content;
  }
}

TEST_F(Prefs, AMissingPreferenceFilePrintsNoServiceLines) {
  root.remove(kPreferenceFile);
  EXPECT_EQ(debugOutput(),
            twice(std::string(kRepair) +
                  "snapwheel_BackupAlias := /Volumes/Backup\nsnapwheel_AutoBackup := 1\n"
                  "snapwheel_Day := Sunday\nsnapwheel_Period := Daily\n"
                  "snapwheel_DaysToRetain := 30\nsnapwheel_Time := 120\n"
                  "snapwheel_Week := 1\n"));
}

TEST_F(Prefs, AMissingEngineFileStillPrintsItsLines) {
  root.remove(kEngineFile);
  EXPECT_EQ(debugOutput(), twice(kRepair + engineLines("(null)", "0") + serviceLines("1111111")));
}

TEST_F(Prefs, TheRepairToolIsCalledWithSettingsBackup) {
  root.remove(kEngineFile);
  root.writePlugin("/usr/sbin/helmsman", "echo loud; echo louder >&2; exit 9");
  const auto result = root.run({"-cmd", "prefs"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, twice(kRepair));
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/helmsman|settings|backup",
                                        "/usr/sbin/helmsman|settings|backup"));
}

TEST_F(Prefs, FilesThatTheRepairMakesAreReadAtOnce) {
  root.writeFile("/defaults", root.readFile(kPreferenceFile));
  root.remove(kPreferenceFile);
  root.writePlugin("/usr/sbin/helmsman",
                   "cp /defaults /private/etc/halyard/com.vantor.Halyard.plist");
  const auto result = root.run({"-cmd", "prefs"}, kDebug);
  EXPECT_THAT(result.out, testing::StartsWith(kRepair));
  EXPECT_THAT(result.out, HasSubstr(serviceLines("1111111")));
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/helmsman|settings|backup"));
}

TEST_F(Prefs, WithoutFilesAndToolEveryCommandRunsWithAnEmptyRecord) {
  root.remove(kPreferenceFile);
  root.remove(kEngineFile);
  EXPECT_EQ(root.run({"-cmd", "prefs"}).out, twice(kRepair));
  EXPECT_EQ(root.run({"-cmd", "services"}).out, kRepair);
  EXPECT_EQ(root.run({"-cmd", "version"}).out, kRepair);
  EXPECT_EQ(root.run({"-cmd", "postBackupComplete"}).out, kRepair);
  EXPECT_THAT(root.run({"-cmd", "size"}).out, HasSubstr("total := 0\n"));
  const auto backup = root.run(kBackup);
  EXPECT_EQ(backup.status, 1);
  EXPECT_EQ(backup.out, twice(kRepair) + kNotEnabled);
}

TEST_F(Prefs, ASingleServiceThatIsOffStillAllowsABackup) {
  root.writePreferences({{"siteHost", 0}});
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr(kNotEnabled)));
  EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
}

TEST_F(Prefs, AnEighthKeyAllowsNoBackupButIsAValidService) {
  root.writePreferences({{"otherHost", 1}});
  EXPECT_EQ(root.run(kBackup).status, 1);
  const auto result =
      root.run({"-cmd", "restoreService", "-path", "/gone", "-service", "otherHost"});
  EXPECT_EQ(result.out, "Image path for browing does not exist.\n");
  root.remove("/private/var/run/HalyardRunning.pid");
  EXPECT_THAT(
      root.run({"-cmd", "restoreService", "-path", "/", "-target", "/", "-service", "otherHost"})
          .out,
      Not(HasSubstr("is not recognized")));
}

TEST_F(Prefs, KeysAreShownUpToTheMatchUnderDebug) {
  const std::vector<std::string> words{"-cmd",    "restoreService", "-path",    "/",
                                       "-target", "/gone",          "-service", "rosterHost"};
  EXPECT_THAT(root.run(words, kDebug).out,
              HasSubstr("serverprefs_servicesDict_siteData := 1\n"
                        "agendaHost\nparleyHost\nrosterHost\nFOUND\n"));
}

TEST_F(Prefs, AllKeysAreShownWhenNoneMatches) {
  const std::vector<std::string> words{"-cmd", "restoreService", "-path",     "/", "-target",
                                       "/",    "-service",       "AgendaHost"};
  const auto result = root.run(words, kDebug);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              HasSubstr("serverprefs_servicesDict_siteData := 1\n"
                        "agendaHost\nparleyHost\nrosterHost\ndepotHost\npostHost\nhostProfile\n"
                        "siteHost\nNOT FOUND\n"
                        "Service supplied for restore (AgendaHost) is not recognized.\n"));
}

TEST_F(Prefs, FoundFollowsTheEndLine) {
  const std::vector<std::string> words{"-cmd", "restoreService", "-path", "/", "-target",
                                       "/",    "-service",       "none"};
  root.writePreferences({{"agendaHost", 1}});
  EXPECT_THAT(
      root.run(words, {{"DEBUG", ""}, {"FUNCLOG", ""}}).out,
      HasSubstr("agendaHost\nEnd   isValidService" + std::string(55, '-') + "+\nNOT FOUND\n"));
}

TEST_F(Prefs, AnAliasThatDoesNotResolveLeavesTheDestinationAbsent) {
  for (const char* alias :
       {"/Volumes/Gone", "Volumes/Backup", "", "LABEL=no-such-label", "/dev/no-such-device"}) {
    root.writeEnginePreferences(1, alias);
    EXPECT_THAT(debugOutput(), HasSubstr("snapwheel_BackupAlias := (null)\n")) << alias;
  }
}

TEST_F(Prefs, AnAliasMayBeDataWithTrailingZeros) {
  writeEngine("<key>BackupAlias</key><data>L1ZvbHVtZXMvQmFja3VwAAA=</data>");
  EXPECT_THAT(debugOutput(), HasSubstr("snapwheel_BackupAlias := /Volumes/Backup\n"));
}

TEST_F(Prefs, ValuesOfWrongTypesInTheEngineFileAreTolerated) {
  for (const char* value : {"<array/>", "<dict/>", "<true/>", "<data></data>", "<real>nan</real>",
                            "<date>2026-01-01T00:00:00Z</date>", "<integer>1</integer>"}) {
    std::string entries;
    for (const char* key :
         {"AutoBackup", "BackupAlias", "Day", "Period", "DaysToRetain", "Time", "Week"}) {
      entries += std::string("<key>") + key + "</key>" + value;
    }
    writeEngine(entries);
    EXPECT_THAT(debugOutput(), HasSubstr("snapwheel_BackupAlias := (null)\n")) << value;
  }
}

}  // namespace
}  // namespace halyard::test

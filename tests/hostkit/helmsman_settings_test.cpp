// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include "helmsman/settings/settings.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using HelmsmanSettings = test::HostKitTest;
using HelmsmanSetup = test::HostKitTest;

constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";

std::string integerEntry(const std::string& key, int value) {
  return "<key>" + key + "</key>\n\t\t<integer>" + std::to_string(value) + "</integer>";
}

TEST_F(HelmsmanSettings, WritesBothFilesThatAreMissing) {
  root.remove(kServices);
  root.remove(kEngine);
  EXPECT_EQ(helmsman({"settings", "backup"}).status, 0);
  EXPECT_EQ(root.readFile(kServices), writePropertyList(defaultServicePreferences({})));
  EXPECT_EQ(root.readFile(kEngine), writePropertyList(defaultEnginePreferences()));
  EXPECT_EQ(root.modeOf(kServices), 0644U);
}

TEST_F(HelmsmanSettings, SwitchesOnTheServicesWhoseDescriptorIsInstalled) {
  root.remove(kServices);
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/usr/bin/true"));
  root.writeDescriptor("80-other.plist", descriptorOf("other", "/usr/bin/true"));
  EXPECT_EQ(helmsman({"settings", "backup"}).status, 0);
  const std::string text = root.readFile(kServices);
  EXPECT_NE(text.find(integerEntry("depotHost", 1)), std::string::npos) << text;
  EXPECT_NE(text.find(integerEntry("siteHost", 0)), std::string::npos) << text;
  EXPECT_EQ(text.find("other"), std::string::npos);
}

TEST_F(HelmsmanSettings, NeverTouchesAFileThatIsThere) {
  root.writeFile(kServices, "no property list at all");
  root.remove(kEngine);
  EXPECT_EQ(helmsman({"settings", "backup"}).status, 0);
  EXPECT_EQ(root.readFile(kServices), "no property list at all");
  EXPECT_TRUE(root.exists(kEngine));
}

TEST_F(HelmsmanSettings, ASecondRunChangesNothing) {
  root.remove(kServices);
  EXPECT_EQ(helmsman({"settings", "backup"}).err,
            "helmsman: wrote " + std::string(kServices) + "\n");
  const std::string first = root.readFile(kServices);
  const auto second = helmsman({"settings", "backup"});
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out + second.err, "");
  EXPECT_EQ(root.readFile(kServices), first);
}

TEST_F(HelmsmanSettings, ServesTheRepairOfAHostThatWasNeverSetUp) {
  forgetSetup();
  EXPECT_EQ(helmsman({"settings", "backup"}).status, 0);
  EXPECT_TRUE(root.exists("/etc/halyard/com.vantor.Halyard.plist"));
  EXPECT_TRUE(root.exists("/etc/halyard-host/com.vantor.Snapwheel.plist"));
}

TEST_F(HelmsmanSettings, TellsWhatCouldNotBeWritten) {
  root.remove("/private/etc/halyard");
  root.writeFile("/private/etc/halyard", "a file where the folder belongs");
  const auto result = helmsman({"settings", "backup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("/private/etc/halyard"), std::string::npos) << result.err;
}

TEST_F(HelmsmanSettings, KnowsNoOtherSettings) {
  EXPECT_EQ(refused("helmsman", {"settings", "restore"}).status, 2);
  EXPECT_EQ(refused("helmsman", {"settings"}).status, 2);
}

TEST_F(HelmsmanSetup, MakesABareHostReadyForHalyard) {
  forgetSetup();
  const auto result = helmsman({"setup"});
  EXPECT_EQ(result.status, 0) << result.err;
  // From outside the root its absolute links lead elsewhere: only native paths are looked at.
  EXPECT_TRUE(root.exists("/var/lib/halyard/.VantorSetupDone"));
  EXPECT_TRUE(root.exists("/etc/halyard/com.vantor.Halyard.plist"));
  EXPECT_EQ(root.modeOf("/var/log/halyard"), 0770U);
  EXPECT_NE(root.readFile("/var/lib/halyard/BaseKit/SystemVersion.plist").find("10.7"),
            std::string::npos);
  const auto list = root.run({"-cmd", "services"});
  EXPECT_EQ(list.status, 0);
  EXPECT_NE(list.out.find("agendaHost\n"), std::string::npos);
}

TEST_F(HelmsmanSetup, IsTheNextStepOfACommandForAService) {
  forgetSetup();
  for (const char* command : {"restore", "undo", "verify", "browse", "enable", "disable"}) {
    EXPECT_NE(helmsman({command, "web"}).err.find("(see: helmsman setup)"), std::string::npos)
        << command;
  }
}

TEST_F(HelmsmanSetup, CanBeRepeatedAndThenSaysNothing) {
  forgetSetup();
  EXPECT_EQ(helmsman({"setup"}).status, 0);
  root.writeFile(
      "/etc/halyard-host/HostConfig/preferences.plist",
      test::plistDocument("<dict><key>System</key><dict><key>System</key><dict><key>"
                          "ComputerName</key><string>mine</string></dict></dict></dict>"));
  const auto second = helmsman({"setup", "--quiet"});
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out, "");
  EXPECT_NE(root.readFile("/etc/halyard-host/HostConfig/preferences.plist").find("mine"),
            std::string::npos);
}

TEST_F(HelmsmanSetup, KeepsWhatElseTheHostConfigurationSays) {
  root.writeFile("/Library/Preferences/HostConfig/preferences.plist",
                 test::plistDocument("<dict><key>Network</key><string>kept</string></dict>"));
  EXPECT_EQ(helmsman({"setup"}).status, 0);
  const std::string text = root.readFile("/Library/Preferences/HostConfig/preferences.plist");
  EXPECT_NE(text.find("kept"), std::string::npos);
  EXPECT_NE(text.find("ComputerName"), std::string::npos);
}

TEST_F(HelmsmanSetup, DoesNotCallAHostReadyThatIsNot) {
  root.remove("/private/var/db");
  root.remove("/private/etc");
  root.writeFile("/private/etc", "in the way");
  const auto result = helmsman({"setup"});
  EXPECT_EQ(result.status, 1);
  EXPECT_FALSE(root.exists("/private/var/db/.VantorSetupDone"));
  EXPECT_NE(result.err.find("setup is not complete"), std::string::npos);
}

TEST_F(HelmsmanSetup, NamesThePrograms) {
  root.remove("/usr/bin/uuidgen");
  const auto result = helmsman({"setup"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("warning: /usr/bin/uuidgen is missing"), std::string::npos);
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Descriptors and preference files of any content: each has its reading, never a crash or a hang.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kPreferenceFile = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr const char* kEngineFile = "/Library/Preferences/com.vantor.Snapwheel.plist";
constexpr const char* kVersionFile = "/System/Library/BaseKit/SystemVersion.plist";
constexpr const char* kDescriptor = "/private/etc/halyard/10-x.plist";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

// Contents of which each is no readable dictionary.
std::vector<std::string> unreadable() {
  return {
      "",
      "no list at all",
      "<",
      std::string("\0\0\0", 3),
      std::string("<?xml version=\"1.0\"?><plist><dict>\0</dict></plist>", 48),
      plistDocument("<array><string>ServiceName</string></array>"),
      plistDocument("<string>ServiceName</string>"),
      plistDocument("<dict><key>ServiceName</key></dict>"),
      plistDocument("<dict><string>ServiceName</string></dict>"),
      plistDocument("<dict><key>ServiceName</key><string>a\xFF</string></dict>"),
      plistDocument("<dict><key>ServiceName</key><string>a</string></dict>").substr(0, 90),
      plistDocument("<dict/>") + "trailing",
      plistDocument("<dict><key>a</key>" + repeated("<array>", 100000) +
                    repeated("</array>", 100000) + "</dict>"),
      "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY e \"x\">]><plist><dict/></plist>",
      "bplist00" + std::string(40, '\x01'),
      "\xFF\xFE<\0p\0",
  };
}

class BadInput : public PrivateRootTest {
 protected:
  // The backup of the one entry ran with a descriptor without keys.
  void expectNamelessBackup(const std::string& what) {
    const auto result = root.run(kBackup);
    EXPECT_EQ(result.status, 0) << what;
    EXPECT_THAT(result.out, HasSubstr("WARNING: Service (null) folder does not exist for "
                                      "browsing.\n"))
        << what;
    EXPECT_THAT(result.err, HasSubstr("Error in calling backup command for service (null), "
                                      "error :=127\n"))
        << what;
    EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid")) << what;
  }

  void replaceByFifo(const std::string& path) {
    root.remove(path);
    root.runProgram("/usr/bin/mkfifo", {path});
  }
  void replaceByDevice(const std::string& path) {
    root.remove(path);
    root.makeLink(path, "/dev/zero");
  }
};

TEST_F(BadInput, UnreadableDescriptorsHaveNoKeys) {
  for (const std::string& content : unreadable()) {
    root.writeFile(kDescriptor, content);
    expectNamelessBackup(content.substr(0, 80));
  }
}

TEST_F(BadInput, AFifoForADescriptorIsNeverWaitedFor) {
  replaceByFifo(kDescriptor);
  expectNamelessBackup("fifo");
}

TEST_F(BadInput, ADeviceForADescriptorIsNotRead) {
  replaceByDevice(kDescriptor);
  expectNamelessBackup("device");
}

TEST_F(BadInput, ADescriptorOfMoreThanSixteenMebibytesIsUnreadable) {
  root.writeFile(kDescriptor,
                 descriptorOf("x", "/bin/true").plist() + std::string(std::size_t{17} << 20, ' '));
  expectNamelessBackup("huge");
}

TEST_F(BadInput, ValuesOfWrongTypesReadAsAbsent) {
  const std::vector<std::string> keys{"ServiceName",       "BackupBinaryPath", "BackupLog",
                                      "RestoreBinaryPath", "RestoreLog",       "VerifyBinaryPath",
                                      "VerifyLog"};
  for (const char* value : {"<integer>1</integer>", "<true/>", "<array><string>x</string></array>",
                            "<dict><key>a</key><string>x</string></dict>", "<real>1.5</real>",
                            "<data>L2Jpbi90cnVl</data>", "<date>2026-01-01T00:00:00Z</date>"}) {
    DescriptorText descriptor;
    for (const std::string& key : keys) descriptor.raw(key, value);
    root.writeDescriptor("10-x.plist", descriptor);
    expectNamelessBackup(value);
  }
}

TEST_F(BadInput, ListsOfWrongTypesAreEmpty) {
  root.writePlugin("/opt/plugin");
  for (const char* value : {"<string>/opt/plugin</string>", "<true/>", "<integer>7</integer>",
                            "<dict><key>a</key><string>/opt/plugin</string></dict>"}) {
    root.remove("/plugin-calls");
    auto descriptor = descriptorOf("x", "/opt/plugin");
    for (const char* key : {"PreBackupServiceCommands", "PostBackupServiceCommands", "DataFiles",
                            "ConfigurationFiles", "BackupActions", "RestoreActions"})
      descriptor.raw(key, value);
    root.writeDescriptor("10-x.plist", descriptor);
    const auto result = root.run(kBackup);
    EXPECT_EQ(root.calls().size(), 1U) << value;
    EXPECT_THAT(result.out, Not(HasSubstr("Failed to copy"))) << value;
    EXPECT_THAT(result.err, Not(HasSubstr("SRC := "))) << value;
  }
}

TEST_F(BadInput, ACommandLineThatIsEmptyIsNotRun) {
  root.writePlugin("/opt/plugin");
  root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/plugin")
                                         .list("PreBackupServiceCommands", {"", " ", "true"})
                                         .list("PostBackupServiceCommands", {""}));
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err,
              HasSubstr("Error in calling post-backup command for service x, error :=127\n"));
}

TEST_F(BadInput, AnUnreadablePreferenceFileLeavesTheRecordAsItWas) {
  for (const std::string& content : unreadable()) {
    root.writeFile(kPreferenceFile, content);
    EXPECT_EQ(root.run({"-cmd", "services"}).out, "") << content.substr(0, 80);
    const auto result = root.run(kBackup);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Backups are not enabled or no services are enabled for backup!\n");
  }
}

TEST_F(BadInput, APreferenceFileThatBreaksDuringTheRunKeepsTheEarlierValues) {
  root.writePreferences({{"siteHost", 1}});
  root.writePlugin("/opt/plugin", "echo broken >/private/etc/halyard/com.vantor.Halyard.plist");
  root.writeDescriptor("10-x.plist", descriptorOf("siteHost", "/opt/plugin"));
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(root.calls().size(), 2U);  // Size, then backup.
  EXPECT_TRUE(root.exists("/.Halyards/siteHost"));
}

TEST_F(BadInput, AnUnreadableEngineFileTurnsBackupsOff) {
  for (const std::string& content : unreadable()) {
    root.writeFile(kEngineFile, content);
    EXPECT_EQ(root.run(kBackup).status, 1) << content.substr(0, 80);
  }
}

TEST_F(BadInput, PreferenceFilesThatAreNoFilesAreNeverWaitedFor) {
  for (const char* path : {kPreferenceFile, kEngineFile}) {
    replaceByFifo(path);
    EXPECT_EQ(root.run({"-cmd", "prefs"}).status, 0) << path;
    EXPECT_EQ(root.run(kBackup).status, 1) << path;
    replaceByDevice(path);
    EXPECT_EQ(root.run({"-cmd", "prefs"}).status, 0) << path;
    EXPECT_EQ(root.run(kBackup).status, 1) << path;
    root.remove(path);
    root.makeFolder(path);
    EXPECT_EQ(root.run(kBackup).status, 1) << path;
  }
}

TEST_F(BadInput, AnUnreadableVersionFileFailsTheGate) {
  for (const std::string& content : unreadable()) {
    root.writeFile(kVersionFile, content);
    EXPECT_EQ(root.run(kBackup).status, 0);
    EXPECT_FALSE(root.exists("/.Halyards")) << content.substr(0, 80);
  }
  replaceByFifo(kVersionFile);
  EXPECT_EQ(root.run(kBackup).status, 0);
}

TEST_F(BadInput, HugeDescriptorsOfManyEntriesAreTaken) {
  std::string keys;
  for (int i = 0; i < 100000; ++i) keys += "<key>k" + std::to_string(i) + "</key><true/>";
  root.writePlugin("/opt/plugin");
  const std::string usual = descriptorOf("x", "/opt/plugin").plist();
  const auto at = usual.find("<dict>") + 6;
  root.writeFile(kDescriptor, usual.substr(0, at) + keys + usual.substr(at));
  EXPECT_EQ(root.run(kBackup).status, 0);
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(BadInput, VeryLongNamesAndPathsAreFailedCopies) {
  root.writePlugin("/opt/plugin");
  const std::string name(5000, 'n');
  root.writeDescriptor("10-x.plist",
                       descriptorOf("x", "/opt/plugin").list("DataFiles", {"/" + name}));
  EXPECT_THAT(root.run(kBackup).out, HasSubstr("Failed to copy /" + name));
  root.writeDescriptor("10-x.plist", descriptorOf(name, "/opt/plugin"));
  EXPECT_EQ(root.run(kBackup).status, 0);
}

}  // namespace
}  // namespace halyard::test

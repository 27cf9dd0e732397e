// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which files of the configuration folder are descriptors, and in which order they are taken.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kFolder = "/private/etc/halyard/";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

// A descriptor of a service that the program does not know by name is backed up whatever the flags.
class DescriptorScan : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (!IsSkipped()) root.writePlugin("/opt/plugin");
  }

  void add(const std::string& fileName, const std::string& service) {
    root.writeDescriptor(fileName, descriptorOf(service, "/opt/plugin"));
  }

  // The services whose backup plug-in was called by one backup, in order.
  std::vector<std::string> backedUp() {
    root.run(kBackup);
    std::vector<std::string> services;
    const std::string prefix = "/opt/plugin|-cmd|backup|-path|/.Halyards/";
    for (const std::string& call : root.calls()) {
      if (call.starts_with(prefix))
        services.push_back(call.substr(prefix.size(), call.find("|-log") - prefix.size()));
    }
    return services;
  }
};

TEST_F(DescriptorScan, EntriesAreTakenInByteOrderOfTheirNames) {
  add("20-b.plist", "second");
  add("10-a.plist", "first");
  add("a.plist", "fourth");
  add("Z.plist", "third");
  add("\xC3\xA9.plist", "fifth");
  EXPECT_THAT(backedUp(), ElementsAre("first", "second", "third", "fourth", "fifth"));
}

TEST_F(DescriptorScan, EveryEntryIsNamedOnStandardOutput) {
  add("10-a.plist", "first");
  root.writeScript("/private/etc/halyard/tool", "");
  root.writeFile("/private/etc/halyard/com.vantor.Halyard.plist.old", "");
  const auto lines = linesOf(root.run(kBackup).out);
  ASSERT_GE(lines.size(), 4U);
  EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 4),
              ElementsAre("*** nextPath := 10-a.plist", "*** nextPath := com.vantor.Halyard.plist",
                          "*** nextPath := com.vantor.Halyard.plist.old", "*** nextPath := tool"));
}

TEST_F(DescriptorScan, AShortNamedExecutableIsSkipped) {
  const auto descriptor = descriptorOf("hidden", "/opt/plugin").plist();
  root.writeFile(std::string(kFolder) + "10-hidden.plist", descriptor, 0755);
  EXPECT_THAT(backedUp(), IsEmpty());
}

TEST_F(DescriptorScan, ALongNamedExecutableIsTaken) {
  // One character longer than the preference file's name.
  const auto descriptor = descriptorOf("seen", "/opt/plugin").plist();
  root.writeFile(std::string(kFolder) + "10-abcdefghijklmnop.plist", descriptor, 0755);
  EXPECT_THAT(backedUp(), ElementsAre("seen"));
}

TEST_F(DescriptorScan, ANameOfExactlyThatLengthIsLong) {
  const auto descriptor = descriptorOf("seen", "/opt/plugin").plist();
  const std::string name = "10-abcdefghijklmno.plist";
  ASSERT_EQ(name.size(), std::string("com.vantor.Halyard.plist").size());
  root.writeFile(kFolder + name, descriptor, 0755);
  EXPECT_THAT(backedUp(), ElementsAre("seen"));
}

TEST_F(DescriptorScan, LengthIsCountedInCharacters) {
  // 23 characters, 24 bytes: short, so the executable test applies.
  const std::string name = "10-abcdefghijklm\xC3\xA9.plist";
  root.writeFile(kFolder + name, descriptorOf("hidden", "/opt/plugin").plist(), 0755);
  EXPECT_THAT(backedUp(), IsEmpty());
}

TEST_F(DescriptorScan, NamesThatBeginWithThePreferenceFilesAreSkipped) {
  add("com.vantor.Halyard.plist.old", "old");
  add("com.vantor.Halyard.plist~", "copy");
  add("com.vantor.Halyard.plis", "shorter");
  add("com.vantor.halyard.plist", "otherCase");
  EXPECT_THAT(backedUp(), ElementsAre("shorter", "otherCase"));
}

TEST_F(DescriptorScan, AShortTextFileIsADescriptorWithoutKeys) {
  root.writeFile("/private/etc/halyard/notes", "remember the milk\n");
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("curServicePath := /.Halyards/(null)/(null).browse.plist\n"
                                    "WARNING: Service (null) folder does not exist for "
                                    "browsing.\n"));
  EXPECT_THAT(root.progressMessages(),
              Contains("## PROGRESS :: Halyard :: (null) :: Calling service backup binary..."));
  EXPECT_TRUE(root.isFolder("/.Halyards/(null)"));
}

TEST_F(DescriptorScan, ADanglingLinkIsSkipped) {
  root.makeLink("/private/etc/halyard/10-gone.plist", "/nowhere");
  const auto result = root.run(kBackup);
  EXPECT_THAT(result.out, HasSubstr("*** nextPath := 10-gone.plist\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("(null)")));
  EXPECT_FALSE(root.exists("/.Halyards/(null)"));
}

TEST_F(DescriptorScan, ALinkToADescriptorIsFollowed) {
  root.writeFile("/elsewhere", descriptorOf("linked", "/opt/plugin").plist());
  root.makeLink("/private/etc/halyard/10-linked.plist", "/elsewhere");
  EXPECT_THAT(backedUp(), ElementsAre("linked"));
}

TEST_F(DescriptorScan, AFolderIsADescriptorWithoutKeys) {
  root.makeFolder("/private/etc/halyard/folder");
  root.run(kBackup);
  EXPECT_TRUE(root.isFolder("/.Halyards/(null)"));
}

TEST_F(DescriptorScan, AHiddenFileIsTakenLikeAnyOther) {
  add(".10-swap", "hidden");
  EXPECT_THAT(backedUp(), ElementsAre("hidden"));
}

TEST_F(DescriptorScan, APluginMayChangeTheNextDescriptor) {
  root.writeFile("/next", descriptorOf("changed", "/opt/plugin").plist());
  root.writePlugin("/opt/first",
                   "[ \"$2\" = backup ] && cp /next /private/etc/halyard/20-next.plist");
  root.writeDescriptor("10-first.plist", descriptorOf("first", "/opt/first"));
  add("20-next.plist", "original");
  EXPECT_THAT(backedUp(), ElementsAre("changed"));
}

TEST_F(DescriptorScan, ADescriptorThatAppearsMeanwhileIsNotTaken) {
  root.writeFile("/next", descriptorOf("late", "/opt/plugin").plist());
  root.writePlugin("/opt/first",
                   "[ \"$2\" = backup ] && cp /next /private/etc/halyard/20-next.plist");
  root.writeDescriptor("10-first.plist", descriptorOf("first", "/opt/first"));
  EXPECT_THAT(backedUp(), IsEmpty());
}

TEST_F(DescriptorScan, AMissingConfigurationFolderHasNoEntries) {
  root.remove("/private/etc/halyard");
  const auto result = root.run({"-cmd", "size"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("total := 0\n"));
}

}  // namespace
}  // namespace halyard::test

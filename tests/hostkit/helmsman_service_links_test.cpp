// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The descriptors that packages bring, the links to them, and what else lies in their folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/property_list.h"
#include "helmsman/settings/descriptor_conflicts.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr char kPlugin[] = "/opt/plugin";
constexpr char kSnapshot[] = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000";

class HelmsmanServiceLinks : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    root.writePlugin(kPlugin);
    ship("50-depotHost.plist", "depotHost");
    ship("60-siteHost.plist", "siteHost");
  }

  void ship(const std::string& fileName, const std::string& service) const {
    root.writeFile("/usr/share/halyard/services/" + fileName,
                   descriptorOf(service, kPlugin).plist());
  }
  std::string linkOf(const std::string& fileName) const {
    std::array<char, 512> target{};
    const std::string path = root.path("/private/etc/halyard/" + fileName);
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    return length < 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
  }
  int flagOf(const std::string& service) const {
    const auto whole = parseDictionary(root.readFile(kServices));
    const PropertyDictionary* services = whole ? whole->dictionary("services") : nullptr;
    const PropertyValue* flag = services == nullptr ? nullptr : services->find(service);
    return flag == nullptr ? -1 : flag->integerValue();
  }
};

TEST_F(HelmsmanServiceLinks, AServiceThatIsOffIsNotSaidToBeMissing) {
  ASSERT_EQ(helmsman({"enable", "siteHost"}).status, 0);
  ASSERT_EQ(helmsman({"disable", "siteHost"}).status, 0);
  EXPECT_THAT(helmsman({"status"}).out, testing::ContainsRegex("\nsiteHost  *off "));
}

TEST_F(HelmsmanServiceLinks, SetupLinksEveryShippedServiceOfANewHost) {
  root.remove(kServices);
  EXPECT_EQ(helmsman({"setup"}).status, 0);
  EXPECT_EQ(linkOf("50-depotHost.plist"), "/usr/share/halyard/services/50-depotHost.plist");
  EXPECT_EQ(linkOf("60-siteHost.plist"), "/usr/share/halyard/services/60-siteHost.plist");
  EXPECT_EQ(flagOf("depotHost"), 1);
  EXPECT_EQ(flagOf("siteHost"), 1);
  EXPECT_EQ(flagOf("postHost"), 0);
}

TEST_F(HelmsmanServiceLinks, SetupLinksWhatIsOnAndNothingElse) {
  root.writePreferences({{"depotHost", 1}, {"siteHost", 0}});
  EXPECT_EQ(helmsman({"setup"}).status, 0);
  EXPECT_NE(linkOf("50-depotHost.plist"), "");
  EXPECT_FALSE(root.exists("/private/etc/halyard/60-siteHost.plist"));
}

TEST_F(HelmsmanServiceLinks, EnablePlacesTheLinkAndDisableTakesItAway) {
  root.writePreferences({{"depotHost", 0}, {"siteHost", 0}});
  EXPECT_EQ(helmsman({"enable", "depot"}).status, 0);
  EXPECT_NE(linkOf("50-depotHost.plist"), "");
  EXPECT_EQ(flagOf("depotHost"), 1);
  EXPECT_EQ(helmsman({"disable", "depot"}).status, 0);
  EXPECT_FALSE(root.exists("/private/etc/halyard/50-depotHost.plist"));
  EXPECT_EQ(flagOf("depotHost"), 0);
  EXPECT_TRUE(root.exists("/usr/share/halyard/services/50-depotHost.plist"));
}

TEST_F(HelmsmanServiceLinks, EnableBringsBackALinkThatIsGone) {
  root.writePreferences({{"depotHost", 1}});
  EXPECT_EQ(helmsman({"enable", "depotHost"}).err, "helmsman: depotHost is on now\n");
  EXPECT_NE(linkOf("50-depotHost.plist"), "");
}

TEST_F(HelmsmanServiceLinks, ADescriptorOfTheAdministratorsStaysAndGetsNoSecondOne) {
  root.writePreferences({{"depotHost", 0}});
  root.writeDescriptor("51-depotHost.plist", descriptorOf("depotHost", "/opt/mine"));
  EXPECT_EQ(helmsman({"enable", "depotHost"}).status, 0);
  EXPECT_FALSE(root.exists("/private/etc/halyard/50-depotHost.plist"));
  EXPECT_EQ(helmsman({"disable", "depotHost"}).status, 0);
  EXPECT_TRUE(root.exists("/private/etc/halyard/51-depotHost.plist"));
}

TEST_F(HelmsmanServiceLinks, AShippedServiceOfItsOwnIsSwitchedByItsLink) {
  ship("70-chessHost.plist", "chessHost");
  root.writePreferences({{"depotHost", 1}});
  EXPECT_EQ(helmsman({"enable", "chess"}).status, 0);
  EXPECT_NE(linkOf("70-chessHost.plist"), "");
  EXPECT_EQ(helmsman({"disable", "chess"}).status, 0);
  EXPECT_FALSE(root.exists("/private/etc/halyard/70-chessHost.plist"));
}

TEST_F(HelmsmanServiceLinks, RestoreOfAServiceThatIsOffNamesTheCommandThatBringsItsDescriptor) {
  root.writePreferences({{"depotHost", 0}});
  root.makeFolder(std::string(kSnapshot) + "/System/.Halyards/depotHost");
  EXPECT_THAT(
      helmsman({"restore", "depotHost", "--yes"}).err,
      HasSubstr("no descriptor of depotHost is installed (run: helmsman enable depotHost)"));
}

// ---- what makes the program work on a service twice

class HelmsmanDescriptorConflicts : public HelmsmanServiceLinks {
 protected:
  void SetUp() override {
    HelmsmanServiceLinks::SetUp();
    if (IsSkipped()) return;
    root.writePreferences({{"depotHost", 1}});
    root.writeDescriptor("50-depotHost.plist", descriptorOf("depotHost", kPlugin));
    root.writeFile(std::string(kSnapshot) + "/System/.Halyards/.halyardSignature", "x");
    root.makeFolder(std::string(kSnapshot) + "/System/.Halyards/depotHost");
  }

  void refusesEverythingOver(const std::string& fileName, const std::string& reason) const {
    const std::string command = "mv /private/etc/halyard/" + fileName + " /root/";
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"backup"}, {"restore", "depotHost", "--yes"}}) {
      const auto result = helmsman(words);
      EXPECT_EQ(result.status, 1) << fileName << " " << words.front();
      EXPECT_THAT(result.out + result.err, HasSubstr(command)) << words.front();
      EXPECT_THAT(result.out + result.err, HasSubstr(reason)) << words.front();
    }
    for (const std::string& call : root.calls()) {
      EXPECT_THAT(call, Not(HasSubstr("-cmd|restore"))) << fileName;
      EXPECT_THAT(call, Not(HasSubstr("-cmd|backup"))) << fileName;
    }
    const auto check = helmsman({"check"});
    EXPECT_EQ(check.status, 1) << fileName;
    EXPECT_THAT(check.out, HasSubstr(command));
  }
};

TEST_F(HelmsmanDescriptorConflicts, ACopyThatAPackageLeftRefusesBackupAndRestore) {
  root.writeDescriptor("50-depotHost.plist.dpkg-dist", descriptorOf("depotHost", kPlugin));
  refusesEverythingOver("50-depotHost.plist.dpkg-dist", "was left behind");
}

TEST_F(HelmsmanDescriptorConflicts, ACopyThatAnEditorLeftRefusesBackupAndRestore) {
  root.writeFile("/private/etc/halyard/50-depotHost.plist~", "half a text");
  refusesEverythingOver("50-depotHost.plist~", "was left behind");
}

TEST_F(HelmsmanDescriptorConflicts, ASecondDescriptorOfAServiceRefusesBackupAndRestore) {
  root.writeDescriptor("90-other.plist", descriptorOf("depotHost", kPlugin));
  refusesEverythingOver("90-other.plist", "'depotHost' is the name in 90-other.plist too");
}

TEST_F(HelmsmanDescriptorConflicts, AFileNameThatHoldsAnothersNameRefusesBackupAndRestore) {
  root.writeFile("/private/etc/halyard/.50-depotHost.plist.swp", "an editor's memory");
  refusesEverythingOver(".50-depotHost.plist.swp", "'depotHost' is part of the file name");
}

TEST(LeftoverNames, AreThoseOfPackagesAndEditors) {
  for (const char* name :
       {"a.plist.dpkg-dist", "a.plist.dpkg-old", "a.plist.dpkg-new", "a.ucf-dist", "a.plist~",
        "a.plist.bak", "a.plist.orig", "a.plist.rej"}) {
    EXPECT_TRUE(isLeftoverName(name)) << name;
  }
  for (const char* name :
       {"60-siteHost.plist", "bak", "60-dpkg-site.plist", "a.dpkg-x.plist", ""}) {
    EXPECT_FALSE(isLeftoverName(name)) << name;
  }
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The catalogue that a backup ends with.
#include <gmock/gmock.h>

#include "base/property_list.h"
#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kCatalogue = "/.Halyards/master.browse.plist";
const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

std::string noData(const std::string& service) {
  return "WARNING:3: Service " + service + " did not return any data when browsing.\n";
}

class MasterBrowse : public PrivateRootTest {
 protected:
  // A service whose backup plug-in leaves this browse file behind.
  void add(const std::string& fileName, const std::string& service, const std::string& listing) {
    const std::string plugin = "/opt/" + fileName;
    root.writeFile(plugin + ".listing", listing);
    root.writePlugin(plugin, "cp " + plugin + ".listing \"$4/" + service + ".browse.plist\"");
    root.writeDescriptor(fileName, descriptorOf(service, plugin));
  }

  // The lines of the catalogue's own making, the text of the finished one left out.
  std::string messages() {
    std::string out = root.run(kBackup).out;
    const std::string catalogue = root.readFile(kCatalogue);
    EXPECT_THAT(out, EndsWith(catalogue));
    out.resize(out.size() - catalogue.size());
    const auto end = out.rfind("*** nextPath");
    return out.substr(out.find('\n', end) + 1);
  }

  // The written catalogue, as an independent pair of eyes would read it.
  PropertyDictionary catalogue() {
    auto read = parseDictionary(root.readFile(kCatalogue));
    EXPECT_TRUE(read.has_value());
    return read ? std::move(*read) : PropertyDictionary();
  }

  std::vector<std::string> keys() {
    std::vector<std::string> names;
    for (const auto& [key, value] : catalogue()) names.push_back(key);
    return names;
  }
};

TEST_F(MasterBrowse, HoldsEachServicesListing) {
  add("10-a.plist", "a", plistDocument("<dict><key>k</key><string>v &amp; w</string></dict>"));
  add("20-b.plist", "b", plistDocument("<array><integer>1</integer><true/></array>"));
  EXPECT_EQ(messages(),
            "curServicePath := /.Halyards/a/a.browse.plist\n"
            "curServicePath := /.Halyards/b/b.browse.plist\n");
  EXPECT_THAT(keys(), ElementsAre("a", "b"));
  const auto read = catalogue();
  ASSERT_NE(read.dictionary("a"), nullptr);
  EXPECT_EQ(read.dictionary("a")->text("k"), "v & w");
  ASSERT_NE(read.find("b")->asArray(), nullptr);
  EXPECT_EQ(read.find("b")->asArray()->size(), 2U);
}

TEST_F(MasterBrowse, WithoutServicesIsAnEmptyDictionary) {
  EXPECT_EQ(messages(), "");
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(MasterBrowse, AMissingBrowseFileIsTold) {
  root.writePlugin("/opt/plugin");
  root.writeDescriptor("10-a.plist", descriptorOf("a", "/opt/plugin"));
  EXPECT_EQ(messages(),
            "curServicePath := /.Halyards/a/a.browse.plist\n"
            "WARNING: Service a folder does not exist for browsing.\n");
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(MasterBrowse, AServiceThatIsNotBackedUpIsToldTheSameWay) {
  root.writePreferences({{"siteHost", 0}});
  add("10-a.plist", "siteHost", "");
  EXPECT_EQ(messages(),
            "curServicePath := /.Halyards/siteHost/siteHost.browse.plist\n"
            "WARNING: Service siteHost folder does not exist for browsing.\n");
}

TEST_F(MasterBrowse, EmptyListingsAreNoData) {
  for (const char* listing : {"<dict/>", "<array/>", "<dict></dict>", "<array></array>"}) {
    add("10-a.plist", "a", plistDocument(listing));
    EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n" + noData("a"));
    EXPECT_THAT(keys(), IsEmpty());
  }
}

TEST_F(MasterBrowse, ListingsThatAreNoListAreNoData) {
  for (const std::string& listing :
       {std::string(), std::string("text"), std::string("bplist00xyz"),
        std::string("<?xml version=\"1.0\"?><plist><dict><key>a</key>"),
        plistDocument("<dict><key>a</key></dict>"),
        plistDocument("<array><true/></array>") + "x"}) {
    add("10-a.plist", "a", listing);
    EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n" + noData("a"))
        << listing;
  }
}

TEST_F(MasterBrowse, AListingThatIsNotUtf8IsSkippedSilently) {
  add("10-a.plist", "a", plistDocument("<array><string>\xFF</string></array>"));
  EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n");
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(MasterBrowse, AFolderInThePlaceOfAListingIsSkippedSilently) {
  root.writePlugin("/opt/plugin", "mkdir \"$4/a.browse.plist\"");
  root.writeDescriptor("10-a.plist", descriptorOf("a", "/opt/plugin"));
  EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n");
}

TEST_F(MasterBrowse, AFifoInThePlaceOfAListingIsNeverWaitedFor) {
  root.writePlugin("/opt/plugin", "mkfifo \"$4/a.browse.plist\"");
  root.writeDescriptor("10-a.plist", descriptorOf("a", "/opt/plugin"));
  EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n");
}

TEST_F(MasterBrowse, ARootThatIsNoContainerIsSkippedSilently) {
  for (const char* listing : {"<string>x</string>", "<integer>1</integer>", "<true/>",
                              "<data>AQ==</data>", "<string></string>"}) {
    add("10-a.plist", "a", plistDocument(listing));
    EXPECT_EQ(messages(), "curServicePath := /.Halyards/a/a.browse.plist\n") << listing;
    EXPECT_THAT(keys(), IsEmpty());
  }
}

TEST_F(MasterBrowse, TheLaterDescriptorOfANameWins) {
  add("10-a.plist", "same", plistDocument("<array><string>1</string></array>"));
  add("20-b.plist", "other", plistDocument("<array><string>2</string></array>"));
  // The third writes over the browse file of the first, as both have one folder.
  add("30-c.plist", "same", plistDocument("<dict><key>k</key><string>3</string></dict>"));
  messages();
  EXPECT_THAT(keys(), ElementsAre("same", "other"));
  EXPECT_NE(catalogue().dictionary("same"), nullptr);
}

TEST_F(MasterBrowse, IsBuiltWithoutASignature) {
  root.remove("/usr/bin/uuidgen");
  root.writeScript("/usr/bin/uuidgen", "rmdir /.Halyards/.halyardSignature 2>/dev/null");
  root.makeFolder("/.Halyards");
  root.writeFile("/.Halyards/siteHost/siteHost.browse.plist",
                 plistDocument("<array><true/></array>"));
  root.writeDescriptor("10-a.plist", descriptorOf("siteHost", "/opt/none"));
  root.run({"-cmd", "backup", "-source", "/Volumes/Backup"});
  EXPECT_FALSE(root.exists("/.Halyards/.halyardSignature"));
  EXPECT_THAT(keys(), ElementsAre("siteHost"));
}

TEST_F(MasterBrowse, AnOlderOneIsReplaced) {
  root.writeFile(kCatalogue,
                 "old and longer than the new one will be, by far; " + std::string(1000, 'x'));
  root.run({"-cmd", "backup", "-source", "/Volumes/Backup"});
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(MasterBrowse, WithoutTheFolderNullIsPrinted) {
  const auto result = root.run({"-cmd", "backup", "-source", "/Volumes/Backup"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "(null)");
}

TEST_F(MasterBrowse, DebugShowsEachStep) {
  const std::string listing = plistDocument("<array><string>\xC3\xA9</string></array>");
  add("10-a.plist", "a", listing);
  root.makeFolder("/.Halyards");
  const auto result = root.run(kBackup, {{"DEBUG", ""}, {"VERBOSE", ""}});
  const std::string start = "mountedImagePath := /.Halyards\n";
  ASSERT_THAT(result.out, HasSubstr(start));
  EXPECT_EQ(result.out.substr(result.out.find(start)),
            start +
                "tStr := /private/etc/halyard/10-a.plist\n"
                "tServiceName := a\ntRestoreBinaryPath := /opt/10-a.plist\n"
                "curServicePath := /.Halyards/a/a.browse.plist\n"
                "infoReturned " +
                std::to_string(listing.size() - 1) + "\nlineItems 5\nret 0\n" +
                root.readFile(kCatalogue));
  EXPECT_THAT(result.err, HasSubstr("] mountedImagePath := /.Halyards\n"));
  EXPECT_THAT(result.err, HasSubstr("] nextPath := a\n"));
  EXPECT_THAT(result.err, HasSubstr("] nextPath := ServerSourceDiskInfo.plist\n"));
  EXPECT_THAT(result.err, HasSubstr("] serverMetaDataPath := \n"));
  EXPECT_THAT(result.err, HasSubstr("<array><string>\xC3\xA9</string></array>"));
}

TEST_F(MasterBrowse, DebugNamesTheLastNestedMetadataFolder) {
  root.makeFolder("/.Halyards/a/.Halyards");
  root.makeFolder("/.Halyards/b/.Halyards");
  root.writeFile("/.Halyards/c/.Halyards", "plain");
  const auto result = root.run({"-cmd", "backup", "-source", "/Volumes/Backup"}, {{"DEBUG", ""}});
  EXPECT_THAT(result.err, HasSubstr("] serverMetaDataPath := /.Halyards/b/.Halyards\n"));
}

TEST_F(MasterBrowse, DebugShowsAnEmptyServiceKey) {
  root.writePreferences({{"siteHost", 0}, {"", 1}});
  EXPECT_THAT(root.run(kBackup, {{"DEBUG", ""}}).out, HasSubstr("\n\n<?xml"));
  EXPECT_THAT(root.run(kBackup).out, Not(HasSubstr("\n\n<?xml")));
}

TEST_F(MasterBrowse, AnotherReaderReadsTheSame) {
  add("10-a.plist", "a\tb", plistDocument("<array><string>1 &lt; 2\r\n</string></array>"));
  root.run(kBackup);
  const std::string text = root.readFile(kCatalogue);
  EXPECT_THAT(text, testing::StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
  EXPECT_THAT(text, HasSubstr("\t<key>a\tb</key>\n\t<array>\n\t\t<string>1 &lt; 2"));
}

}  // namespace
}  // namespace halyard::test

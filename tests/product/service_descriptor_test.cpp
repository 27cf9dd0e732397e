// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "product/service_descriptor.h"

#include <gmock/gmock.h>

#include "support/operation_in_root.h"
#include "support/scratch.h"

namespace halyard {
namespace {

using test::Scratch;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTextKeys[] = {"ServiceName",       "BackupBinaryPath", "BackupLog",
                                     "RestoreBinaryPath", "RestoreLog",       "VerifyBinaryPath",
                                     "VerifyLog",         "Version"};
constexpr const char* kListKeys[] = {"PreBackupServiceCommands", "PostBackupServiceCommands",
                                     "ConfigurationFiles", "DataFiles"};

ServiceDescriptor descriptorWith(const std::string& key, const std::string& value) {
  const Scratch scratch;
  return ServiceDescriptor::read(scratch.write(
      "10-x.plist", test::plistDocument("<dict><key>" + key + "</key>" + value + "</dict>")));
}

TEST(Descriptor, EveryTextKeyReadsItsText) {
  for (const char* key : kTextKeys)
    EXPECT_EQ(descriptorWith(key, "<string>a b</string>").text(key), "a b") << key;
}

TEST(Descriptor, AnEmptyTextIsPresent) {
  EXPECT_EQ(descriptorWith("BackupLog", "<string></string>").text("BackupLog"), "");
}

TEST(Descriptor, AWrongTypeReadsAsAbsentForEveryTextKey) {
  for (const char* key : kTextKeys) {
    for (const char* value :
         {"<integer>1</integer>", "<real>1</real>", "<true/>", "<array><string>x</string></array>",
          "<dict/>", "<data>eA==</data>", "<date>2026-01-01T00:00:00Z</date>"})
      EXPECT_EQ(descriptorWith(key, value).text(key), std::nullopt) << key << value;
  }
}

TEST(Descriptor, EveryListKeyReadsItsTextsInOrder) {
  for (const char* key : kListKeys) {
    EXPECT_THAT(descriptorWith(key,
                               "<array><string>b</string><true/><string></string>"
                               "<string>a</string></array>")
                    .list(key),
                ElementsAre("b", "", "a"))
        << key;
  }
}

TEST(Descriptor, AWrongTypeReadsAsAnEmptyList) {
  for (const char* key : kListKeys) {
    for (const char* value : {"<string>x</string>", "<integer>1</integer>", "<true/>",
                              "<dict><key>a</key><string>x</string></dict>", "<array/>"})
      EXPECT_THAT(descriptorWith(key, value).list(key), IsEmpty()) << key << value;
  }
}

TEST(Descriptor, ActionsAreEntriesOfTheirDictionary) {
  const auto descriptor =
      descriptorWith("BackupActions", "<dict><key>Default</key><string>all</string></dict>");
  EXPECT_EQ(descriptor.defaultAction(), "all");
  EXPECT_EQ(descriptor.entry("RestoreActions", "Browse"), std::nullopt);
  EXPECT_EQ(descriptorWith("RestoreActions", "<dict><key>Browse</key><string>b</string></dict>")
                .entry("RestoreActions", "Browse"),
            "b");
}

TEST(Descriptor, ActionsOfWrongTypesAreAbsent) {
  for (const char* value : {"<string>Default</string>", "<array><string>all</string></array>",
                            "<dict><key>Default</key><integer>1</integer></dict>",
                            "<dict><key>default</key><string>all</string></dict>", "<true/>"})
    EXPECT_EQ(descriptorWith("BackupActions", value).defaultAction(), std::nullopt) << value;
}

TEST(Descriptor, KeysAreCaseSensitive) {
  EXPECT_EQ(descriptorWith("serviceName", "<string>x</string>").serviceName(), std::nullopt);
}

TEST(Descriptor, AFileThatCannotBeReadHasNoKeys) {
  const Scratch scratch;
  EXPECT_EQ(ServiceDescriptor::read(scratch / "missing").serviceName(), std::nullopt);
  EXPECT_EQ(ServiceDescriptor::read(scratch.path()).serviceName(), std::nullopt);
  EXPECT_EQ(ServiceDescriptor::read("").serviceName(), std::nullopt);
}

class FindDescriptor : public test::PrivateRootTest {
 protected:
  // "<path> <service>" of what is found for the name.
  std::string found(const MaybeString& service) {
    return test::runOperation(root,
                              [&] {
                                const FoundDescriptor result = findServiceDescriptor(service);
                                std::printf("%s %s", result.path.c_str(),
                                            orNull(result.descriptor.serviceName()));
                                return 0;
                              })
        .out;
  }
};

TEST_F(FindDescriptor, TheLastMatchInNameOrderWins) {
  root.writeDescriptor("20-siteHost.plist", test::DescriptorText().text("ServiceName", "second"));
  root.writeDescriptor("10-siteHost.plist", test::DescriptorText().text("ServiceName", "first"));
  EXPECT_EQ(found("siteHost"), "/private/etc/halyard/20-siteHost.plist second");
}

TEST_F(FindDescriptor, AnyPartOfTheNameMatchesCaseSensitively) {
  root.writeDescriptor("10-siteHost.plist", test::DescriptorText().text("ServiceName", "x"));
  EXPECT_EQ(found("eHos"), "/private/etc/halyard/10-siteHost.plist x");
  EXPECT_EQ(found("SiteHost"), " (null)");
}

TEST_F(FindDescriptor, ThePreferenceFileAndExecutablesMatchToo) {
  root.writeScript("/private/etc/halyard/siteHost", "");
  EXPECT_EQ(found("siteHost"), "/private/etc/halyard/siteHost (null)");
  EXPECT_EQ(found("vantor"), "/private/etc/halyard/com.vantor.Halyard.plist (null)");
}

TEST_F(FindDescriptor, AnAbsentNameMatchesNothing) { EXPECT_EQ(found(std::nullopt), " (null)"); }

}  // namespace
}  // namespace halyard

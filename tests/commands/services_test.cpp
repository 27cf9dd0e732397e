// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The services command.
#include <gmock/gmock.h>

#include "commands/usage_text.h"
#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;

constexpr const char* kPreferenceFile = "/private/etc/halyard/com.vantor.Halyard.plist";
constexpr const char* kEngineFile = "/Library/Preferences/com.vantor.Snapwheel.plist";

class Services : public PrivateRootTest {
 protected:
  void expectNothingListed(const std::string& what) {
    const auto result = root.run({"-cmd", "services"});
    EXPECT_EQ(result.status, 0) << what;
    EXPECT_EQ(result.out, "") << what;
    EXPECT_EQ(result.err, "") << what;
  }
};

TEST_F(Services, PrintsEachKeyOnALineInTheOrderOfTheFile) {
  root.writePreferences({{"siteHost", 0}, {"agendaHost", 1}});
  const auto result = root.run({"-cmd", "services"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "siteHost\nagendaHost\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Services, KeysBeyondTheSevenAreListedToo) {
  root.writePreferences({{"zHost", 1}, {"my service %s", 0}, {"siteHost", 1}});
  EXPECT_EQ(root.run({"-cmd", "services"}).out, "zHost\nmy service %s\nsiteHost\n");
}

TEST_F(Services, ValuesOfAnyTypeCount) {
  root.writeFile(kPreferenceFile,
                 plistDocument("<dict><key>services</key><dict><key>a</key><array/><key></key>"
                               "<true/><key>b</key><dict/></dict></dict>"));
  EXPECT_EQ(root.run({"-cmd", "services"}).out, "a\n\nb\n");
}

TEST_F(Services, ARepeatedKeyIsListedOnce) {
  root.writeFile(kPreferenceFile,
                 plistDocument("<dict><key>services</key><dict><key>a</key><true/><key>b</key>"
                               "<true/><key>a</key><false/></dict></dict>"));
  EXPECT_EQ(root.run({"-cmd", "services"}).out, "a\nb\n");
}

TEST_F(Services, AnEmptyDictionaryListsNothing) {
  root.writePreferences({});
  expectNothingListed("empty");
}

TEST_F(Services, AFileWithoutTheDictionaryListsNothing) {
  for (const char* content : {"<dict/>", "<dict><key>services</key><string>a</string></dict>",
                              "<array><string>services</string></array>"}) {
    root.writeFile(kPreferenceFile, plistDocument(content));
    expectNothingListed(content);
  }
}

TEST_F(Services, AnUnreadableFileListsNothing) {
  root.writeFile(kPreferenceFile, "no list");
  expectNothingListed("no list");
  root.remove(kPreferenceFile);
  root.makeFolder(kPreferenceFile);
  expectNothingListed("a folder");
}

TEST_F(Services, AMissingFileIsRepairedSilentlyOnceMore) {
  root.remove(kEngineFile);
  root.writePreferences({{"siteHost", 1}});
  root.writePlugin("/usr/sbin/helmsman", "echo loud");
  const auto result = root.run({"-cmd", "services"});
  EXPECT_EQ(result.status, 0);
  // The message is that of the preferences that every run loads.
  EXPECT_EQ(result.out, "Fixing up default prefs by calling plugin...done.\nsiteHost\n");
  EXPECT_THAT(root.calls(), ElementsAre("/usr/sbin/helmsman|settings|backup",
                                        "/usr/sbin/helmsman|settings|backup"));
}

TEST_F(Services, AnEmptyEnvironmentAndAnyUmaskChangeNothing) {
  root.writePreferences({{"siteHost", 1}});
  RunOptions options;
  options.umask = 0777;
  options.workingFolder = "/tmp";
  options.argv0 = "";
  EXPECT_EQ(root.run({"-cmd", "services"}, {}, options).out, "siteHost\n");
}

TEST_F(Services, TwoMoreWordsAreRefused) {
  const auto result = root.run({"-cmd", "services", "-path", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, std::string("Wrong number of parameters for services.\n") + kUsageText);
}

}  // namespace
}  // namespace halyard::test

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The help and version commands.
#include <gmock/gmock.h>

#include "commands/usage_text.h"
#include "support/private_root.h"

namespace halyard::test {
namespace {

constexpr const char* kDescriptor = "45-hostProfile.plist";
constexpr const char* kDescriptorFile = "/private/etc/halyard/45-hostProfile.plist";

using Usage = PrivateRootTest;
using Version = PrivateRootTest;

TEST_F(Usage, HelpPrintsTheTextOnce) {
  const auto result = root.run({"-cmd", "help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, kUsageText);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(linesOf(result.out).size(), 42U);
}

TEST_F(Usage, HelpInCapitalsPrintsItOnceToo) {
  const auto result = root.run({"-cmd", "HELP"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, kUsageText);
}

TEST_F(Usage, HelpWithOneMoreWordIsRefused) {
  const auto result = root.run({"-cmd", "HELP", "more"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, std::string("Wrong number of parameters supplied.\n") + kUsageText);
}

TEST_F(Usage, DebugAndVerboseAddNothingToTheText) {
  const auto result = root.run({"-cmd", "help"}, {{"VERBOSE", ""}});
  EXPECT_EQ(result.out, std::string("Halyard was called.\n") + kUsageText);
}

TEST_F(Version, PrintsTheLineOfTheServerSettingsDescriptor) {
  root.writeDescriptor(kDescriptor, DescriptorText().text(
                                        "Version", "Halyard (Halyard), Vantor Inc., Version 10.7"));
  const auto result = root.run({"-cmd", "version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Halyard (Halyard), Vantor Inc., Version 10.7\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Version, PrintsTheTextAsItStands) {
  root.writeDescriptor(kDescriptor, DescriptorText().text("Version", " 100%s %n\nsecond \xC3\xA9"));
  EXPECT_EQ(root.run({"-cmd", "Version"}).out, " 100%s %n\nsecond \xC3\xA9\n");
}

TEST_F(Version, WithoutTheDescriptorPrintsNothing) {
  const auto result = root.run({"-cmd", "version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(Version, AnEmptyDescriptorPrintsNothing) {
  root.writeDescriptor(kDescriptor, DescriptorText());
  EXPECT_EQ(root.run({"-cmd", "version"}).out, "");
  root.writeFile(kDescriptorFile, "");
  EXPECT_EQ(root.run({"-cmd", "version"}).out, "");
}

TEST_F(Version, ADescriptorWithoutTheKeyPrintsAnEmptyLine) {
  root.writeDescriptor(kDescriptor, DescriptorText().text("ServiceName", "hostProfile"));
  const auto result = root.run({"-cmd", "version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "\n");
}

TEST_F(Version, AVersionThatIsNoTextReadsAsAbsent) {
  root.writeDescriptor(kDescriptor, DescriptorText().raw("Version", "<integer>7</integer>"));
  EXPECT_EQ(root.run({"-cmd", "version"}).out, "\n");
}

TEST_F(Version, ADescriptorThatIsNoDictionaryPrintsNothing) {
  for (const char* content :
       {"<array><string>x</string></array>", "<string>x</string>", "<dict>"}) {
    root.writeFile(kDescriptorFile, plistDocument(content));
    const auto result = root.run({"-cmd", "version"});
    EXPECT_EQ(result.status, 0) << content;
    EXPECT_EQ(result.out, "") << content;
  }
}

TEST_F(Version, OtherDescriptorsAreNotAsked) {
  root.writeDescriptor("46-hostProfile.plist", DescriptorText().text("Version", "other"));
  EXPECT_EQ(root.run({"-cmd", "version"}).out, "");
}

}  // namespace
}  // namespace halyard::test

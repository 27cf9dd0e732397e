// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The command tests stand on the private root, so it is shown to work, and to fail loudly.
#include "support/private_root.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include "support/build_paths.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(PrivateRootTest, AProgramSeesNothingOfTheHost) {
  const auto result = root.runProgram("/bin/ls", {"/home"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(PrivateRootTest, StatusOutputAndErrorAreKeptApart) {
  root.writeScript("/speak", "echo out; echo err >&2; exit 7");
  const auto result = root.runProgram("/speak", {});
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.out, "out\n");
  EXPECT_EQ(result.err, "err\n");
}

TEST_F(PrivateRootTest, ASignalReadsAs128AndItsNumber) {
  root.writeScript("/die", "kill -15 $$");
  EXPECT_EQ(root.runProgram("/die", {}).status, 128 + 15);
}

TEST_F(PrivateRootTest, TheEnvironmentIsTheGivenOneAndPath) {
  const auto result = root.runProgram("/usr/bin/env", {}, {{"DEBUG", ""}});
  EXPECT_EQ(result.out, "PATH=/usr/bin:/bin:/usr/sbin:/sbin\nDEBUG=\n");
}

TEST_F(PrivateRootTest, AClosedOutputIsClosed) {
  RunOptions options;
  options.closedDescriptors = {1};
  EXPECT_NE(root.runProgram("/bin/echo", {"x"}, {}, options).status, 0);
}

TEST_F(PrivateRootTest, ACommandThatHangsFailsTheTest) {
  RunOptions options;
  options.timeoutSeconds = 1;
  CommandResult result;
  EXPECT_NONFATAL_FAILURE(result = root.runProgram("/bin/sleep", {"30"}, {}, options),
                          "ran longer than 1 s");
  EXPECT_EQ(result.status, 128 + 9);
}

TEST_F(PrivateRootTest, AProgramThatIsMissingFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(root.runProgram("/nothing", {}), "could not be started");
}

TEST_F(PrivateRootTest, ADescendantThatHoldsTheOutputKeepsNobodyWaiting) {
  root.writeScript("/serve", "sleep 30 & echo started");
  const auto result = root.runProgram("/serve", {});
  EXPECT_EQ(result.out, "started\n");
}

TEST_F(PrivateRootTest, PluginsRecordTheirCalls) {
  root.writePlugin("/usr/libexec/plugin", "echo answer");
  const auto result = root.runProgram("/usr/libexec/plugin", {"-cmd", "size", "", "a b"}, {});
  EXPECT_EQ(result.out, "answer\n");
  EXPECT_THAT(root.calls(), ElementsAre("/usr/libexec/plugin|-cmd|size||a b"));
}

TEST_F(PrivateRootTest, DiskUsageOfTheRootHasItsLine) {
  const auto result = root.runProgram(
      "/bin/sh", {"-c", "/bin/df -k / | /usr/bin/grep / | /usr/bin/awk '{ print $2 }'"});
  EXPECT_GT(std::atol(result.out.c_str()), 0) << result.out << result.err;
}

TEST_F(PrivateRootTest, DescriptorsKeepOrderAndEscape) {
  const auto descriptor =
      DescriptorText().text("B", "a<b").list("A", {"x", "y"}).text("B", "c&d").raw("C", "<true/>");
  EXPECT_THAT(descriptor.plist(),
              HasSubstr("<key>B</key><string>c&amp;d</string>\n"
                        "<key>A</key><array><string>x</string><string>y</string></array>\n"
                        "<key>C</key><true/>\n"));
}

TEST_F(PrivateRootTest, ALinkIsReadWhereItLeadsInTheRoot) {
  root.writeFile("/inside", "content");
  root.makeLink("/link", "/inside");
  root.makeLink("/up", "../../../../../../../../inside");
  root.makeLink("/host", builtProgram());
  EXPECT_EQ(root.readFile("/link"), "content");
  EXPECT_EQ(root.readFile("/up"), "content");
  EXPECT_EQ(root.readFile("/host"), "<missing>");
}

TEST_F(PrivateRootTest, ReplacingASharedProgramLeavesOtherRootsAlone) {
  PrivateRoot other;
  root.writeScript("/usr/bin/uuidgen", "echo mine");
  EXPECT_EQ(root.runProgram("/usr/bin/uuidgen", {}).out, "mine\n");
  EXPECT_EQ(other.runProgram("/usr/bin/uuidgen", {}).out.size(), 37U);
}

}  // namespace
}  // namespace halyard::test

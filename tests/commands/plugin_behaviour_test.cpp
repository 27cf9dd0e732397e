// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Plug-ins that misbehave: the run goes on and ends as usual.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> kBackup{"-cmd", "backup", "-source", "/"};

class Plugins : public PrivateRootTest {
 protected:
  // A backup of the service under test followed by a well-behaved one.
  CommandResult backUpWith(const std::string& plugin, const Environment& environment = {}) {
    root.writePlugin("/opt/good");
    root.writeDescriptor("10-x.plist", descriptorOf("x", plugin));
    root.writeDescriptor("20-y.plist", descriptorOf("y", "/opt/good"));
    CommandResult result = root.run(kBackup, environment);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(root.calls(), Contains("/opt/good|-cmd|backup|-path|/.Halyards/y|-log|"
                                       "/private/var/log/halyard/y.log"));
    EXPECT_TRUE(root.exists("/.Halyards/.halyardSignature"));
    EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
    return result;
  }

  static std::string failure(int status) {
    return "] Error in calling backup command for service x, error :=" + std::to_string(status) +
           "\n";
  }
};

TEST_F(Plugins, AMissingOneIsStatus127) {
  EXPECT_THAT(backUpWith("/opt/missing").err, HasSubstr(failure(127)));
}

TEST_F(Plugins, OneThatCannotBeExecutedIsStatus126) {
  root.writeFile("/opt/plain", "#!/bin/sh\n");
  EXPECT_THAT(backUpWith("/opt/plain").err, HasSubstr(failure(126)));
}

TEST_F(Plugins, AFolderIsStatus126) {
  root.makeFolder("/opt/folder");
  EXPECT_THAT(backUpWith("/opt/folder").err, HasSubstr(failure(126)));
}

TEST_F(Plugins, AMissingInterpreterDoesNotStopTheRun) {
  root.writeFile("/opt/odd", "#!/no/such/shell\n", 0755);
  EXPECT_THAT(backUpWith("/opt/odd").err, HasSubstr("Error in calling backup command"));
}

TEST_F(Plugins, ARelativeOneIsNeverLookedUp) {
  root.writePlugin("/plugin");
  root.writePlugin("/usr/bin/plugin");
  EXPECT_THAT(backUpWith("plugin").err, HasSubstr(failure(127)));
  EXPECT_THAT(root.calls(), Not(Contains(HasSubstr("/plugin|-cmd|backup"))));
}

TEST_F(Plugins, AnEmptyPathIsNotStarted) {
  EXPECT_THAT(backUpWith("").err, HasSubstr(failure(127)));
}

TEST_F(Plugins, OneThatDiesByASignalIs128AndItsNumber) {
  root.writeScript("/opt/die", "kill -9 $$");
  EXPECT_THAT(backUpWith("/opt/die").err, HasSubstr(failure(128 + 9)));
}

TEST_F(Plugins, OneThatFloodsStandardErrorFirstIsReadOn) {
  root.writeScript("/opt/flood",
                   "head -c 4000000 /dev/zero | tr '\\0' 'e' >&2; "
                   "head -c 4000000 /dev/zero | tr '\\0' 'o'; echo; echo done >/flooded");
  const auto result = backUpWith("/opt/flood");
  EXPECT_EQ(root.readFile("/flooded"), "done\n");
  EXPECT_LT(result.err.size(), 10000U);
  EXPECT_LT(result.out.size(), 10000U);
}

TEST_F(Plugins, OneThatClosesItsOutputIsWaitedFor) {
  root.writeScript("/opt/close", "exec >&- 2>&-; sleep 0.1; echo late >/late; exit 4");
  EXPECT_THAT(backUpWith("/opt/close").err, HasSubstr(failure(4)));
  EXPECT_EQ(root.readFile("/late"), "late\n");
}

TEST_F(Plugins, AServerThatHoldsThePipeKeepsNobodyWaiting) {
  root.writeScript("/opt/serve", "sleep 60 & exit 0");
  const auto start = std::chrono::steady_clock::now();
  backUpWith("/opt/serve");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(Plugins, TheirOutputStaysOutOfTheProgramsOwn) {
  root.writeScript("/opt/loud", "echo loud; echo louder >&2");
  const auto result = backUpWith("/opt/loud");
  EXPECT_THAT(result.out, Not(HasSubstr("loud")));
  EXPECT_THAT(result.err, Not(HasSubstr("loud")));
}

TEST_F(Plugins, TheirInputIsEmpty) {
  root.writeScript("/opt/read", "cat >/read");
  backUpWith("/opt/read");
  EXPECT_EQ(root.readFile("/read"), "");
}

TEST_F(Plugins, TheyGetNoDescriptorAboveTwo) {
  root.writeScript("/opt/descriptors",
                   "for n in 3 4 5 6 7 8 9; do if (: >&$n) 2>/dev/null; then echo $n >>/open; fi; "
                   "done; :");
  backUpWith("/opt/descriptors");
  EXPECT_FALSE(root.exists("/open"));
}

TEST_F(Plugins, BytesThatAreNoTextAreTaken) {
  root.writeScript("/opt/bytes", "printf '\\377\\376\\000total'; exit 2");
  EXPECT_THAT(backUpWith("/opt/bytes", {{"DEBUG", ""}}).err, HasSubstr(failure(2)));
}

TEST_F(Plugins, RemovingTheirOwnFolderStopsNothing) {
  root.writeFile("/data", "x");
  root.writeScript("/opt/remove", "[ \"$2\" = backup ] && rm -r \"$4\"");
  root.writePlugin("/opt/good");
  root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/remove").list("DataFiles", {"/data"}));
  root.writeDescriptor("20-y.plist", descriptorOf("y", "/opt/good"));
  EXPECT_EQ(root.run(kBackup).status, 0);
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(Plugins, RemovingTheMetadataFolderStopsNothing) {
  root.writeScript("/opt/remove", "rm -r /.Halyards");
  root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/remove"));
  const auto result = root.run(kBackup);
  EXPECT_EQ(result.status, 0);
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_THAT(result.out, testing::EndsWith("(null)"));
}

// What the program and its children needed at most; a sanitizer multiplies it, so the limit is
// far from what a captured flood would take, and far above what the program itself takes.
TEST_F(Plugins, AFloodOfOutputCostsNoMemory) {
  root.writeScript("/opt/flood", "head -c 300000000 /dev/zero; head -c 100000000 /dev/zero >&2");
  root.writeDescriptor("10-siteHost.plist", descriptorOf("siteHost", "/opt/flood"));
  EXPECT_EQ(root.run(kBackup).status, 0);
  rusage usage{};
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
  EXPECT_LT(usage.ru_maxrss, 150 * 1024);  // KiB
}

}  // namespace
}  // namespace halyard::test

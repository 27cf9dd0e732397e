// The road that every command takes: word counts, the running marker, the setup marker, the table.
#include <gmock/gmock.h>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kPidFile = "/private/var/run/HalyardRunning.pid";

using Version = PrivateRootTest;
using Help = PrivateRootTest;
using WordCount = PrivateRootTest;
using Guards = PrivateRootTest;

TEST_F(Version, PrintsTheLineOfTheHostProfile) {
  root.writeDescriptor(
      "45-hostProfile.plist",
      DescriptorText().text("Version", "Halyard (Halyard), Vantor Inc., Version 10.7"));
  const auto result = root.run({"-cmd", "version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Halyard (Halyard), Vantor Inc., Version 10.7\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Version, PrintsNothingWithoutTheHostProfile) {
  const auto result = root.run({"-cmd", "VERSION"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(Help, PrintsTheUsageOnce) {
  const auto result = root.run({"-cmd", "HELP"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(linesOf(result.out).size(), 42U);
  EXPECT_THAT(result.out, StartsWith("Usage:\nHalyard supports the following options:\n"));
}

TEST_F(WordCount, AnEvenNumberOfWordsIsRefused) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"-cmd"},
                                             {"-cmd", "help", "more"},
                                             {"1", "2", "3", "4", "5"},
                                             std::vector<std::string>(13, "w")}) {
    const auto result = root.run(words);
    EXPECT_EQ(result.status, 1) << words.size();
    EXPECT_THAT(result.out, StartsWith("Wrong number of parameters supplied.\nUsage:\n"));
  }
}

TEST_F(WordCount, ACommandWithAPairTooManyShowsTheUsageAndSucceeds) {
  const auto result = root.run({"-cmd", "Version", "-x", "y"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, StartsWith("Wrong number of parameters for Version.\nUsage:\n"));
}

TEST_F(Guards, EveryCommandIsRefusedWhileOneRuns) {
  root.writeFile(kPidFile, "4711 :: backup\n");
  const auto result = root.run({"-cmd", "help"});
  EXPECT_EQ(result.status, 37);
  EXPECT_EQ(result.out, "Backup process is already running.\n");
  EXPECT_TRUE(root.exists(kPidFile));
}

TEST_F(Guards, NothingRunsBeforeTheHostIsSetUp) {
  root.remove("/private/var/db/.VantorSetupDone");
  const auto result = root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              HasSubstr("WARNING: The server is not setup so there are no actions to be "
                        "performed until setup is complete.\n"));
  EXPECT_FALSE(root.exists("/.Halyards"));
  EXPECT_FALSE(root.exists(kPidFile));
}

}  // namespace
}  // namespace halyard::test

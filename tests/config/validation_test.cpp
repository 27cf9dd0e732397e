// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "config/validation.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>

#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "support/operation_in_root.h"
#include "support/scratch.h"

namespace halyard {
namespace {

using test::runOperation;
using test::Scratch;

TEST(Version, DotsAreDroppedAndTwoPartsGetAZero) {
  EXPECT_EQ(sanitizedVersion("10.6"), "1060");
  EXPECT_EQ(sanitizedVersion("10.6.8"), "1068");
  EXPECT_EQ(sanitizedVersion("10.7"), "1070");
  EXPECT_EQ(sanitizedVersion("10.5.10"), "10510");
  EXPECT_EQ(sanitizedVersion("10.10"), "10100");
  EXPECT_EQ(sanitizedVersion("11"), "11");
}

TEST(Version, OddTextsFollowTheSameRule) {
  EXPECT_EQ(sanitizedVersion(""), "");
  EXPECT_EQ(sanitizedVersion("."), "0");
  EXPECT_EQ(sanitizedVersion("10."), "100");
  EXPECT_EQ(sanitizedVersion("1.2.3.4"), "1234");
  EXPECT_EQ(sanitizedVersion("a.b"), "ab0");
}

TEST(DirectoryLevels, EveryMissingLevelGetsTheAttributes) {
  const Scratch scratch;
  const mode_t old = umask(077);
  EXPECT_EQ(createDirectoryLevels(scratch / "a/b/c", {geteuid(), getegid(), 0753}), 1);
  umask(old);
  for (const char* level : {"a", "a/b", "a/b/c"}) {
    struct stat status {};
    ASSERT_EQ(stat((scratch / level).c_str(), &status), 0) << level;
    EXPECT_EQ(status.st_mode & 07777U, 0753U) << level;
  }
}

TEST(DirectoryLevels, AnExistingPathIsFineWhateverItIs) {
  const Scratch scratch;
  EXPECT_EQ(createDirectoryLevels(scratch.path(), {0, 0, 0700}), 1);
  EXPECT_EQ(createDirectoryLevels(scratch.write("file"), {0, 0, 0700}), 1);
}

TEST(DirectoryLevels, ExistingLevelsStayAsTheyAre) {
  const Scratch scratch;
  ASSERT_EQ(chmod(scratch.makeFolder("a").c_str(), 0711), 0);
  EXPECT_EQ(createDirectoryLevels(scratch / "a/b", {geteuid(), getegid(), 0700}), 1);
  struct stat status {};
  ASSERT_EQ(stat((scratch / "a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0711U);
}

class Validation : public test::PrivateRootTest {};

TEST_F(Validation, ALevelThatCannotBeMadeIsAnInstallRecordAtPriority115) {
  root.writeFile("/plain", "");
  const auto result = runOperation(root, [] {
    const int daemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, "/dev/log"};
    if (bind(daemon, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return 99;
    const int answer = createDirectoryLevels("/new/../plain/x/y", {0, 0, 0755});
    std::array<char, 1024> record{};
    const ssize_t length = recv(daemon, record.data(), record.size(), 0);
    if (length > 0) std::printf("%.*s", static_cast<int>(length), record.data());
    return answer;
  });
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::MatchesRegex("<115>.*\\[BACKUP\\] Unable to create directory "
                                                "'/new/../plain/x'\n?"));
  EXPECT_EQ(result.err, "");
}

TEST_F(Validation, IsStandardServerIsAlwaysOne) {
  const auto result = runOperation(root, [] {
    runState().functionLog = true;
    return static_cast<int>(IsStandardServer());
  });
  EXPECT_EQ(result.status, 1);
  const std::string dashes(55, '-');
  EXPECT_EQ(result.out,
            "Start IsStandardServer" + dashes + "+\nEnd   IsStandardServer" + dashes + "+\n");
}

TEST_F(Validation, WithoutSourceAndTargetTheSystemIsNotValidAndNoEndLineIsPrinted) {
  const auto result = runOperation(root, [] {
    runState().functionLog = true;
    runState().debug = true;
    return static_cast<int>(isValidSystem(CommandLine()));
  });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Start isValidSystem" + std::string(55, '-') + "+\n");
}

TEST_F(Validation, ATargetThatIsAFileIsNotValid) {
  root.writeFile("/plain", "");
  const auto result = runOperation(root, [] {
    CommandLine line;
    line.options["-target"] = "/plain";
    const int file = isValidSystem(line);
    line.options["-target"] = "/";
    return 10 * file + isValidSystem(line);
  });
  EXPECT_EQ(result.status, 1);
}

}  // namespace
}  // namespace halyard

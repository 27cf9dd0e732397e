// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What reaches the host's system log, over a socket bound inside the root.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>

#include "support/private_root.h"

namespace halyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::vector<std::string> kRestore{"-cmd", "restore", "-path", "/", "-target", "/"};

class SystemLog : public PrivateRootTest {
 protected:
  void TearDown() override {
    if (socket_ >= 0) close(socket_);
  }

  // Binds through a descriptor, as the path of a build folder may be too long for an address.
  void listen() {
    const int folder = open(root.path("/dev").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/log";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(folder);
  }

  std::vector<std::string> records() {
    std::vector<std::string> found;
    std::array<char, 65536> buffer{};
    ssize_t length = 0;
    while ((length = recv(socket_, buffer.data(), buffer.size(), 0)) >= 0)
      found.emplace_back(buffer.data(), static_cast<std::size_t>(length));
    return found;
  }

 private:
  int socket_ = -1;
};

// "<11>": facility user (1), severity error (3).
TEST_F(SystemLog, ARefusedRestoreIsAnErrorRecord) {
  listen();
  root.writeFile("/.Halyards/restoreWasAttempted", "");
  const auto result = root.run(kRestore);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_THAT(records(), ElementsAre(MatchesRegex("<11>[A-Z][a-z][a-z] [ 0-9][0-9] "
                                                  "[0-9:]{8} Halyard\\[[0-9]+\\]: "
                                                  "Halyard :: Restore failed\\.\n?")));
}

TEST_F(SystemLog, AFailingPluginIsRecordedToo) {
  listen();
  root.writeScript("/opt/fail", "exit 5");
  root.writeDescriptor("10-x.plist", descriptorOf("x", "/opt/fail"));
  root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_THAT(records(),
              ElementsAre(MatchesRegex("<[0-9]+>.* Halyard\\[[0-9]+\\]: Error in calling backup "
                                       "command for service x, error :=5\n?")));
}

TEST_F(SystemLog, TheLogMessageOfACopyKeepsItsTwoLines) {
  listen();
  root.writeDescriptor("10-x.plist",
                       descriptorOf("x", "/bin/true").list("ConfigurationFiles", {"/gone"}));
  root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_THAT(records(), Contains(MatchesRegex("<[0-9]+>.*: SRC := /gone\nDST := "
                                               "/.Halyards/x\n?")));
}

TEST_F(SystemLog, AQuietBackupRecordsNothing) {
  listen();
  root.run({"-cmd", "backup", "-source", "/"});
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SystemLog, WithoutADaemonARefusedRestoreEndsAsUsual) {
  root.writeFile("/.Halyards/restoreWasAttempted", "");
  root.writeFile("/dev/log", "no socket");
  EXPECT_EQ(root.run(kRestore).status, 0);
  EXPECT_FALSE(root.exists("/private/var/run/HalyardRunning.pid"));
}

TEST_F(SystemLog, ADaemonThatStoppedReadingKeepsNoBackupWaiting) {
  listen();
  root.writeScript("/opt/fail", "exit 5");
  std::vector<std::string> many(400, "/gone");
  root.writeDescriptor("10-x.plist",
                       descriptorOf("x", "/opt/fail").list("ConfigurationFiles", many));
  RunOptions options;
  options.timeoutSeconds = 30;
  EXPECT_EQ(root.run({"-cmd", "backup", "-source", "/"}, {}, options).status, 0);
}

}  // namespace
}  // namespace halyard::test

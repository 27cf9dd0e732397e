// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/log/system_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "host/files/descriptor.h"
#include "host/log/log_socket.h"
#include "support/forked.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using std::chrono::milliseconds;
using test::Scratch;

constexpr milliseconds kNoPatience{0};

/// A log daemon's end, which reads only when it is asked to.
class Daemon {
 public:
  Daemon(const std::string& path, int kind) : socket_(::socket(AF_UNIX, kind, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ready_ =
        ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (kind == SOCK_STREAM) ready_ = ready_ && ::listen(socket_.get(), 5) == 0;
  }

  bool isReady() const { return ready_; }

  /// The next record; "<none>" when there is none.
  std::string record() const { return read(socket_.get()); }

  std::string streamRecord() const {
    const Descriptor connection(::accept(socket_.get(), nullptr, nullptr));
    return read(connection.get());
  }

 private:
  static std::string read(int socket) {
    std::array<char, 4096> buffer{};
    const ssize_t length = ::recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (length < 0) return "<none>";
    return {buffer.data(), static_cast<std::size_t>(length)};
  }

  Descriptor socket_;
  bool ready_ = false;
};

/// What was written to standard error while the function ran.
std::string errorTextOf(const std::function<void()>& act) {
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

TEST(LogRecord, IsFramedAsTheCLibraryFramesIt) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  const std::string record =
      logRecord(LOG_ERR, "Halyard :: Restore failed.\n", 1791000305, "Halyard", 42);
  ::unsetenv("TZ");
  ::tzset();
  EXPECT_EQ(record, "<11>Oct  3 04:05:05 Halyard[42]: Halyard :: Restore failed.\n");
}

TEST(LogRecord, AGivenFacilityIsKept) {
  EXPECT_EQ(logRecord(115, "x", 0, "Halyard", 1).substr(0, 5), "<115>");
}

TEST(LogRecord, EndsAtANul) {
  EXPECT_TRUE(logRecord(3, std::string_view("a\0b", 3), 0, "Halyard", 1).ends_with(": a"));
}

TEST(SendLogRecord, ReachesADatagramDaemon) {
  const Scratch scratch;
  const Daemon daemon(scratch / "log", SOCK_DGRAM);
  ASSERT_TRUE(daemon.isReady());

  EXPECT_EQ(sendLogRecord(scratch / "log", "<11>hello", kNoPatience), 0);

  EXPECT_EQ(daemon.record(), "<11>hello");
}

TEST(SendLogRecord, ReachesAStreamDaemonWithANulAtTheEnd) {
  const Scratch scratch;
  const Daemon daemon(scratch / "log", SOCK_STREAM);
  ASSERT_TRUE(daemon.isReady());

  EXPECT_EQ(sendLogRecord(scratch / "log", "<11>hello", kNoPatience), 0);

  EXPECT_EQ(daemon.streamRecord(), std::string("<11>hello\0", 10));
}

TEST(SendLogRecord, WithoutADaemonTellsAndReturns) {
  const Scratch scratch;
  EXPECT_EQ(sendLogRecord(scratch / "log", "x", kNoPatience), ENOENT);
  EXPECT_EQ(sendLogRecord(scratch.write("file"), "x", kNoPatience), ECONNREFUSED);
  EXPECT_EQ(sendLogRecord(std::string(200, 'x'), "x", kNoPatience), ENAMETOOLONG);
}

TEST(SendLogRecord, ADeadDaemonsSocketIsRefused) {
  const Scratch scratch;
  { const Daemon daemon(scratch / "log", SOCK_DGRAM); }
  EXPECT_EQ(sendLogRecord(scratch / "log", "x", kNoPatience), ECONNREFUSED);
}

TEST(SendLogRecord, AStuckDaemonIsWaitedForNoLongerThanTold) {
  const Scratch scratch;
  const Daemon daemon(scratch / "log", SOCK_DGRAM);
  int sent = 0;
  while (sent < 100000 && sendLogRecord(scratch / "log", "x", kNoPatience) == 0) ++sent;
  ASSERT_GT(sent, 0);
  ASSERT_LT(sent, 100000) << "the queue never filled";

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(sendLogRecord(scratch / "log", "x", milliseconds(100)), EAGAIN);
  const auto took = std::chrono::steady_clock::now() - start;

  EXPECT_GE(took, milliseconds(100));
  EXPECT_LT(took, milliseconds(1000));
}

TEST(SendLogRecord, ABusyDaemonGetsTheRecordAMomentLater) {
  const Scratch scratch;
  const Daemon daemon(scratch / "log", SOCK_DGRAM);
  while (sendLogRecord(scratch / "log", "old", kNoPatience) == 0) {
  }
  std::thread reader([&] {
    while (daemon.record() == "old") {
    }
  });

  const int result = sendLogRecord(scratch / "log", "new", milliseconds(5000));

  reader.join();
  EXPECT_EQ(result, 0);
}

TEST(SendLogRecord, AStuckStreamDaemonDoesNotBlock) {
  const Scratch scratch;
  const Daemon daemon(scratch / "log", SOCK_STREAM);
  int last = 0;
  for (int i = 0; i < 100 && last == 0; ++i)
    last = sendLogRecord(scratch / "log", "x", kNoPatience);
  EXPECT_EQ(last, EAGAIN);
}

TEST(SystemLog, SendsToTheHostsLogSocket) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([] {
              if (!test::enterPrivateMounts() || ::mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                return 1;
              const Daemon daemon("/dev/log", SOCK_DGRAM);
              systemLog(115, "[BACKUP] Unable to create directory '/x'");
              const std::string record = daemon.record();
              const std::string end = " Halyard[" + std::to_string(::getpid()) +
                                      "]: [BACKUP] Unable to create directory '/x'";
              return record.starts_with("<115>") && record.ends_with(end) ? 0 : 2;
            }),
            0);
}

TEST(SystemLog, AStuckDaemonDelaysARunOnceNotOnceARecord) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([] {
              if (!test::enterPrivateMounts() || ::mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                return 1;
              const Daemon daemon("/dev/log", SOCK_DGRAM);
              const auto start = std::chrono::steady_clock::now();
              for (int i = 0; i < 5000; ++i) systemLog(LOG_ERR, "x");
              return std::chrono::steady_clock::now() - start < std::chrono::seconds(3) ? 0 : 2;
            }),
            0);
}

TEST(SystemLog, WithoutASocketNothingHappens) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([] {
              if (!test::enterPrivateMounts() || ::mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                return 1;
              systemLog(LOG_ERR, "x");
              return 0;
            }),
            0);
}

TEST(PlatformLog, WritesADatedLineAndSendsANotice) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  const Scratch scratch;
  const std::string errors = scratch / "errors";
  EXPECT_EQ(test::exitStatusOf([&] {
              if (!test::enterPrivateMounts() || ::mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                return 1;
              const Daemon daemon("/dev/log", SOCK_DGRAM);
              const int file = ::open(errors.c_str(), O_WRONLY | O_CREAT, 0600);
              ::dup2(file, STDERR_FILENO);
              platformLog("That failed.\n");
              const std::string record = daemon.record();
              return record.starts_with("<13>") && record.ends_with("]: That failed.") ? 0 : 2;
            }),
            0);
  EXPECT_THAT(
      Scratch::contents(errors),
      testing::MatchesRegex("[0-9-]+ [0-9:]+ \\+0000 Halyard\\[[0-9]+\\] That failed\\.\n"));
}

TEST(PlatformLog, OneTrailingLineFeedIsNotDoubled) {
  EXPECT_TRUE(errorTextOf([] { platformLog("x\n"); }).ends_with("] x\n"));
  EXPECT_TRUE(errorTextOf([] { platformLog("x\n\n"); }).ends_with("] x\n\n"));
  EXPECT_TRUE(errorTextOf([] { platformLog("x"); }).ends_with("] x\n"));
}

TEST(PlatformLog, AClosedStandardErrorLosesTheLineAlone) {
  EXPECT_EQ(test::exitStatusOf([] {
              ::close(STDERR_FILENO);
              platformLog("x");
              return 0;
            }),
            0);
}

TEST(PlatformLog, ABrokenPipeLosesTheLineAlone) {
  EXPECT_EQ(test::exitStatusOf([] {
              ::signal(SIGPIPE, SIG_IGN);
              std::array<int, 2> ends{};
              if (::pipe(ends.data()) != 0) return 1;
              ::close(ends[0]);
              ::dup2(ends[1], STDERR_FILENO);
              platformLog("x");
              return 0;
            }),
            0);
}

TEST(PlatformLog, ALineLongerThanAPipeArrivesWhole) {
  for (const int flags : {0, O_NONBLOCK}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), flags), 0);
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    // No thread: a fork beside one that starts would inherit the sanitizer's locks.
    const pid_t writer = test::startForked([&] {
      ::dup2(ends[1], STDERR_FILENO);
      platformLog(std::string(1000000, 'y'));
      return 0;
    });
    writing.reset();
    std::string got;
    std::array<char, 4096> buffer{};
    for (ssize_t length = -1; length != 0;) {
      length = ::read(ends[0], buffer.data(), buffer.size());
      if (length > 0) got.append(buffer.data(), static_cast<std::size_t>(length));
    }
    EXPECT_EQ(test::exitStatusOf(writer), 0);
    EXPECT_GT(got.size(), 1000000U);
    EXPECT_TRUE(got.ends_with("yyy\n"));
  }
}

}  // namespace
}  // namespace halyard::host

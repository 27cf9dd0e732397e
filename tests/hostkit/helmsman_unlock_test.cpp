// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whose pid file it is, told by the processes of a host.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <thread>

#include "helmsman/program/process_tree.h"
#include "host/files/descriptor.h"
#include "host_kit_root.h"
#include "support/mounts.h"

namespace halyard::hostkit {
namespace {

using test::CommandResult;
using testing::HasSubstr;

constexpr char kPidFile[] = "/private/var/run/HalyardRunning.pid";

// The root shows the host's processes; a program that only waits stands in for one that runs.
class HelmsmanUnlocks : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    processes_.emplace(test::TestMount::bind(root.path("/proc"), "/proc"));
    if (!processes_->isMounted()) GTEST_SKIP() << "no mounts can be had here";
    std::filesystem::remove(root.path("/usr/sbin/Halyard"));
    std::filesystem::copy_file("/bin/sh", root.path("/usr/sbin/Halyard"));
    std::filesystem::create_directories(root.path("/opt"));
    std::filesystem::copy_file("/bin/sh", root.path("/opt/Halyard"));
  }

  void TearDown() override {
    if (process_ > 0 && ::kill(process_, SIGKILL) == 0) (void)::waitpid(process_, nullptr, 0);
  }

  // Starts it with these words behind its name and gives its number.
  std::string start(const std::string& program, const std::string& words) {
    test::RunOptions options;
    options.keepDescendants = true;
    options.argv0 = "sh";
    const std::string wait = "read line </opt/never";
    EXPECT_EQ(::mkfifo(root.path("/opt/never").c_str(), 0600), 0);
    const CommandResult result = root.runProgram(
        "/bin/sh", {"-c", program + " -c '" + wait + "' " + words + " >/dev/null 2>&1 & echo $!"},
        {}, options);
    process_ = std::atoi(result.out.c_str());
    EXPECT_GT(process_, 0) << result.err;
    EXPECT_TRUE(runs(program)) << program;
    return std::to_string(process_);
  }

  // As its first process, which a container's init is.
  bool startInContainer(const std::string& program) {
    EXPECT_EQ(::mkfifo(root.path("/opt/never").c_str(), 0600), 0);
    const std::string folder = root.path("/");
    process_ = static_cast<pid_t>(::syscall(SYS_clone, CLONE_NEWPID | SIGCHLD, 0, 0, 0, 0));
    if (process_ == 0) {
      if (::chroot(folder.c_str()) == 0) {
        ::execl(program.c_str(), "sh", "-c", "read line </opt/never", nullptr);
      }
      ::_exit(127);
    }
    return process_ > 0 && runs(program);
  }

  void writePidFile(const std::string& text, int secondsAgo = 0) const {
    root.writeFile(kPidFile, text);
    const timespec then{std::time(nullptr) - secondsAgo, 0};
    const timespec times[] = {then, then};
    ASSERT_EQ(::utimensat(AT_FDCWD, root.path(kPidFile).c_str(), times, 0), 0);
  }

  void expectHealed(const std::string& told) const {
    const CommandResult result = helmsman({"unlock"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr(told));
    EXPECT_FALSE(root.exists(kPidFile));
  }

  void expectKept(int status, const std::string& told) const {
    const CommandResult result = helmsman({"unlock"});
    EXPECT_EQ(result.status, status);
    EXPECT_THAT(result.err, HasSubstr(told));
    EXPECT_TRUE(root.exists(kPidFile));
  }

  void stop() const {
    ::kill(process_, SIGSTOP);
    for (int look = 0; look < 500 && !isStopped(); ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  bool isStopped() const {
    const auto entry = processEntry(process_);
    return entry && entry->isStopped;
  }

 private:
  // The process is a copy of the shell until it has become the program.
  bool runs(const std::string& program) const {
    const std::string link = "/proc/" + std::to_string(process_) + "/exe";
    for (int attempt = 0; attempt < 1000; ++attempt) {
      std::error_code ignored;
      if (std::filesystem::read_symlink(link, ignored).string().ends_with(program)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  std::optional<test::TestMount> processes_;
  pid_t process_ = 0;
};

TEST_F(HelmsmanUnlocks, AnEmptyFileWhenNoHalyardRuns) {
  writePidFile("");
  expectHealed("it names no process, and no Halyard runs");
}

TEST_F(HelmsmanUnlocks, AFileOfSomethingElseWhenNoHalyardRuns) {
  writePidFile("nonsense\n");
  expectHealed("it names no process, and no Halyard runs");
}

TEST_F(HelmsmanUnlocks, NoEmptyFileWhileAHalyardRuns) {
  start("/usr/sbin/Halyard", "-cmd backup");
  writePidFile("");
  expectKept(1, "is there and names no process");
}

TEST_F(HelmsmanUnlocks, AnEmptyFileWhileAHalyardRunsInAContainer) {
  if (!startInContainer("/usr/sbin/Halyard")) GTEST_SKIP() << "no process name space can be had";
  writePidFile("");
  expectHealed("it names no process, and no Halyard runs");
}

TEST_F(HelmsmanUnlocks, NoFileOfARunThatIsAsOldAsIt) {
  writePidFile(start("/usr/sbin/Halyard", "-cmd backup") + " :: backup\n");
  expectKept(3, "Halyard is running");
}

TEST_F(HelmsmanUnlocks, TheFileOfAnotherProgramOfTheSameName) {
  writePidFile(start("/opt/Halyard", "-cmd backup") + " :: backup\n");
  expectHealed("is another one by now");
}

TEST_F(HelmsmanUnlocks, TheFileWhoseNumberALaterRunGot) {
  writePidFile(start("/usr/sbin/Halyard", "-cmd list") + " :: backup\n", 3600);
  expectHealed("is another one by now");
}

TEST_F(HelmsmanUnlocks, NoFileOfARunWhoseClockWasSet) {
  writePidFile(start("/usr/sbin/Halyard", "-cmd backup") + " :: backup\n", 3600);
  expectKept(1, "cannot be told apart");
}

TEST_F(HelmsmanUnlocks, AHalyardThatWasStoppedGoesOn) {
  writePidFile(start("/usr/sbin/Halyard", "-cmd backup") + " :: backup\n");
  stop();
  EXPECT_THAT(helmsman({"status"}).out, HasSubstr("Halyard was stopped by a signal (process "));
  const auto status = helmsmanJson({"status", "--json"});
  EXPECT_EQ(status["run"]["stopped"], true);
  EXPECT_EQ(status["well"], false);
  EXPECT_THAT(helmsman({"check"}).out, HasSubstr("run helmsman unlock, which lets it go on"));
  // Not busy: it would be so for ever.
  const CommandResult backup = helmsman({"backup"});
  EXPECT_EQ(backup.status, 1);
  EXPECT_THAT(backup.err, HasSubstr("Halyard was stopped by a signal (process "));
  expectKept(3, "it goes on now");
  EXPECT_FALSE(isStopped());
  expectKept(3, "Halyard is running");
}

// Of two that find the same leftover, the second must not take the file of a run that began after
// the first had removed it.
TEST_F(HelmsmanUnlocks, NoFileOfARunThatBeganMeanwhile) {
  writePidFile("nonsense\n");
  const host::Descriptor first(::open(root.path(kPidFile).c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(first.get(), LOCK_EX), 0);
  CommandResult second;
  std::thread run([this, &second] { second = helmsman({"unlock"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_TRUE(root.exists(kPidFile)) << "it did not wait";
  root.remove(kPidFile);
  writePidFile(start("/usr/sbin/Halyard", "-cmd backup") + " :: backup\n");
  ASSERT_EQ(::flock(first.get(), LOCK_UN), 0);
  run.join();
  EXPECT_EQ(second.status, 3);
  EXPECT_THAT(second.err, HasSubstr("Halyard is running"));
  EXPECT_TRUE(root.exists(kPidFile));
}

}  // namespace
}  // namespace halyard::hostkit

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/process/task.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/forked.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TaskResult shell(const std::string& script, const TaskOptions& options = {}) {
  return RunTask("/bin/sh", {"-c", script}, options);
}

double secondsOf(const std::function<void()>& act) {
  const auto start = std::chrono::steady_clock::now();
  act();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

/// The greatest memory that the process has used so far, in KiB.
long peakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST(RunTask, GivesTheExitCodeAndBothTexts) {
  const TaskResult result = shell("echo out; echo err >&2; exit 7");

  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.error, "err\n");
}

TEST(RunTask, AChildThatPrintsNothingGivesEmptyTexts) {
  const TaskResult result = shell("exit 0");

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, IsEmpty());
  EXPECT_THAT(result.error, IsEmpty());
}

TEST(RunTask, PassesArgumentsAsTheyAre) {
  const TaskResult result = RunTask(
      "/bin/sh", {"-c", R"(printf '<%s>' "$0" "$@")", "/x", "a b", "", "$HOME", "*", "\xff"});

  EXPECT_EQ(result.output, "</x><a b><><$HOME><*><\xff>");
}

TEST(RunTask, TheChildIsCalledByItsPath) {
  EXPECT_EQ(RunTask("/bin/sh", {"-c", "tr '\\0' '|' </proc/$$/cmdline"}).output.substr(0, 8),
            "/bin/sh|");
}

TEST(RunTask, KeepsBytesThatAreNoText) {
  EXPECT_EQ(shell("printf 'a\\000b\\377\\r\\n'").output, std::string("a\0b\xff\r\n", 6));
}

TEST(RunTask, ADeathBySignalIsTheSignalAbove128) {
  EXPECT_EQ(shell("kill -9 $$").status, 137);
  EXPECT_EQ(shell("kill -TERM $$").status, 143);
}

TEST(RunTask, AMissingExecutableIs127) { EXPECT_EQ(RunTask("/no/such/program", {}).status, 127); }

TEST(RunTask, ARelativeAnEmptyAndAnAbsentPathAreNotStarted) {
  EXPECT_EQ(RunTask("sh", {"-c", "exit 0"}).status, 127);
  EXPECT_EQ(RunTask("bin/true", {}).status, 127);
  EXPECT_EQ(RunTask("./task_test", {}).status, 127);
  EXPECT_EQ(RunTask("", {}).status, 127);
  EXPECT_EQ(RunTask(std::nullopt, {}).status, 127);
}

TEST(RunTask, APathWithANulIsNotCutShort) {
  EXPECT_EQ(RunTask(std::string("/bin/true\0/x", 12), {}).status, 127);
}

TEST(RunTask, AFolderIs126) { EXPECT_EQ(RunTask("/tmp", {}).status, 126); }

TEST(RunTask, AFileThatMayNotBeExecutedIs126) {
  const Scratch scratch;
  EXPECT_EQ(RunTask(scratch.write("plain", "#!/bin/sh\nexit 0\n"), {}).status, 126);
}

TEST(RunTask, AScriptWithoutAnInterpreterLineIs126) {
  const Scratch scratch;
  const std::string script = scratch.write("script", "exit 0\n");
  ASSERT_EQ(::chmod(script.c_str(), 0755), 0);

  EXPECT_EQ(RunTask(script, {}).status, 126);
}

TEST(RunTask, TooLongAnArgumentListIs126) {
  EXPECT_EQ(RunTask("/bin/true", {std::string(std::size_t{4} << 20, 'x')}).status, 126);
}

TEST(RunTask, AFloodOfErrorsBeforeTheOutputBlocksNobody) {
  const TaskResult result = shell("head -c 3000000 /dev/zero >&2; head -c 2000000 /dev/zero");

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.error.size(), 3000000U);
  EXPECT_EQ(result.output.size(), 2000000U);
}

TEST(RunTask, SinksGetTheirStreamInsteadOfTheTexts) {
  std::string output;
  std::string error;
  TaskOptions options;
  options.output = [&](std::string_view piece) { output += piece; };
  options.error = [&](std::string_view piece) { error += piece; };

  const TaskResult result = shell("echo out; echo err >&2", options);

  EXPECT_EQ(output, "out\n");
  EXPECT_EQ(error, "err\n");
  EXPECT_THAT(result.output, IsEmpty());
  EXPECT_THAT(result.error, IsEmpty());
}

TEST(RunTask, APieceForASinkIsNeverEmpty) {
  std::size_t smallest = 1;
  TaskOptions options;
  options.output = [&](std::string_view piece) { smallest = std::min(smallest, piece.size()); };
  (void)shell("echo a; sleep 0.01; echo b", options);
  EXPECT_EQ(smallest, 1U);
}

TEST(RunTask, DroppedOutputCostsNoMemory) {
  TaskOptions options;
  std::size_t seen = 0;
  options.output = [&](std::string_view piece) { seen += piece.size(); };
  options.error = dropOutput;
  EXPECT_EQ(test::exitStatusOf([&] {           // A child, whose peak no earlier test has raised.
              (void)shell("exit 0", options);  // What the first run needs is not what is measured.
              const long before = peakMemory();
              (void)shell("head -c 268435456 /dev/zero >&2; head -c 268435456 /dev/zero", options);
              if (seen != 268435456U) return 1;
              return peakMemory() - before < 4096 ? 0 : 2;
            }),
            0);
}

TEST(RunTask, CapturedTextStopsAtTheLimit) {
  const TaskResult result = shell("head -c 270532608 /dev/zero; exit 3");

  EXPECT_EQ(result.output.size(), kCaptureLimit);
  EXPECT_EQ(result.status, 3);
}

TEST(RunTask, AChildThatClosesItsOutputsIsWaitedForWithoutSpinning) {
  rusage before{};
  ::getrusage(RUSAGE_SELF, &before);
  TaskResult result;

  const double seconds = secondsOf([&] { result = shell("exec >&- 2>&-; sleep 0.5; exit 5"); });

  rusage after{};
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(result.status, 5);
  EXPECT_GE(seconds, 0.5);
  EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 50);
  EXPECT_EQ(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 0);
}

TEST(RunTask, AServerThatKeepsThePipesDelaysByTwoSeconds) {
  TaskResult result;

  const double seconds = secondsOf([&] { result = shell("echo started; sleep 8 & exit 4"); });

  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(result.output, "started\n");
  EXPECT_GE(seconds, 1.9);
  EXPECT_LT(seconds, 4);
}

TEST(RunTask, AServerThatKeepsTalkingDelaysByTwoSeconds) {
  TaskOptions options;
  options.output = dropOutput;

  const double seconds =
      secondsOf([&] { (void)shell("timeout 8 cat /dev/zero & exit 0", options); });

  EXPECT_GE(seconds, 1.9);
  EXPECT_LT(seconds, 5);
}

TEST(RunTask, WhatADescendantPrintsInTheGraceIsTaken) {
  EXPECT_EQ(shell("(sleep 0.2; echo late) & echo early").output, "early\nlate\n");
}

TEST(RunTask, AServerThatClosesThePipesDelaysNobody) {
  const double seconds = secondsOf([] { (void)shell("sleep 8 >/dev/null 2>&1 & exit 0"); });
  EXPECT_LT(seconds, 1.5);
}

TEST(RunTask, StandardInputIsEmpty) {
  EXPECT_EQ(shell("cat; readlink /proc/$$/fd/0").output, "/dev/null\n");
}

TEST(RunTask, NoDescriptorReachesTheChild) {
  const int kept = ::open("/etc/passwd", O_RDONLY);  // NOLINT: close-on-exec is left out on purpose
  ASSERT_GE(kept, 3);

  const std::string listing = RunTask("/bin/ls", {"-l", "/proc/self/fd"}).output;

  ::close(kept);
  EXPECT_THAT(listing, Not(HasSubstr("/etc/passwd")));
  EXPECT_THAT(listing, Not(HasSubstr(" 4 -> ")));  // 3 is the listed folder itself.
}

TEST(RunTask, NoDescriptorIsLeftOpenHere) {
  const std::size_t before = openDescriptors();
  (void)shell("echo x");
  (void)RunTask("/no/such/program", {});
  (void)RunTask("/tmp", {});
  EXPECT_EQ(openDescriptors(), before);
}

TEST(RunTask, SignalsAreAsAtTheStartOfAProgram) {
  EXPECT_EQ(test::exitStatusOf([] {
              ::signal(SIGPIPE, SIG_IGN);
              ::signal(SIGXFSZ, SIG_IGN);
              ::signal(SIGHUP, SIG_IGN);
              sigset_t set{};
              ::sigfillset(&set);
              ::sigprocmask(SIG_BLOCK, &set, nullptr);
              const TaskResult result = RunTask("/bin/grep", {"^Sig[BI]", "/proc/self/status"});
              std::uint64_t blocked = 1;
              std::uint64_t ignored = 1;
              const char* format = "SigBlk: %" SCNx64 " SigIgn: %" SCNx64;
              if (std::sscanf(result.output.c_str(), format, &blocked, &ignored) != 2) return 1;
              // The C library's spawn ignores the two signals that it keeps to itself, 32 and 33.
              ignored &= ~std::uint64_t{0x180000000};
              return blocked == 0 && ignored == 0 ? 0 : 2;
            }),
            0);
}

TEST(RunTask, AnInheritedIgnoreOfChildrenLosesNoStatus) {
  EXPECT_EQ(test::exitStatusOf([] {
              ::signal(SIGCHLD, SIG_IGN);
              return shell("exit 9").status;
            }),
            9);
}

TEST(RunTask, EnvironmentAndWorkingFolderAreInherited) {
  ::setenv("HALYARD_TASK_TEST", "as it is", 1);
  const std::string here = std::filesystem::current_path();

  const TaskResult result = shell("echo \"$HALYARD_TASK_TEST\"; pwd -P");

  ::unsetenv("HALYARD_TASK_TEST");
  EXPECT_EQ(result.output, "as it is\n" + here + "\n");
}

TEST(RunTask, ThePlainLocaleReplacesTheInheritedOne) {
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  TaskOptions options;
  options.plainLocale = true;

  const std::string plain = RunTask("/usr/bin/env", {}, options).output;
  const std::string inherited = RunTask("/usr/bin/env", {}).output;

  ::unsetenv("LC_ALL");
  EXPECT_THAT(plain, HasSubstr("LC_ALL=C\n"));
  EXPECT_THAT(plain, Not(HasSubstr("de_DE")));
  EXPECT_THAT(inherited, HasSubstr("LC_ALL=de_DE.UTF-8\n"));
}

TEST(RunTask, WithoutFreeDescriptorsNothingIsStartedAndNothingLeaks) {
  EXPECT_EQ(test::exitStatusOf([] {
              for (rlim_t spare = 0; spare < 8; ++spare) {
                const std::size_t before = openDescriptors();
                rlimit old{};
                ::getrlimit(RLIMIT_NOFILE, &old);
                const int next = ::dup(0);
                ::close(next);
                const rlimit tight{static_cast<rlim_t>(next) + spare, old.rlim_max};
                ::setrlimit(RLIMIT_NOFILE, &tight);
                const TaskResult result = shell("echo x");
                ::setrlimit(RLIMIT_NOFILE, &old);
                if (openDescriptors() != before) return 1;
                const bool fits = spare >= 5;  // The input and two pipes.
                if (result.status != (fits ? 0 : 126)) return 2;
                if (result.output != (fits ? "x\n" : "")) return 3;
              }
              return 0;
            }),
            0);
}

TEST(RunTask, ClosedStandardStreamsOfTheCallerDoNoHarm) {
  EXPECT_EQ(test::exitStatusOf([] {
              ::close(0);
              ::close(1);
              ::close(2);
              const TaskResult result = shell("cat; echo out; echo err >&2; exit 6");
              return result.status == 6 && result.output == "out\n" && result.error == "err\n" ? 0
                                                                                               : 1;
            }),
            0);
}

TEST(RunTask, RunsWithoutADescriptorForTheChild) {
  EXPECT_EQ(test::exitStatusOf([] {
              test::refuseSystemCall(SYS_pidfd_open);
              const TaskResult quick = shell("echo out; exit 3");
              if (quick.status != 3 || quick.output != "out\n") return 1;
              const double seconds = secondsOf([] { (void)shell("sleep 8 & exit 0"); });
              if (seconds < 1.9 || seconds > 4) return 2;
              return shell("exec >&- 2>&-; sleep 0.1; exit 5").status == 5 ? 0 : 3;
            }),
            0);
}

TEST(RunTask, InterruptionsDoNotDisturbIt) {
  EXPECT_EQ(test::exitStatusOf([] {
              struct sigaction action {};
              action.sa_handler = [](int) {};  // Without SA_RESTART: every call is interrupted.
              ::sigaction(SIGALRM, &action, nullptr);
              itimerval often{{0, 2000}, {0, 2000}};
              ::setitimer(ITIMER_REAL, &often, nullptr);
              const TaskResult result =
                  shell("sleep 0.1; echo out; exec >&- 2>&-; sleep 0.1; exit 8");
              return result.status == 8 && result.output == "out\n" ? 0 : 1;
            }),
            0);
}

TEST(RunTask, WithoutANullDeviceTheInputIsEmptyAllTheSame) {
  if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(test::exitStatusOf([] {
              if (!test::enterPrivateMounts() || ::mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                return 1;
              const TaskResult result = shell("cat; echo out; exit 3");
              return result.status == 3 && result.output == "out\n" ? 0 : 2;
            }),
            0);
}

TEST(ArgumentsUpToAbsent, EndsBeforeTheFirstAbsentValue) {
  EXPECT_THAT(argumentsUpToAbsent({"-cmd", "", "x", std::nullopt, "y"}),
              ElementsAre("-cmd", "", "x"));
  EXPECT_THAT(argumentsUpToAbsent({std::nullopt, "y"}), IsEmpty());
  EXPECT_THAT(argumentsUpToAbsent({}), IsEmpty());
}

}  // namespace
}  // namespace halyard::host

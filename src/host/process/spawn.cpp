// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/process/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <utility>

namespace halyard::host {

namespace {

constexpr int kFirstExtraDescriptor = 3;

/// Keeps clear of 0 to 2, which the child's own streams are put on: a caller may have closed one.
Descriptor aboveStandardStreams(int number) {
  Descriptor given(number);
  if (number < 0 || number >= kFirstExtraDescriptor) return given;
  return Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, kFirstExtraDescriptor));
}

struct Pipe {
  Descriptor reading;
  Descriptor writing;
  explicit operator bool() const { return reading && writing; }
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  Descriptor writing(ends[1]);
  Descriptor reading = aboveStandardStreams(ends[0]);
  return {std::move(reading), aboveStandardStreams(writing.release())};
}

/// A source that is at its end at once.
Descriptor emptyInput() {
  Descriptor null = aboveStandardStreams(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (null) return null;
  // A root without /dev/null: a pipe that nobody writes to reads the same.
  return std::move(makePipe().reading);
}

/// What posix_spawn is told of the child's descriptors and signals.
class SpawnPlan {
 public:
  SpawnPlan() {
    note(::posix_spawn_file_actions_init(&actions_));
    note(::posix_spawnattr_init(&attributes_));
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  void setStream(int number, const Descriptor& end) {
    note(::posix_spawn_file_actions_adddup2(&actions_, end.get(), number));
  }

  void closeTheRest() {
    note(::posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstExtraDescriptor));
  }

  /// What the program ignores or blocks for itself is no matter of the child's.
  void resetSignals() {
    sigset_t set{};
    ::sigemptyset(&set);
    note(::posix_spawnattr_setsigmask(&attributes_, &set));
    ::sigfillset(&set);
    note(::posix_spawnattr_setsigdefault(&attributes_, &set));
    note(::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
  }

  /// 0, or the errno value of the first step that failed.
  int spawn(pid_t& child, char* const* arguments, char* const* environment) const {
    if (error_ != 0) return error_;
    return ::posix_spawn(&child, arguments[0], &actions_, &attributes_, arguments, environment);
  }

 private:
  void note(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  int error_ = 0;
};

/// The process's environment, with LC_ALL=C for tools whose output is parsed.
class ChildEnvironment {
 public:
  explicit ChildEnvironment(bool plainLocale) {
    if (!plainLocale) return;
    constexpr std::string_view kLocale = "LC_ALL=";
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      if (!std::string_view(*entry).starts_with(kLocale)) entries_.push_back(*entry);
    }
    entries_.push_back(locale_.data());
    entries_.push_back(nullptr);
  }
  char* const* get() const { return entries_.empty() ? environ : entries_.data(); }

 private:
  std::string locale_ = "LC_ALL=C";
  std::vector<char*> entries_;
};

std::vector<char*> argumentVector(const std::string& path,
                                  const std::vector<std::string>& arguments) {
  std::vector<char*> vector;
  vector.reserve(arguments.size() + 2);
  // exec(2) takes pointers to plain char and changes nothing behind them.
  vector.push_back(const_cast<char*>(path.c_str()));
  for (const std::string& argument : arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);
  return vector;
}

/// An inherited "ignore" for SIGCHLD would throw every exit status away.
void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    ::signal(SIGCHLD, SIG_DFL);
  }
}

}  // namespace

int spawnChild(const std::string& path, const std::vector<std::string>& arguments, bool plainLocale,
               SpawnedChild& child) {
  const Descriptor input = emptyInput();
  if (!input) return errno;
  Pipe output = makePipe();
  if (!output) return errno;
  Pipe error = makePipe();
  if (!error) return errno;
  keepExitStatuses();

  SpawnPlan plan;
  plan.setStream(STDIN_FILENO, input);
  plan.setStream(STDOUT_FILENO, output.writing);
  plan.setStream(STDERR_FILENO, error.writing);
  plan.closeTheRest();
  plan.resetSignals();
  const std::vector<char*> vector = argumentVector(path, arguments);
  const ChildEnvironment environment(plainLocale);
  const int refused = plan.spawn(child.process, vector.data(), environment.get());
  if (refused != 0) return refused;
  child.output = std::move(output.reading);
  child.error = std::move(error.reading);
  return 0;
}

}  // namespace halyard::host

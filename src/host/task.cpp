#include "host/task.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <utility>

#include "host/descriptor.h"

namespace halyard::host {

namespace {

constexpr int kNotFound = 127;
constexpr int kCannotExecute = 126;
constexpr int kSignalBase = 128;
constexpr int kFirstExtraDescriptor = 3;

using Clock = std::chrono::steady_clock;
/// How long a descendant that keeps a pipe open is waited for after the child's end.
constexpr std::chrono::seconds kDescendantGrace{2};
/// How often a child is asked for where the kernel gives no descriptor for it.
constexpr std::chrono::milliseconds kTick{20};

/// 64 KiB empty a pipe of the usual size with one call.
using ReadBuffer = std::array<char, std::size_t{64} << 10>;

/// Keeps clear of 0 to 2, which the child's own streams are put on: a caller may have closed one.
Descriptor aboveStandardStreams(int number) {
  Descriptor given(number);
  if (number < 0 || number >= kFirstExtraDescriptor) return given;
  return Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, kFirstExtraDescriptor));
}

/// By number: the header of this C library declares the call without C linkage.
Descriptor openProcess(pid_t process) {
  return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)));
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

/// One of the child's two streams on its way to the caller.
class Stream {
 public:
  Stream(Descriptor end, const OutputSink& sink, std::string& text)
      : end_(std::move(end)), sink_(sink), text_(text) {}

  bool isOpen() const { return static_cast<bool>(end_); }
  int descriptor() const { return end_.get(); }

  /// Takes what is there with one read; the end of the stream closes it.
  void read(ReadBuffer& buffer) {
    const ssize_t length = ::read(end_.get(), buffer.data(), buffer.size());
    if (length < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (length <= 0) {
      end_.reset();
      return;
    }
    deliver({buffer.data(), static_cast<std::size_t>(length)});
  }

 private:
  void deliver(std::string_view piece) {
    if (sink_) {
      sink_(piece);
      return;
    }
    piece = piece.substr(0, kCaptureLimit - text_.size());
    // Grows in the usual steps, but to no more than the text can ever need.
    if (text_.capacity() - text_.size() < piece.size()) {
      text_.reserve(std::min(kCaptureLimit, 2 * text_.capacity() + piece.size()));
    }
    text_.append(piece);
  }

  Descriptor end_;
  const OutputSink& sink_;
  std::string& text_;
};

/// A child that was started and is waited for.
class Child {
 public:
  explicit Child(pid_t process) : process_(process), descriptor_(openProcess(process)) {}

  bool hasEnded() const { return ended_; }
  /// Becomes readable with the child's end; -1 where the kernel refuses such a descriptor.
  int descriptor() const { return descriptor_.get(); }
  int status() const { return status_; }

  /// Takes the status of a child that has ended; with WNOHANG one that runs on is left alone.
  void collect(int flags) {
    int status = 0;
    pid_t result = 0;
    do {
      result = ::waitpid(process_, &status, flags);
    } while (result < 0 && errno == EINTR);
    if (result == 0) return;
    ended_ = true;
    descriptor_.reset();
    if (result < 0) return;  // Somebody else took the status: it stays "cannot be executed".
    status_ = WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  pid_t process_;
  Descriptor descriptor_;
  bool ended_ = false;
  int status_ = kCannotExecute;
};

/// The time for poll(2): -1 for ever; 0 when the deadline has passed.
int pollTimeout(const Child& child, Clock::time_point deadline) {
  if (!child.hasEnded()) {
    return child.descriptor() >= 0 ? -1 : static_cast<int>(kTick.count());
  }
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(rest.count(), 0));
}

/// Reads both streams until they end, or until the grace after the child's end is over.
void drain(Child& child, Stream& output, Stream& error) {
  ReadBuffer buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read(2)
  Clock::time_point deadline{};
  int timeout = -1;
  do {
    // Once the deadline has passed there is one more look, so that what the child itself left in
    // the pipes is never lost, however late this process gets its turn.
    timeout = pollTimeout(child, deadline);
    std::array<pollfd, 3> entries{{{output.descriptor(), POLLIN, 0},
                                   {error.descriptor(), POLLIN, 0},
                                   {child.descriptor(), POLLIN, 0}}};
    if (::poll(entries.data(), entries.size(), timeout) < 0) continue;  // EINTR
    if (entries[0].revents != 0) output.read(buffer);
    if (entries[1].revents != 0) error.read(buffer);
    if (!child.hasEnded() && (entries[2].revents != 0 || child.descriptor() < 0)) {
      child.collect(WNOHANG);
      deadline = Clock::now() + kDescendantGrace;
    }
  } while ((output.isOpen() || error.isOpen()) && timeout != 0);
}

/// An inherited "ignore" for SIGCHLD would throw every exit status away.
void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    ::signal(SIGCHLD, SIG_DFL);
  }
}

int spawnError(int error) { return error == ENOENT ? kNotFound : kCannotExecute; }

}  // namespace

TaskResult RunTask(const MaybeString& executable, const std::vector<std::string>& arguments,
                   const TaskOptions& options) {
  TaskResult result;
  result.status = kNotFound;
  // A NUL would end the name early, and something else would be run.
  if (!executable || !executable->starts_with('/') || executable->find('\0') != std::string::npos) {
    return result;
  }

  result.status = kCannotExecute;
  const Descriptor input = emptyInput();
  Pipe output = makePipe();
  Pipe error = makePipe();
  if (!input || !output || !error) return result;
  keepExitStatuses();

  SpawnPlan plan;
  plan.setStream(STDIN_FILENO, input);
  plan.setStream(STDOUT_FILENO, output.writing);
  plan.setStream(STDERR_FILENO, error.writing);
  plan.closeTheRest();
  plan.resetSignals();
  pid_t process = 0;
  const int refused = plan.spawn(process, argumentVector(*executable, arguments).data(),
                                 ChildEnvironment(options.plainLocale).get());
  if (refused != 0) {
    result.status = spawnError(refused);
    return result;
  }
  output.writing.reset();
  error.writing.reset();

  Child child(process);
  Stream outputStream(std::move(output.reading), options.output, result.output);
  Stream errorStream(std::move(error.reading), options.error, result.error);
  drain(child, outputStream, errorStream);
  // Both streams may end long before the child does.
  if (!child.hasEnded()) child.collect(0);
  result.status = child.status();
  return result;
}

std::vector<std::string> argumentsUpToAbsent(const std::vector<MaybeString>& values) {
  std::vector<std::string> arguments;
  for (const MaybeString& value : values) {
    if (!value) break;
    arguments.push_back(*value);
  }
  return arguments;
}

}  // namespace halyard::host

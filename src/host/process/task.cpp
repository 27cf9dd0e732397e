// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/process/task.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <utility>

#include "host/files/descriptor.h"
#include "host/process/spawn.h"

namespace halyard::host {

namespace {

constexpr int kNotFound = 127;
constexpr int kCannotExecute = 126;
constexpr int kSignalBase = 128;

using Clock = std::chrono::steady_clock;
/// How long a descendant that keeps a pipe open is waited for after the child's end.
constexpr std::chrono::seconds kDescendantGrace{2};
/// How often a child is asked for where the kernel gives no descriptor for it.
constexpr std::chrono::milliseconds kTick{20};

/// 64 KiB empty a pipe of the usual size with one call.
using ReadBuffer = std::array<char, std::size_t{64} << 10>;

/// By number: the header of this C library declares the call without C linkage.
Descriptor openProcess(pid_t process) {
  return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)));
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

}  // namespace

TaskResult RunTask(const MaybeString& executable, const std::vector<std::string>& arguments,
                   const TaskOptions& options) {
  TaskResult result;
  result.status = kNotFound;
  // A NUL would end the name early, and something else would be run.
  if (!executable || !executable->starts_with('/') || executable->find('\0') != std::string::npos) {
    return result;
  }
  SpawnedChild spawned;
  if (const int error = spawnChild(*executable, arguments, options.plainLocale, spawned)) {
    result.status = error == ENOENT ? kNotFound : kCannotExecute;
    return result;
  }
  Child child(spawned.process);
  Stream output(std::move(spawned.output), options.output, result.output);
  Stream error(std::move(spawned.error), options.error, result.error);
  drain(child, output, error);
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

// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/pid_file_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <optional>

#include "base/result.h"
#include "base/text.h"
#include "common/times.h"
#include "helmsman/program/process_tree.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kPidFileLimit = 4096;
constexpr std::size_t kStatusLimit = 4096;
constexpr std::size_t kCommandLineLimit = std::size_t{2} << 20;  // As long as the kernel allows.

using Owner = PidFileState::Owner;

std::string processFile(int process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

// ENOENT for a process of the kernel.
Result<std::string> executableOf(int process) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length =
      ::readlink(processFile(process, "exe").c_str(), target.data(), target.size() - 1);
  if (length <= 0) return Error{length < 0 ? errno : ENOENT, processFile(process, "exe")};
  std::string path(target.data(), static_cast<std::size_t>(length));
  // The program was replaced while it runs.
  if (const std::size_t mark = path.rfind(" (deleted)"); mark != std::string::npos) {
    path.resize(mark);
  }
  return path;
}

// Where the executable of another process may not be read, as in the backup unit: a name, which
// nobody but root could have given to a process of root's.
bool isNamed(int process, std::string_view name) {
  struct stat status {};
  if (::stat(processFile(process, "").c_str(), &status) != 0 || status.st_uid != 0) return false;
  const auto text = host::readFile(processFile(process, "comm"), kStatusLimit);
  return text && trimLineFeeds(*text) == name;
}

bool runs(int process, const char* program) {
  const Result<std::string> executable = executableOf(process);
  if (!executable) {
    return executable.error().code == EACCES && isNamed(process, paths::nameIn(program));
  }
  return *executable == program || *executable == host::realPath(program);
}

// A container's processes are in this host's table, and none of this host.
bool isInContainer(int process) {
  struct stat own {};
  struct stat other {};
  return ::stat("/proc/self/ns/pid", &own) == 0 &&
         ::stat(processFile(process, "ns/pid").c_str(), &other) == 0 && own.st_ino != other.st_ino;
}

bool isHalyard(int process) { return runs(process, paths::kProgram); }

// A helmsman that keeps Halyard out has the pid file itself.
bool mayHavePidFile(int process) {
  return (isHalyard(process) || runs(process, paths::kAdministrationTool)) &&
         !isInContainer(process);
}

double secondsOf(const timespec& time) {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * kNanosecond;
}

double secondsSince(const timespec& time) {
  timespec now{};
  (void)::clock_gettime(CLOCK_REALTIME, &now);  // It is everywhere.
  return secondsOf(now) - secondsOf(time);
}

// A helmsman stops its Halyard for some seconds while it ends a plug-in.
bool standsStopped(int process) {
  const auto entry = processEntry(process);
  return entry && entry->isStopped &&
         paths::nameIn(programOf(entry->parent).c_str()) !=
             std::string_view(paths::nameIn(paths::kAdministrationTool));
}

// Whether the process is younger than its pid file, so that another one wrote that.
bool startedAfter(int process, const timespec& written) {
  constexpr double kSlack = 2;  // A start is known by the tick, a file's time by its file system.
  const auto run = secondsRun(process);
  return run && *run + kSlack < secondsSince(written);
}

bool runsCommand(int process, const std::string& command) {
  const auto words = host::readFile(processFile(process, "cmdline"), kCommandLineLimit);
  const std::string word = std::string(1, '\0') + "-cmd" + '\0' + command + '\0';
  return words && words->find(word) != std::string::npos;
}

Owner ownerOf(const PidFileState& state, const timespec& written) {
  if (::kill(state.process, 0) != 0 && errno == ESRCH) return Owner::gone;
  if (!mayHavePidFile(state.process)) {
    return executableOf(state.process) ? Owner::stranger : Owner::unknown;
  }
  if (!startedAfter(state.process, written)) return Owner::halyard;
  // The same command younger than its file: more likely the clock was set than the number taken.
  return runsCommand(state.process, state.command) ? Owner::unknown : Owner::stranger;
}

// Of a file that names no process: a leftover when no Halyard runs at all.
Owner ownerOfNamelessFile() {
  bool seesItself = false;  // Else this is not the host's table of processes.
  for (const std::string& name : host::listDirectory("/proc")) {
    const int process = leadingInteger(name);
    if (process <= 0) continue;
    if (isHalyard(process) && !isInContainer(process)) return Owner::unknown;
    seesItself = seesItself || process == ::getpid();
  }
  return seesItself ? Owner::gone : Owner::unknown;
}

host::Descriptor openPidFile() {
  return host::Descriptor(::open(paths::kPidFile, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
}

// Of the open file, whatever its path names by now.
PidFileState stateOf(const host::Descriptor& file) {
  std::array<char, kPidFileLimit> text{};
  const ssize_t length = ::pread(file.get(), text.data(), text.size(), 0);
  PidFileState state =
      parsePidFile({text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))});
  struct stat status {};
  if (length < 0 || ::fstat(file.get(), &status) != 0) return state;
  state.owner = state.process > 0 ? ownerOf(state, status.st_mtim) : ownerOfNamelessFile();
  if (state.owner == Owner::halyard) {
    state.isStopped = standsStopped(state.process);
    state.runsFor = std::chrono::seconds(std::llround(secondsRun(state.process).value_or(0)));
  }
  return state;
}

bool standsAtItsPath(const host::Descriptor& file) {
  struct stat opened {};
  struct stat there {};
  return ::fstat(file.get(), &opened) == 0 && ::lstat(paths::kPidFile, &there) == 0 &&
         opened.st_dev == there.st_dev && opened.st_ino == there.st_ino;
}

std::string describeRun(const PidFileState& state, const std::string& who) {
  const std::string started = ", started " + ageText(state.runsFor.count());
  if (state.command.starts_with(paths::nameIn(paths::kAdministrationTool))) {
    return state.command + " is running (process " + std::to_string(state.process) + ")";
  }
  return std::string(state.isStopped ? "Halyard was stopped by a signal ("
                                     : "Halyard is running (") +
         who + (state.isStuck() ? started : "") + ")";
}

}  // namespace

PidFileState parsePidFile(std::string_view text) {
  PidFileState state;
  state.owner = Owner::unknown;
  static constexpr std::string_view kMark = texts::kSeparator;
  const std::size_t mark = text.find(kMark);
  if (mark == std::string_view::npos || mark == 0) return state;
  for (const char digit : text.substr(0, mark)) {
    if (digit < '0' || digit > '9') return state;
  }
  state.process = leadingInteger(text.substr(0, mark));
  state.command = std::string(trimLineFeeds(text.substr(mark + kMark.size())));
  return state;
}

PidFileState pidFileState() {
  const host::Descriptor file = openPidFile();
  if (file) return stateOf(file);
  PidFileState state;
  if (!host::isAbsent(paths::kPidFile)) state.owner = Owner::unknown;
  return state;
}

bool removeLeftoverPidFile() {
  while (const host::Descriptor file = openPidFile()) {
    // Of two that remove it one waits here, and by then a run may have begun with a file of its
    // own.
    if (::flock(file.get(), LOCK_EX) != 0) return false;
    if (!standsAtItsPath(file)) continue;
    return stateOf(file).isLeftover() && ::unlink(paths::kPidFile) == 0 &&
           host::syncFolderOf(paths::kPidFile);
  }
  return false;
}

std::string describe(const PidFileState& state) {
  const std::string process = "process " + std::to_string(state.process);
  switch (state.owner) {
    case Owner::none:
      return "no run is active";
    case Owner::halyard:
      return describeRun(state, process + ", " + state.command);
    case Owner::gone:
      if (state.process == 0)
        return "the pid file is a leftover: it names no process, and no Halyard runs";
      return "a run that has ended left the pid file behind (" + process + ", " + state.command +
             ")";
    case Owner::stranger:
      return "the pid file is a leftover (" + process + " is another one by now, " + state.command +
             ")";
    case Owner::unknown:
      break;
  }
  return state.process > 0 ? process + " of the pid file runs and cannot be told apart"
                           : std::string(paths::kPidFile) + " is there and names no process";
}

}  // namespace halyard::hostkit

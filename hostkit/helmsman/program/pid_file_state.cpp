#include "helmsman/program/pid_file_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <sstream>

#include "base/text.h"
#include "host/files/files.h"
#include "host/files/sync.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kPidFileLimit = 4096;
constexpr std::string_view kProgramName = paths::nameIn(paths::kProgram);
constexpr std::size_t kStatusLimit = 4096;
constexpr std::size_t kCommandLineLimit = std::size_t{2} << 20;  // As long as the kernel allows.

using Owner = PidFileState::Owner;

std::string processFile(int process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

// Empty for a process of the kernel, and when it cannot be known.
std::string executableOf(int process) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length =
      ::readlink(processFile(process, "exe").c_str(), target.data(), target.size() - 1);
  if (length <= 0) return {};
  std::string path(target.data(), static_cast<std::size_t>(length));
  // The program was replaced while it runs.
  if (const std::size_t mark = path.rfind(" (deleted)"); mark != std::string::npos) {
    path.resize(mark);
  }
  return path;
}

// Where the executable of another process may not be read, as in the backup unit: a name, which
// nobody but root could have given to a process of root's.
bool isNamedAsHalyard(int process) {
  struct stat status {};
  if (::stat(processFile(process, "").c_str(), &status) != 0 || status.st_uid != 0) return false;
  const auto name = host::readFile(processFile(process, "comm"), kStatusLimit);
  return name && trimLineFeeds(*name) == kProgramName;
}

bool isHalyard(int process) {
  static const std::string program = host::realPath(paths::kProgram).value_or(paths::kProgram);
  errno = 0;
  const std::string executable = executableOf(process);
  if (executable.empty()) return errno == EACCES && isNamedAsHalyard(process);
  return executable == program || executable == paths::kProgram;
}

double secondsOf(const timespec& time) {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * kNanosecond;
}

double secondsOn(clockid_t clock) {
  timespec now{};
  (void)::clock_gettime(clock, &now);  // These clocks are everywhere.
  return secondsOf(now);
}

// For how long the process has been running; absent when it cannot be known.
std::optional<double> secondsRun(int process) {
  const auto text = host::readFile(processFile(process, "stat"), kStatusLimit);
  // The name in parentheses may hold anything; the start is the 20th field behind it.
  const std::size_t name = text ? text->rfind(')') : std::string::npos;
  if (name == std::string::npos) return std::nullopt;
  constexpr int kStartField = 20;
  std::istringstream fields(text->substr(name + 1));
  std::string field;
  for (int count = 0; count < kStartField; ++count) fields >> field;
  if (!fields || field.empty()) return std::nullopt;
  const double ticks = std::strtod(field.c_str(), nullptr);
  return secondsOn(CLOCK_BOOTTIME) - ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// Whether the process is younger than the pid file, so that another one wrote it.
bool startedAfterPidFile(int process) {
  constexpr double kSlack = 2;  // A start is known by the tick, a file's time by its file system.
  struct stat file {};
  const auto run = secondsRun(process);
  if (!run || ::stat(paths::kPidFile, &file) != 0) return false;
  return *run + kSlack < secondsOn(CLOCK_REALTIME) - secondsOf(file.st_mtim);
}

bool runsCommand(int process, const std::string& command) {
  const auto words = host::readFile(processFile(process, "cmdline"), kCommandLineLimit);
  const std::string word = std::string(1, '\0') + "-cmd" + '\0' + command + '\0';
  return words && words->find(word) != std::string::npos;
}

Owner ownerOf(const PidFileState& state) {
  if (::kill(state.process, 0) != 0 && errno == ESRCH) return Owner::gone;
  if (!isHalyard(state.process)) {
    return executableOf(state.process).empty() ? Owner::unknown : Owner::stranger;
  }
  if (!startedAfterPidFile(state.process)) return Owner::halyard;
  // The same command younger than its file: more likely the clock was set than the number taken.
  return runsCommand(state.process, state.command) ? Owner::unknown : Owner::stranger;
}

// Of a file that names no process: a leftover when no Halyard runs at all.
Owner ownerOfNamelessFile() {
  bool seesItself = false;  // Else this is not the host's table of processes.
  for (const std::string& name : host::listDirectory("/proc")) {
    const int process = leadingInteger(name);
    if (process <= 0) continue;
    if (isHalyard(process)) return Owner::unknown;
    seesItself = seesItself || process == ::getpid();
  }
  return seesItself ? Owner::gone : Owner::unknown;
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
  PidFileState state;
  if (!host::exists(paths::kPidFile)) return state;
  const auto text = host::readFile(paths::kPidFile, kPidFileLimit);
  state = parsePidFile(text.value_or(""));
  state.owner = state.process > 0 ? ownerOf(state) : ownerOfNamelessFile();
  return state;
}

bool removeLeftoverPidFile() {
  const PidFileState state = pidFileState();
  if (!state.isLeftover()) return true;
  if (::unlink(paths::kPidFile) != 0 && errno != ENOENT) return false;
  return static_cast<bool>(host::syncFolderOf(paths::kPidFile));
}

std::string describe(const PidFileState& state) {
  const std::string process = "process " + std::to_string(state.process);
  switch (state.owner) {
    case Owner::none:
      return "no run is active";
    case Owner::halyard:
      return "Halyard is running (" + process + ", " + state.command + ")";
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

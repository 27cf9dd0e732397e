#include "helmsman/program/pid_file_state.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

#include "base/text.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kPidFileLimit = 4096;
constexpr std::string_view kProgramName = paths::nameIn(paths::kProgram);

using Owner = PidFileState::Owner;

Owner ownerOf(int process) {
  if (::kill(process, 0) != 0 && errno == ESRCH) return Owner::gone;
  std::array<char, PATH_MAX> target{};
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size() - 1);
  if (length <= 0) return Owner::unknown;
  std::string name = lastPathComponent(std::string_view(target.data(), std::size_t(length)));
  // The program was replaced while it runs.
  if (const std::size_t mark = name.rfind(" (deleted)"); mark != std::string::npos) {
    name.resize(mark);
  }
  return name == kProgramName ? Owner::halyard : Owner::stranger;
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
  if (state.process > 0) state.owner = ownerOf(state.process);
  return state;
}

bool removeLeftoverPidFile() {
  const PidFileState state = pidFileState();
  if (!state.isLeftover()) return true;
  return ::unlink(paths::kPidFile) == 0 || errno == ENOENT;
}

std::string describe(const PidFileState& state) {
  const std::string process = "process " + std::to_string(state.process);
  switch (state.owner) {
    case Owner::none:
      return "no run is active";
    case Owner::halyard:
      return "Halyard is running (" + process + ", " + state.command + ")";
    case Owner::gone:
      return "a run that has ended left the pid file behind (" + process + ", " + state.command +
             ")";
    case Owner::stranger:
      return "the pid file is a leftover (" + process + " is another program by now, " +
             state.command + ")";
    case Owner::unknown:
      break;
  }
  return state.process > 0 ? process + " of the pid file runs and cannot be told apart"
                           : std::string(paths::kPidFile) + " is there and names no process";
}

}  // namespace halyard::hostkit

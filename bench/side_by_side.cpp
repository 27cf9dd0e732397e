// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Times two programs in turns, so that whatever else the machine does meets both alike.
//
//   side_by_side ROUNDS -- PROGRAM [ARGUMENT...] -- PROGRAM [ARGUMENT...]
//
// Prints the median and the least time of each in milliseconds, and the first as a multiple of the
// second. On a busy machine the least times are the ones to look at.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

using Command = std::vector<char*>;  // Ends with a null pointer.

/// The commands behind each "--".
std::vector<Command> commandsOf(int argc, char** argv) {
  std::vector<Command> commands;
  for (int i = 2; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--") {
      commands.emplace_back();
    } else if (!commands.empty()) {
      commands.back().push_back(argv[i]);
    }
  }
  for (Command& command : commands) command.push_back(nullptr);
  return commands;
}

/// Milliseconds from the start to the end; negative when the program failed.
double timeOf(const Command& command, const posix_spawn_file_actions_t& actions) {
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (::posix_spawn(&child, command[0], &actions, nullptr, command.data(), environ) != 0) return -1;
  int status = 0;
  if (::waitpid(child, &status, 0) != child || status != 0) return -1;
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

void show(const char* kind, double first, double second) {
  std::printf("%-7s %9.3f ms %9.3f ms   ratio %.3f\n", kind, first, second, first / second);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 0;
  const auto commands = commandsOf(argc, argv);
  if (rounds < 1 || commands.size() != 2 || commands[0].size() < 2 || commands[1].size() < 2) {
    std::fprintf(stderr, "usage: side_by_side ROUNDS -- PROGRAM... -- PROGRAM...\n");
    return 2;
  }
  posix_spawn_file_actions_t quiet;
  ::posix_spawn_file_actions_init(&quiet);
  ::posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::vector<double>> times(2);
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < 2; ++i) {
      times[i].push_back(timeOf(commands[i], quiet));
      if (times[i].back() >= 0) continue;
      std::fprintf(stderr, "side_by_side: %s failed\n", commands[i][0]);
      return 1;
    }
  }
  show("median", median(times[0]), median(times[1]));
  show("least", *std::ranges::min_element(times[0]), *std::ranges::min_element(times[1]));
  return 0;
}

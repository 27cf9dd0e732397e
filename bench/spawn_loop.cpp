// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Starts the programs of a list one after the other and waits for each: the least that any program
// which runs them can do.
//
//   spawn_loop LIST      one program a line, its words separated by tabs
//
// A line "copy FROM TO" starts nothing: the item is copied.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/tree/tree_copy.h"

namespace {

/// The words of a line; the pointers lead into it.
std::vector<char*> wordsOf(std::string& line) {
  std::vector<char*> words{line.data()};
  for (char& c : line) {
    if (c != '\t') continue;
    c = '\0';
    words.push_back(&c + 1);
  }
  words.push_back(nullptr);
  return words;
}

}  // namespace

int main(int argc, char** argv) {
  std::ifstream list(argc == 2 ? argv[1] : "");
  if (!list) {
    std::fprintf(stderr, "usage: spawn_loop LIST\n");
    return 2;
  }
  const int null = ::open("/dev/null", O_RDWR);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  for (const int stream : {0, 1, 2}) ::posix_spawn_file_actions_adddup2(&actions, null, stream);
  std::string line;
  while (std::getline(list, line)) {
    const auto words = wordsOf(line);
    if (words.size() == 4 && std::string_view(words[0]) == "copy") {
      if (halyard::host::copyItem(words[1], words[2])) continue;
      std::fprintf(stderr, "spawn_loop: cannot copy %s\n", words[1]);
      return 1;
    }
    pid_t child = 0;
    if (::posix_spawn(&child, words[0], &actions, nullptr, words.data(), environ) != 0) {
      std::fprintf(stderr, "spawn_loop: cannot start %s\n", words[0]);
      return 1;
    }
    int status = 0;
    ::waitpid(child, &status, 0);
  }
  ::posix_spawn_file_actions_destroy(&actions);
  return 0;
}
